#pragma once

#include "bridge/CommandUrl.h"
#include "templates/Template.h"

#include <optional>

namespace brindlemark {

inline const QString CommandUrlScheme = QStringLiteral("brindlemark");

// The normalised record a payload carries: standard base64 of a JSON object. Nothing for a
// missing, undecodable or empty payload, broken JSON, or a top level that is not an object.
std::optional<Template> templateFromBase64Payload(const QString& payload);

// The record a "template" command asks for: the payload when it decodes, else a record built
// from the "title", "prefix", "suffix", "executable" items over the template named by "id",
// else that template itself. Looks ids up in `templates` (then the built-ins).
Template templateFromQueryItems(const QList<QueryItem>& items, const TemplateList& templates);

// What one command URL asks the application to do.
struct UrlRequest {
    enum Kind { Ignore, MissingFolder, Create, CreateFromTemplate, OpenTerminal, OpenITerm };
    Kind kind = Ignore;
    QString folder;  // the first "path" value, unchanged
    Template record; // for CreateFromTemplate
};

UrlRequest interpretCommandUrl(const QString& text, const TemplateList& templates);

} // namespace brindlemark
