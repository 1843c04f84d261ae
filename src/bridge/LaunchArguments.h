#pragma once

// Which arguments of a launch are for the running Brindlemark, in plain C++ for the Qt-free
// launcher too: URLs, which are every argument that is not an option (options start with "-", as
// Qt's own do), and the commands a keyboard shortcut runs for the folder the file manager shows:
//
//   --new-file         a new file from the "text" template
//   --new-file=ID      a new file from the template ID
//   --open-terminal    a terminal at that folder

#include <cstring>

namespace brindlemark {

inline bool isUrlArgument(const char* argument) { return argument[0] != '-'; }

inline bool isFolderCommandArgument(const char* argument)
{
    return std::strcmp(argument, "--new-file") == 0 || std::strncmp(argument, "--new-file=", 11) == 0 ||
           std::strcmp(argument, "--open-terminal") == 0;
}

// What the running instance is handed: the URLs and the folder commands, in their order.
inline bool isForwardedArgument(const char* argument) { return isUrlArgument(argument) || isFolderCommandArgument(argument); }

} // namespace brindlemark
