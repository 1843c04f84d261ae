#include "platform/linux/IniFile.h"

#include "bridge/TextRules.h"

#include <QFile>
#include <QList>

namespace brindlemark::ini {

namespace {

// A value as QSettings reads it back: always quoted (a comma would otherwise make a list),
// quotes and backslashes escaped, control characters as \x escapes. A hex escape runs on over
// every hex digit that follows it, so a hex digit right after one is escaped as well. A leading
// '@' marks a typed value to QSettings and is doubled.
QByteArray quoted(const QString& value) {
    QByteArray out = "\"";
    if (value.startsWith(u'@'))
        out += '@';
    bool afterHexEscape = false;
    for (const char32_t c : value.toUcs4()) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c < 0x20 || c == 0x7f || (afterHexEscape && isHexDigit(c))) {
            out += "\\x" + QByteArray::number(uint(c), 16);
            afterHexEscape = true;
            continue;
        } else {
            out += QString::fromUcs4(&c, 1).toUtf8();
        }
        afterHexEscape = false;
    }
    return out + '"';
}

bool isSectionHeader(const QByteArray& trimmed) {
    return trimmed.startsWith('[') && trimmed.endsWith(']');
}

} // namespace

QByteArray withValue(const QByteArray& existing, const QString& key, const QString& value) {
    const QByteArray name = key.toLatin1();
    const QByteArray line = name + '=' + quoted(value);
    QList<QByteArray> lines = existing.split('\n');
    if (!lines.isEmpty() && lines.constLast().isEmpty())
        lines.removeLast();

    // Lines before the first header belong to [General] too.
    bool inGeneral = true;
    qsizetype generalHeader = -1;
    QList<QByteArray> kept;
    for (const QByteArray& each : std::as_const(lines)) {
        const QByteArray trimmed = each.trimmed();
        if (isSectionHeader(trimmed)) {
            inGeneral = trimmed == "[General]";
            if (inGeneral && generalHeader < 0)
                generalHeader = kept.size();
        } else if (inGeneral && trimmed.startsWith(name) &&
                   trimmed.mid(name.size()).trimmed().startsWith('=')) {
            continue;
        }
        kept.append(each);
    }
    if (generalHeader >= 0)
        kept.insert(generalHeader + 1, line);
    else
        kept = QList<QByteArray>{"[General]", line, ""} + kept;
    return kept.join('\n') + '\n';
}

namespace {

// The inverse of quoted(): nothing for any other form.
std::optional<QString> unquoted(const QByteArray& raw) {
    const QByteArray text = raw.trimmed();
    if (text.size() < 2 || !text.startsWith('"') || !text.endsWith('"'))
        return std::nullopt;
    const QString inner = QString::fromUtf8(text.mid(1, text.size() - 2));
    QString out;
    for (qsizetype i = 0; i < inner.size(); ++i) {
        const QChar c = inner.at(i);
        if (c == u'"')
            return std::nullopt; // a second string: a list
        if (c != u'\\') {
            out += c;
            continue;
        }
        if (++i >= inner.size())
            return std::nullopt;
        const QChar escaped = inner.at(i);
        if (escaped == u'"' || escaped == u'\\') {
            out += escaped;
        } else if (escaped == u'x') {
            char32_t code = 0;
            qsizetype digits = 0;
            while (i + 1 < inner.size() && isHexDigit(inner.at(i + 1).unicode()) && digits < 6) {
                code = code * 16 + char32_t(QStringView(inner).mid(++i, 1).toUInt(nullptr, 16));
                ++digits;
            }
            if (digits == 0)
                return std::nullopt;
            out += QString::fromUcs4(&code, 1);
        } else {
            return std::nullopt;
        }
    }
    if (out.startsWith(QStringLiteral("@@")))
        out.remove(0, 1);
    else if (out.startsWith(u'@'))
        return std::nullopt; // a typed value
    return out;
}

} // namespace

ReadValue readValue(const QByteArray& text, const QString& key) {
    const QByteArray name = key.toLatin1();
    bool inGeneral = true;
    for (const QByteArray& line : text.split('\n')) {
        const QByteArray trimmed = line.trimmed();
        if (isSectionHeader(trimmed)) {
            inGeneral = trimmed == "[General]";
        } else if (inGeneral && trimmed.startsWith(name) &&
                   trimmed.mid(name.size()).trimmed().startsWith('=')) {
            const QByteArray raw = trimmed.mid(trimmed.indexOf('=') + 1);
            const std::optional<QString> value = unquoted(raw);
            return value ? ReadValue{true, value} : ReadValue{false, std::nullopt};
        }
    }
    return {true, std::nullopt};
}

std::optional<QByteArray> fileWithValue(const QString& path, const QString& key,
                                        const QString& value) {
    QByteArray existing;
    QFile file(path);
    if (file.exists()) {
        if (!file.open(QIODevice::ReadOnly))
            return std::nullopt; // writing now would drop whatever else the file holds
        existing = file.readAll();
    }
    return withValue(existing, key, value);
}

} // namespace brindlemark::ini
