// Fuzzes the URL command parser with its query items: no input may crash it, and what it makes
// of any text keeps the protocol's rules.
#include "bridge/UrlCommands.h"

#include <QRegularExpression>

#include <cstdint>
#include <cstdlib>

using namespace brindlemark;

#define CHECK(condition)                                                                           \
    if (!(condition))                                                                              \
    std::abort()

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    static const QRegularExpression scheme("^[A-Za-z][A-Za-z0-9+.-]*$");

    const std::optional<CommandUrl> url = parseCommandUrl(text);
    if (url) {
        CHECK(scheme.match(url->scheme).hasMatch());
        CHECK(text.startsWith(url->scheme + ':'));
    }

    const TemplateList stored{Template{{"id", "mine"}, {"title", "Mine"}, {"enabled", true}}};
    const UrlRequest request = interpretCommandUrl(text, stored);
    if (!url || url->scheme != QLatin1String("brindlemark"))
        CHECK(request.kind == UrlRequest::Ignore);
    if (request.kind != UrlRequest::Ignore && request.kind != UrlRequest::MissingFolder)
        CHECK(!request.folder.isEmpty());
    if (request.kind == UrlRequest::CreateFromTemplate) {
        CHECK(!request.record.isEmpty());
        const Template normal = normalizedTemplate(request.record);
        CHECK(normal.size() == 6);
        for (const char* key : {"id", "title", "prefix"})
            CHECK(!normal.value(QLatin1String(key)).toString().isEmpty());
    }
    return 0;
}
