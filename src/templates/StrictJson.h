#pragma once

#include <QByteArrayView>

namespace brindlemark {

// The deepest nesting of arrays and objects a JSON text may have. The stored templates need two
// levels; the bound keeps a hostile text from costing more than a small stack of brackets.
inline constexpr int StrictJsonMaxDepth = 512;

// True when the bytes are exactly one JSON value (RFC 8259), before QJsonDocument, which lets
// some broken texts through (a raw tab or control character in a string, an unknown escape,
// "1." and ".5", a byte-order mark):
// - well-formed UTF-8 (no overlong forms, no encoded surrogates, nothing past U+10FFFF);
// - strings without raw characters below U+0020, escapes only \" \\ \/ \b \f \n \r \t \uXXXX
//   (an unpaired \uD800 is grammatical and passes);
// - numbers -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?, the literals true, false, null;
// - white space only space, tab, line feed and carriage return, and nothing after the value;
// - at most StrictJsonMaxDepth levels of nesting.
// Any value may stand at the top level here; the callers ask QJsonDocument for an array or object.
bool isStrictJson(QByteArrayView text);

} // namespace brindlemark
