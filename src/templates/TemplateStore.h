#pragma once

#include "templates/Template.h"

#include <QJsonArray>
#include <QStringList>

#include <optional>

namespace brindlemark {

// The key of the templates JSON text, in user defaults and in the extension's preferences.
inline const QString TemplatesJSONKey = QStringLiteral("TemplatesJSON");

// The stored text parsed strictly: nothing for a null, empty or unparsable text and for a
// top level that is not an array; otherwise the array's elements as they were parsed.
std::optional<QJsonArray> templatesFromJSONString(const QString& text);

struct LoadedTemplates {
    TemplateList templates;            // normalised; the built-ins when nothing usable was stored
    bool storedTextUnreadable = false; // text present but broken, or elements were dropped
};

// What start-up makes of the stored text. Array elements that are not objects are skipped.
LoadedTemplates loadedTemplates(const QString& storedText);

// The compact JSON text of the normalised records, in list order ("[]" for none).
QString templatesJSONText(const TemplateList& templates);

// Normalised copies of the records whose "enabled" member is true, in list order.
TemplateList enabledTemplates(const TemplateList& templates);

// The first record whose id equals `identifier` exactly, normalised; else the first built-in
// with that id; else the built-in "text" template. A null identifier matches nothing.
Template templateWithIdentifier(const TemplateList& templates, const QString& identifier);

// Writes the text atomically to every path that does not hold it already, creating missing
// folders. A path that fails does not stop the others. Returns the paths that could not be
// written.
QStringList writeTemplatesJSONFiles(const QString& text, const QStringList& paths);

// Keeps a copy of stored text that could not be read, as "Templates.json.unreadable" in
// `folder` (numbered ".1", ".2", ... when that name holds other text). Returns the backup's
// path, or an empty text when nothing could be written.
QString keepUnreadableTemplatesText(const QString& text, const QString& folder);

} // namespace brindlemark
