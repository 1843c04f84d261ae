#pragma once

#include <chrono>
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
//                              the identifier and its version in parentheses, one line each
// The registry is a JSON file in the user's data folder; nothing is written anywhere else but
// beside it, where a registry that cannot be read is kept aside rather than written over.
//
// Plain C++ and POSIX, no Qt: the application runs the tool at start-up and at every opening of
// its tray menu, so it has to start as fast as the smallest program. Texts are UTF-8.
struct PluginKitResult {
    int exitCode = 0;
    std::string output; // standard output, or standard error when the exit code is not 0
    std::string notice; // standard error whatever the exit code: what was wrong with the registry
};

// How long a bundle's install or uninstall step may run before it is stopped with everything it
// started.
inline constexpr std::chrono::milliseconds BundleStepLimit = std::chrono::seconds(60);

PluginKitResult runPluginKit(const std::vector<std::string>& arguments,
                             std::chrono::milliseconds stepLimit = BundleStepLimit);

// $XDG_DATA_HOME/brindlemark/plugin-registry.json, for the tool and the application alike.
std::string pluginRegistryFilePath();

} // namespace brindlemark
