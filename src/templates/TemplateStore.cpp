#include "templates/TemplateStore.h"

#include "templates/AtomicFile.h"
#include "templates/StrictJson.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonParseError>

namespace brindlemark {

std::optional<QJsonArray> templatesFromJSONString(const QString& text) {
    if (text.isEmpty())
        return std::nullopt;
    const QByteArray bytes = text.toUtf8();
    if (!isStrictJson({bytes.constData(), std::size_t(bytes.size())}))
        return std::nullopt;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return std::nullopt;
    return document.array();
}

LoadedTemplates loadedTemplates(const QString& storedText) {
    LoadedTemplates result;
    const std::optional<QJsonArray> parsed = templatesFromJSONString(storedText);
    result.storedTextUnreadable = !storedText.isEmpty() && !parsed;

    if (parsed && !parsed->isEmpty()) {
        for (const QJsonValue& element : *parsed) {
            if (element.isObject())
                result.templates.append(normalizedTemplate(element.toObject()));
            else
                result.storedTextUnreadable = true;
        }
        // An array of nothing but non-objects is as good as an empty one.
        if (!result.templates.isEmpty())
            return result;
    }
    result.templates = defaultTemplates();
    return result;
}

QString templatesJSONText(const TemplateList& templates) {
    QJsonArray array;
    for (const Template& record : templates)
        array.append(normalizedTemplate(record));
    const QByteArray json = QJsonDocument(array).toJson(QJsonDocument::Compact);
    return json.isEmpty() ? QStringLiteral("[]") : QString::fromUtf8(json);
}

TemplateList enabledTemplates(const TemplateList& templates) {
    TemplateList enabled;
    for (const Template& record : templates)
        if (boolFromValue(record.value(TemplateKey::enabled), false))
            enabled.append(normalizedTemplate(record));
    return enabled;
}

Template templateWithIdentifier(const TemplateList& templates, const QString& identifier) {
    if (!identifier.isNull()) {
        for (const Template& record : templates) {
            const QJsonValue id = record.value(TemplateKey::id);
            if (id.isString() && id.toString() == identifier)
                return normalizedTemplate(record);
        }
        for (const Template& builtIn : defaultTemplates())
            if (builtIn.value(TemplateKey::id).toString() == identifier)
                return builtIn;
    }
    return defaultTemplates().constFirst();
}

QStringList writeTemplatesJSONFiles(const QString& text, const QStringList& paths) {
    const QByteArray bytes = text.toUtf8();
    QList<std::pair<QString, QByteArray>> files;
    for (const QString& path : paths)
        files.append({path, bytes});
    return writeChangedFilesAtomically(files).failed;
}

QString keepUnreadableTemplatesText(const QString& text, const QString& folder) {
    const QByteArray bytes = text.toUtf8();
    const QString base = QDir(folder).filePath(QStringLiteral("Templates.json.unreadable"));
    // Never overwrite an earlier backup that holds something else.
    for (int n = 0; n < 1000; ++n) {
        const QString path = n == 0 ? base : base + QLatin1Char('.') + QString::number(n);
        QFile existing(path);
        if (existing.exists()) {
            if (existing.open(QIODevice::ReadOnly) && existing.readAll() == bytes)
                return path;
            continue;
        }
        return writeFileAtomically(path, bytes) ? path : QString();
    }
    return QString();
}

} // namespace brindlemark
