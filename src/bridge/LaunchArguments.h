#pragma once

// Which arguments of a launch are for the running Brindlemark, in plain C++ for the Qt-free
// launcher too: URLs, which are the arguments that begin with a scheme ("brindlemark:", any
// other scheme too: the running instance ignores those), the commands a keyboard shortcut
// runs for the folder the file manager shows, and the one of a shell:
//
//   --new-file          a new file from the "text" template
//   --new-file=ID       a new file from the template ID
//   --open-terminal     a terminal at that folder
//   --import-templates  a template for each file in the user's Templates folder
//   --background        nothing but starting in the tray, without the window: the login's launch

#include <cstring>

namespace brindlemark {

// A scheme is a letter, then letters, digits, "+", "-" or ".", ended by ":". Everything else
// stays with brindlemark-app as it was given: its own options and their values ("-style Fusion",
// "-platform xcb"). "C:\x" and "a:b" begin with a scheme and count as URLs; a bare Windows
// path does not occur here.
inline bool isUrlArgument(const char* argument) {
    auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    if (!letter(argument[0]))
        return false;
    const char* c = argument + 1;
    while (letter(*c) || (*c >= '0' && *c <= '9') || *c == '+' || *c == '-' || *c == '.')
        ++c;
    return *c == ':';
}

inline bool isFolderCommandArgument(const char* argument) {
    return std::strcmp(argument, "--new-file") == 0 ||
           std::strncmp(argument, "--new-file=", 11) == 0 ||
           std::strcmp(argument, "--open-terminal") == 0 ||
           std::strcmp(argument, "--import-templates") == 0 ||
           std::strcmp(argument, "--background") == 0;
}

// What the running instance is handed: the URLs and the folder commands, in their order.
inline bool isForwardedArgument(const char* argument) {
    return isUrlArgument(argument) || isFolderCommandArgument(argument);
}

} // namespace brindlemark
