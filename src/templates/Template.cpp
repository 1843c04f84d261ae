#include "templates/Template.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>
#include <QUuid>

#include <cmath>

namespace brindlemark {

namespace {

QString numberText(double number) {
    // Whole numbers print without a fraction, as a user would write them ("42", not "42.0").
    if (std::isfinite(number) && std::trunc(number) == number && std::fabs(number) < 9.0e15)
        return QString::number(static_cast<qint64>(number));
    return QString::number(number, 'g', QLocale::FloatingPointShortest);
}

} // namespace

QString cleanedString(const QJsonValue& value) {
    QString text;
    switch (value.type()) {
    case QJsonValue::String:
        text = value.toString();
        break;
    case QJsonValue::Double:
        text = numberText(value.toDouble());
        break;
    case QJsonValue::Bool:
        text = value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
        break;
    case QJsonValue::Array:
        text = QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
        break;
    case QJsonValue::Object:
        text = QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
        break;
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        return QString(""); // never null
    }
    // QString::trimmed() strips exactly the whitespace-and-newline set: 9..13, U+0085 and the
    // Zs/Zl/Zp categories (space and no-break space included). A leading U+FEFF goes as well: Qt's
    // JSON reader drops one at the start of a string, so a value that began with it would read
    // back different from what was written.
    QString trimmed = text.trimmed();
    while (trimmed.startsWith(QChar(0xFEFF)))
        trimmed = trimmed.mid(1).trimmed();
    return trimmed.isNull() ? QString("") : trimmed;
}

bool boolFromValue(const QJsonValue& value, bool defaultValue) {
    if (value.isBool())
        return value.toBool();
    if (value.isDouble())
        return value.toDouble() != 0.0;
    if (!value.isString())
        return defaultValue;

    const QString word = cleanedString(value).toLower();
    for (const char* yes : {"1", "true", "yes", "on"})
        if (word == QLatin1String(yes))
            return true;
    for (const char* no : {"0", "false", "no", "off"})
        if (word == QLatin1String(no))
            return false;
    return defaultValue;
}

QString withoutLeadingDot(const QString& suffix) {
    return suffix.startsWith(u'.') ? suffix.mid(1) : suffix;
}

QString newTemplateIdentifier() {
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

Template normalizedTemplate(const Template& record) {
    QString id = cleanedString(record.value(TemplateKey::id));
    if (id.isEmpty())
        id = newTemplateIdentifier();

    QString title = cleanedString(record.value(TemplateKey::title));
    if (title.isEmpty())
        title = FallbackTitle;

    QString prefix = cleanedString(record.value(TemplateKey::prefix));
    if (prefix.isEmpty())
        prefix = title;

    const QString suffix = withoutLeadingDot(cleanedString(record.value(TemplateKey::suffix)));

    return Template{
        {TemplateKey::id, id},
        {TemplateKey::title, title},
        {TemplateKey::prefix, prefix},
        {TemplateKey::suffix, suffix},
        {TemplateKey::enabled, boolFromValue(record.value(TemplateKey::enabled), false)},
        {TemplateKey::executable, boolFromValue(record.value(TemplateKey::executable), false)},
    };
}

const TemplateList& defaultTemplates() {
    static const TemplateList builtIns = [] {
        auto make = [](const char* id, const char* title, const char* prefix, const char* suffix,
                       bool enabled, bool executable) {
            return Template{
                {TemplateKey::id, QString::fromUtf8(id)},
                {TemplateKey::title, QString::fromUtf8(title)},
                {TemplateKey::prefix, QString::fromUtf8(prefix)},
                {TemplateKey::suffix, QString::fromUtf8(suffix)},
                {TemplateKey::enabled, enabled},
                {TemplateKey::executable, executable},
            };
        };
        return TemplateList{
            make("text", "Text File", "New Text File", "txt", true, false),
            make("markdown", "Markdown Document", "MarkdownDocument", "md", true, false),
            make("json", "JSON File", "JSONFile", "json", false, false),
            make("shell", "Shell Script", "script", "sh", false, true),
            make("python", "Python Script", "script", "py", false, true),
            make("ruby", "Ruby Script", "script", "rb", false, true),
        };
    }();
    return builtIns;
}

} // namespace brindlemark
