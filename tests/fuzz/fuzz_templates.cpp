// Fuzzes the stored templates text through loading and normalisation: any text gives a list of
// canonical templates (six members, a non-empty id, title and prefix), whose JSON text loads back
// to the same ids and titles.
#include "templates/TemplateStore.h"

#include <cstdint>
#include <cstdlib>

using namespace brindlemark;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto canonical = [](const Template& t) {
        return t.size() == 6 && !t["id"].toString().isEmpty() && !t["title"].toString().isEmpty() &&
               !t["prefix"].toString().isEmpty() && t["suffix"].isString() &&
               t["enabled"].isBool() && t["executable"].isBool();
    };
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const TemplateList loaded = loadedTemplates(text).templates;
    const LoadedTemplates again = loadedTemplates(templatesJSONText(loaded));
    if (loaded.isEmpty() || again.storedTextUnreadable || again.templates.size() != loaded.size() ||
        !canonical(templateWithIdentifier(loaded, text.left(40))))
        std::abort();
    for (qsizetype i = 0; i < loaded.size(); ++i)
        if (!canonical(loaded[i]) || again.templates[i]["id"] != loaded[i]["id"] ||
            again.templates[i]["title"] != loaded[i]["title"])
            std::abort();
    return 0;
}
