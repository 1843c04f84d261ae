// Fuzzes the stored templates text through loading and normalisation: any text gives a list of
// canonical templates (six members, a non-empty id, title and prefix), whose JSON text loads back
// to the same ids and titles.
#include "templates/TemplateStore.h"

#include <cstdint>
#include <cstdlib>

using namespace brindlemark;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto canonical = [](const Template& t) {
        return t.size() == 6 && !t.value("id").toString().isEmpty() &&
               !t.value("title").toString().isEmpty() && !t.value("prefix").toString().isEmpty() &&
               t.value("suffix").isString() && t.value("enabled").isBool() &&
               t.value("executable").isBool();
    };
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const LoadedTemplates loaded = loadedTemplates(text);
    const LoadedTemplates again = loadedTemplates(templatesJSONText(loaded.templates));
    bool ok = !loaded.templates.isEmpty() && !again.storedTextUnreadable &&
              again.templates.size() == loaded.templates.size() &&
              canonical(templateWithIdentifier(loaded.templates, text.left(40)));
    for (qsizetype i = 0; ok && i < again.templates.size(); ++i)
        ok = canonical(loaded.templates[i]) &&
             again.templates[i].value("id") == loaded.templates[i].value("id") &&
             again.templates[i].value("title") == loaded.templates[i].value("title");
    if (!ok)
        std::abort();
    return 0;
}
