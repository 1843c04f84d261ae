#pragma once

#include <QStringList>

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
struct PluginKitResult {
    int exitCode = 0;
    QString output;
};

PluginKitResult runPluginKit(const QStringList& arguments);

// $XDG_DATA_HOME/brindlemark/plugin-registry.json
QString pluginRegistryFilePath();

} // namespace brindlemark
