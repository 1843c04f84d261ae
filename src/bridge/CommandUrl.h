#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace brindlemark {

struct QueryItem {
    QString name;
    std::optional<QString> value; // none for an item without "="

    bool operator==(const QueryItem&) const = default;
};

// A URL taken apart the way the command protocol needs it: scheme and host exactly as written
// (no case folding), query items in order with names and values percent-decoded and "+" left
// as "+". QUrl is not used because it lower-cases the host.
struct CommandUrl {
    QString scheme;
    QString host;
    QList<QueryItem> queryItems;
};

// Nothing for a text that is not a URL: no scheme, a control character, a blank outside the
// query, or a malformed percent escape. A blank in the query is read as an escaped one. A name or
// value whose escapes do not decode to UTF-8 is dropped (a name becomes "", a value becomes none).
std::optional<CommandUrl> parseCommandUrl(const QString& text);

// Standard base64 (RFC 4648 section 4) with "=" padding to a multiple of four, nothing else:
// no URL-safe alphabet, no missing padding, no whitespace. Nothing when the text breaks a rule.
std::optional<QByteArray> strictBase64Decode(const QString& text);

} // namespace brindlemark
