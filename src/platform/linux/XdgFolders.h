#pragma once

#include <string>
#include <string_view>

// The XDG base folders in plain C++: the application, the Qt-free launcher and the registry tool
// find them by the same rule. Read from the environment at every call, so that a changed HOME or
// XDG variable takes effect at once.
namespace brindlemark::xdg {

// The variable when it holds an absolute path, else the default below the home folder ($HOME,
// "/" without one); cleaned as cleanPath() has it.
std::string configHome(); // $XDG_CONFIG_HOME, else ~/.config
std::string dataHome();   // $XDG_DATA_HOME, else ~/.local/share

} // namespace brindlemark::xdg

namespace brindlemark {

// The environment variable's value when it is an absolute path, else "".
std::string absolutePathVariable(const char* name);

// QDir::cleanPath: no "." segments, no repeated or trailing slashes, ".." taking away the segment
// before it; a ".." with nothing before it stays, even right below the root.
std::string cleanPath(std::string_view path);

} // namespace brindlemark
