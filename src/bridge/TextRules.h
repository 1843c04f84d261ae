#pragma once

// Small text rules in plain C++, header only, for the Qt code and the Qt-free tools alike: hex
// digits and a path's trailing slashes.

namespace brindlemark {

constexpr bool isHexDigit(char32_t c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The hex digit of the low four bits of `value`.
constexpr char hexDigit(unsigned value, bool upperCase = false) {
    return (upperCase ? "0123456789ABCDEF" : "0123456789abcdef")[value & 0xF];
}

// The path without trailing slashes, the root staying "/": for std::string and QString alike.
template <typename Path> Path withoutTrailingSlashes(Path path) {
    while (path.size() > 1 && path.back() == u'/')
        path.resize(path.size() - 1);
    return path;
}

} // namespace brindlemark
