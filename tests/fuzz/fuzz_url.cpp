// Fuzzes the URL command parser with its query items and the strict payload decoder: no input may
// crash them, what the parser makes of any text keeps the protocol's rules, and the decoder
// accepts exactly standard base64 with its padding, and then decodes as Qt does.
#include "bridge/UrlCommands.h"

#include <QRegularExpression>

#include <cstdint>
#include <cstdlib>

using namespace brindlemark;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    static const QRegularExpression scheme("^[A-Za-z][A-Za-z0-9+.-]*$");
    const std::optional<CommandUrl> url = parseCommandUrl(text);
    const UrlRequest request =
        interpretCommandUrl(text, {Template{{"id", "mine"}, {"title", "Mine"}, {"enabled", true}}});
    const Template normal = normalizedTemplate(request.record);
    // Anchored at the very end: "$" alone would also match before a final line break.
    static const QRegularExpression base64(
        QRegularExpression::anchoredPattern("[A-Za-z0-9+/]*={0,2}"));
    const std::optional<QByteArray> decoded = strictBase64Decode(text);
    if ((url && (!scheme.match(url->scheme).hasMatch() || !text.startsWith(url->scheme + ':'))) ||
        (request.kind != UrlRequest::Ignore &&
         (!url || url->scheme != QLatin1String("brindlemark"))) ||
        (request.kind > UrlRequest::MissingFolder && request.folder.isEmpty()) ||
        (request.kind == UrlRequest::CreateFromTemplate &&
         (request.record.isEmpty() || normal["title"].toString().isEmpty() ||
          normal["prefix"].toString().isEmpty())) ||
        decoded.has_value() != (text.size() % 4 == 0 && base64.match(text).hasMatch()) ||
        (decoded && *decoded != QByteArray::fromBase64(text.toLatin1())))
        std::abort();
    return 0;
}
