// Fuzzes the stored templates text through loading and normalisation: any text gives a list of
// canonical templates (six members, a non-empty id, title and prefix), whose JSON text loads back
// to the same ids and titles.
#include "templates/TemplateStore.h"

#include <cstdint>
#include <cstdlib>

using namespace brindlemark;

#define CHECK(condition)                                                                           \
    if (!(condition))                                                                              \
    std::abort()

namespace {

void checkCanonical(const Template& t)
{
    CHECK(t.size() == 6);
    for (const char* key : {"id", "title", "prefix"})
        CHECK(t.value(QLatin1String(key)).isString() && !t.value(QLatin1String(key)).toString().isEmpty());
    CHECK(t.value("suffix").isString());
    CHECK(t.value("enabled").isBool() && t.value("executable").isBool());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const LoadedTemplates loaded = loadedTemplates(text);
    CHECK(!loaded.templates.isEmpty());
    for (const Template& t : loaded.templates)
        checkCanonical(t);

    const TemplateList again = loadedTemplates(templatesJSONText(loaded.templates)).templates;
    CHECK(again.size() == loaded.templates.size());
    CHECK(!loadedTemplates(templatesJSONText(loaded.templates)).storedTextUnreadable);
    for (qsizetype i = 0; i < again.size(); ++i) {
        CHECK(again[i].value("id") == loaded.templates[i].value("id"));
        CHECK(again[i].value("title") == loaded.templates[i].value("title"));
    }
    for (const Template& t : enabledTemplates(loaded.templates))
        checkCanonical(t);
    checkCanonical(templateWithIdentifier(loaded.templates, text.left(40)));
    return 0;
}
