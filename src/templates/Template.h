#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

namespace brindlemark {

// A template record is a loosely typed, string-keyed map: it may come from stored JSON, a URL
// payload, URL query items or the editor. normalizedTemplate() turns any such map into the
// canonical six-member form.
using Template = QJsonObject;
using TemplateList = QList<Template>;

namespace TemplateKey {
inline const QString id = QStringLiteral("id");
inline const QString title = QStringLiteral("title");
inline const QString prefix = QStringLiteral("prefix");
inline const QString suffix = QStringLiteral("suffix");
inline const QString enabled = QStringLiteral("enabled");
inline const QString executable = QStringLiteral("executable");
} // namespace TemplateKey

// The built-in template used wherever no template, or an unknown one, is named.
inline const QString FallbackTemplateIdentifier = QStringLiteral("text");
// The title of a template that has none.
inline const QString FallbackTitle = QStringLiteral("New File");

// The suffix without one leading ".", if it has one: ".txt" gives "txt", "..md" gives ".md".
QString withoutLeadingDot(const QString& suffix);

// Any value to trimmed text; never null. Numbers give their decimal text, true/false give
// "1"/"0", a missing value or null gives "", arrays and objects their compact JSON text.
// Trimming removes tab, U+000A..U+000D, U+0085 and the Unicode separators (Zs, Zl, Zp).
QString cleanedString(const QJsonValue& value);

// Numbers by truth value; the texts 1/true/yes/on and 0/false/no/off in any case and with
// whitespace around them; anything else gives the default.
bool boolFromValue(const QJsonValue& value, bool defaultValue);

// A new upper-case version-4 UUID in its 36-character text form.
QString newTemplateIdentifier();

// The canonical form of any record: exactly the six members, never an empty id, title or
// prefix. Never changes its input.
Template normalizedTemplate(const Template& record);

// The six built-in templates, in their fixed order; the first is the fallback template.
const TemplateList& defaultTemplates();

} // namespace brindlemark
