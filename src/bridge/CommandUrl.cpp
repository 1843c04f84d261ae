#include "bridge/CommandUrl.h"

#include "bridge/TextRules.h"

#include <QStringDecoder>

namespace brindlemark {

namespace {

bool escapesAreWellFormed(QStringView text) {
    for (qsizetype i = 0; i < text.size(); ++i)
        if (text[i] == u'%' && (i + 2 >= text.size() || !isHexDigit(text[i + 1].unicode()) ||
                                !isHexDigit(text[i + 2].unicode())))
            return false;
    return true;
}

// Percent-decodes one name or value; nothing when the bytes are not UTF-8.
std::optional<QString> percentDecoded(QStringView text) {
    if (!text.contains(u'%'))
        return text.toString();
    const QByteArray bytes = QByteArray::fromPercentEncoding(text.toUtf8());
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString decoded = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return decoded;
}

bool isSchemeStart(QChar c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

bool isSchemeChar(QChar c) {
    return isSchemeStart(c) || (c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == u'.';
}

} // namespace

std::optional<CommandUrl> parseCommandUrl(const QString& text) {
    // Desktops' URL openers (KDE's among them) pass URLs on percent-decoded: a raw blank in the
    // query reads as "%20" would. Raw letters beyond ASCII read as their UTF-8 escapes anyway.
    // Anywhere else, and any other blank or control character, it is not a URL.
    const qsizetype queryStart = text.indexOf(u'?');
    const qsizetype fragmentStart = text.indexOf(u'#');
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        const bool inQuery =
            queryStart >= 0 && i > queryStart && (fragmentStart < 0 || i < fragmentStart);
        if ((c < 0x20 || c == 0x7f || c == 0x20) && !(c == 0x20 && inQuery))
            return std::nullopt;
    }
    if (!escapesAreWellFormed(text))
        return std::nullopt;

    const qsizetype colon = text.indexOf(u':');
    if (colon < 1 || !isSchemeStart(text[0]))
        return std::nullopt;
    for (qsizetype i = 1; i < colon; ++i)
        if (!isSchemeChar(text[i]))
            return std::nullopt;

    CommandUrl url;
    url.scheme = text.left(colon);
    QStringView rest = QStringView(text).mid(colon + 1);

    const qsizetype hash = rest.indexOf(u'#');
    if (hash >= 0)
        rest = rest.left(hash);
    QStringView query;
    const qsizetype question = rest.indexOf(u'?');
    const bool hasQuery = question >= 0;
    if (hasQuery) {
        query = rest.mid(question + 1);
        rest = rest.left(question);
    }

    if (rest.startsWith(u"//")) {
        QStringView authority = rest.mid(2);
        const qsizetype slash = authority.indexOf(u'/');
        if (slash >= 0)
            authority = authority.left(slash);
        const qsizetype at = authority.lastIndexOf(u'@');
        if (at >= 0)
            authority = authority.mid(at + 1);
        const qsizetype portColon = authority.lastIndexOf(u':');
        if (portColon >= 0 && !authority.startsWith(u'['))
            authority = authority.left(portColon);
        url.host = percentDecoded(authority).value_or(QString());
    }

    if (hasQuery && !query.isEmpty()) {
        for (QStringView item : query.split(u'&')) {
            const qsizetype equals = item.indexOf(u'=');
            QueryItem queryItem;
            if (equals < 0) {
                queryItem.name = percentDecoded(item).value_or(QString());
            } else {
                queryItem.name = percentDecoded(item.left(equals)).value_or(QString());
                queryItem.value = percentDecoded(item.mid(equals + 1));
            }
            url.queryItems.append(queryItem);
        }
    }
    return url;
}

std::optional<QByteArray> strictBase64Decode(const QString& text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    qsizetype padding = 0;
    if (text.endsWith(u"=="))
        padding = 2;
    else if (text.endsWith(u'='))
        padding = 1;
    for (qsizetype i = 0; i < text.size() - padding; ++i) {
        const QChar c = text[i];
        const bool inAlphabet = (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') ||
                                (c >= u'0' && c <= u'9') || c == u'+' || c == u'/';
        if (!inAlphabet)
            return std::nullopt;
    }
    const QByteArray::FromBase64Result result = QByteArray::fromBase64Encoding(
        text.toLatin1(), QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    if (result.decodingStatus != QByteArray::Base64DecodingStatus::Ok)
        return std::nullopt;
    return result.decoded;
}

} // namespace brindlemark
