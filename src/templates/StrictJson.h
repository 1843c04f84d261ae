#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string_view>

// Plain C++, no Qt: JSON through nlohmann::json, for the core and the registry tool alike.
namespace brindlemark {

// The deepest nesting of arrays and objects a JSON text may have. The stored templates need two
// levels; the bound keeps a hostile text from costing more than a small stack of brackets.
inline constexpr int StrictJsonMaxDepth = 512;

// The one JSON value (RFC 8259) the text is, as nlohmann::json reads it: strings of well-formed
// UTF-8 without raw control characters, numbers and literals as the RFC writes them, nothing after
// the value. A value nlohmann::json marks as discarded (is_discarded()) when the text is none, or
// nests arrays and objects more than `maxDepth` deep. Beyond the RFC, as nlohmann::json and Qt
// read JSON, a byte-order mark before the value is skipped; as Qt reads it, a \u escape of half a
// surrogate pair without its other half is "?"; a number beyond a double's range, which
// nlohmann::json alone refuses, is 0.
nlohmann::json parsedJson(std::string_view text, int maxDepth);

// True when the bytes are exactly one JSON value (RFC 8259), before QJsonDocument, which lets
// some broken texts through (a raw tab or control character in a string, an unknown escape,
// "1." and ".5", a byte-order mark):
// - well-formed UTF-8 (no overlong forms, no encoded surrogates, nothing past U+10FFFF);
// - strings without raw characters below U+0020, escapes only \" \\ \/ \b \f \n \r \t \uXXXX
//   (an unpaired \uD800 is grammatical and passes);
// - numbers -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?, of any size, the literals true, false,
//   null; repeated member names;
// - white space only space, tab, line feed and carriage return, and nothing after the value;
// - at most StrictJsonMaxDepth levels of nesting.
// Any value may stand at the top level here; the callers ask QJsonDocument for an array or object.
bool isStrictJson(std::string_view text);

} // namespace brindlemark
