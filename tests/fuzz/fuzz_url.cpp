// Fuzzes the URL command parser with its query items: no input may crash it, and what it makes
// of any text keeps the protocol's rules.
#include "bridge/UrlCommands.h"

#include <QRegularExpression>

#include <cstdint>
#include <cstdlib>

using namespace brindlemark;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    static const QRegularExpression scheme("^[A-Za-z][A-Za-z0-9+.-]*$");
    const std::optional<CommandUrl> url = parseCommandUrl(text);
    const UrlRequest request = interpretCommandUrl(text, {Template{{"id", "mine"}, {"title", "Mine"}, {"enabled", true}}});
    const Template normal = normalizedTemplate(request.record);
    const bool ok = (!url || (scheme.match(url->scheme).hasMatch() && text.startsWith(url->scheme + ':'))) &&
                    (request.kind == UrlRequest::Ignore || (url && url->scheme == QLatin1String("brindlemark"))) &&
                    (request.kind <= UrlRequest::MissingFolder || !request.folder.isEmpty()) &&
                    (request.kind != UrlRequest::CreateFromTemplate ||
                     (!request.record.isEmpty() && !normal.value("title").toString().isEmpty() && !normal.value("prefix").toString().isEmpty()));
    if (!ok)
        std::abort();
    return 0;
}
