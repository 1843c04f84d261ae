#include "platform/linux/XdgFolders.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace brindlemark {

namespace xdg {

namespace {

std::string folder(const char* variable, const char* belowHome) {
    if (const std::string value = absolutePathVariable(variable); !value.empty())
        return cleanPath(value);
    const char* home = std::getenv("HOME");
    return cleanPath(std::string(home && *home ? home : "/") + "/" + belowHome);
}

} // namespace

std::string configHome() {
    return folder("XDG_CONFIG_HOME", ".config");
}

std::string dataHome() {
    return folder("XDG_DATA_HOME", ".local/share");
}

} // namespace xdg

std::string absolutePathVariable(const char* name) {
    const char* value = std::getenv(name);
    return value && *value == '/' ? value : "";
}

std::string cleanPath(std::string_view path) {
    if (path.empty())
        return {};
    const bool absolute = path.front() == '/';
    std::vector<std::string_view> segments;
    while (!path.empty()) {
        const std::size_t slash = std::min(path.find('/'), path.size());
        const std::string_view segment = path.substr(0, slash);
        path.remove_prefix(std::min(slash + 1, path.size()));
        if (segment == ".." && !segments.empty() && segments.back() != "..")
            segments.pop_back();
        else if (!segment.empty() && segment != ".")
            segments.push_back(segment);
    }
    std::string cleaned = absolute ? "/" : "";
    for (const std::string_view segment : segments)
        cleaned.append(segment).append("/");
    if (cleaned.size() > 1)
        cleaned.pop_back();
    return cleaned.empty() ? "." : cleaned;
}

} // namespace brindlemark
