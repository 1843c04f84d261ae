#pragma once

#include <string>
#include <vector>

namespace brindlemark {

// The Linux stand-in for the system's plug-in registry, as a command line with the arguments
// and listing format of macOS's pluginkit:
//   -a PATH                    register the extension bundle at PATH
//   -r PATH                    forget the registration of the bundle at PATH
//   -e use|ignore -i ID        elect the extension for use (running the bundle's "install"),
//                              or stop using it (running its "uninstall")
//   -m[AD...] [-p PROTOCOL] [-i ID]
//                              list registrations: "+" (elected) or "-", four blanks,
//                              the identifier and its version in parentheses
// The registry is a JSON file in the user's data folder; nothing is written anywhere else.
//
// Plain C++ and POSIX, no Qt: the application runs the tool at start-up and at every opening of
// its tray menu, so it has to start as fast as the smallest program. Texts are UTF-8.
struct PluginKitResult {
    int exitCode = 0;
    std::string output;
};

PluginKitResult runPluginKit(const std::vector<std::string>& arguments);

// $XDG_DATA_HOME/brindlemark/plugin-registry.json
std::string pluginRegistryFilePath();

} // namespace brindlemark
