#include "templates/StrictJson.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <string>

namespace brindlemark {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// The length of the number (RFC 8259) that starts at `at`, or 0.
std::size_t numberLength(std::string_view text, std::size_t at) {
    const auto digitsFrom = [&](std::size_t end) {
        while (end < text.size() && isDigit(text[end]))
            ++end;
        return end;
    };
    std::size_t end = at + (text[at] == '-');
    if (end == text.size() || !isDigit(text[end]))
        return 0;
    end = text[end] == '0' ? end + 1 : digitsFrom(end); // a leading zero stands alone
    if (end + 1 < text.size() && text[end] == '.' && isDigit(text[end + 1]))
        end = digitsFrom(end + 1);
    if (end < text.size() && (text[end] == 'e' || text[end] == 'E')) {
        const bool sign = end + 1 < text.size() && (text[end + 1] == '+' || text[end + 1] == '-');
        if (end + 1 + sign < text.size() && isDigit(text[end + 1 + sign]))
            end = digitsFrom(end + 1 + sign);
    }
    return end - at;
}

// The code unit of the \uXXXX escape at `at`, or 0 when there is none.
unsigned escapedUnit(std::string_view text, std::size_t at) {
    unsigned unit = 0;
    if (at > text.size() || text.size() - at < 6 || text.substr(at, 2) != "\\u")
        return 0;
    const char* const digits = text.data() + at + 2;
    const auto [end, error] = std::from_chars(digits, digits + 4, unit, 16);
    return error == std::errc() && end == digits + 4 ? unit : 0;
}

// The text with what nlohmann::json refuses but RFC 8259 and Qt take in the form it takes, which
// changes nothing about whether the text is JSON: a \u escape of a lone half of a surrogate pair as
// \u003f ("?"), as Qt reads it; a number beyond a double's range as 0, with its sign, a fraction
// and an exponent, so that nothing after it becomes part of it.
std::string forNlohmann(std::string_view text) {
    std::string json;
    json.reserve(text.size());
    bool inString = false;
    for (std::size_t at = 0, length = 1; at < text.size(); at += length, length = 1) {
        if (inString && text[at] == '\\') {
            const unsigned unit = escapedUnit(text, at), next = escapedUnit(text, at + 6);
            const bool high = unit >= 0xD800 && unit <= 0xDBFF,
                       low = unit >= 0xDC00 && unit <= 0xDFFF;
            length = high && next >= 0xDC00 && next <= 0xDFFF ? 12 : high || low ? 6 : 2;
            json += length == 6 ? "\\u003f" : text.substr(at, length);
        } else if (!inString && (text[at] == '-' || isDigit(text[at]))) {
            length = std::max<std::size_t>(numberLength(text, at), 1);
            double value = 0;
            const bool outOfRange =
                std::from_chars(text.data() + at, text.data() + at + length, value).ec ==
                std::errc::result_out_of_range;
            json += outOfRange ? (text[at] == '-' ? "-0.0e0" : "0.0e0") : text.substr(at, length);
        } else {
            inString = inString != (text[at] == '"');
            json += text[at];
        }
    }
    return json;
}

} // namespace

nlohmann::json parsedJson(std::string_view text, int maxDepth) {
    // nlohmann::json takes a NUL byte for the end of the text, as in a C string; JSON has none.
    if (text.find('\0') != std::string_view::npos)
        return nlohmann::json::value_t::discarded;
    bool tooDeep = false;
    const auto depthBound = [&](int depth, nlohmann::json::parse_event_t event, nlohmann::json&) {
        using Event = nlohmann::json::parse_event_t;
        tooDeep = tooDeep || (depth >= maxDepth &&
                              (event == Event::array_start || event == Event::object_start));
        return !tooDeep; // beyond the bound nothing is kept
    };
    nlohmann::json value =
        nlohmann::json::parse(forNlohmann(text), depthBound, false /* exceptions */);
    return tooDeep ? nlohmann::json(nlohmann::json::value_t::discarded) : value;
}

bool isStrictJson(std::string_view text) {
    return !text.starts_with("\xEF\xBB\xBF") &&
           !parsedJson(text, StrictJsonMaxDepth).is_discarded();
}

} // namespace brindlemark
