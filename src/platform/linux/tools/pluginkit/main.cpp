// brindlemark-pluginkit: the plug-in registry command line Brindlemark runs on Linux in place of
// macOS's pluginkit, with the same arguments and listing format. It links no Qt: the application
// runs it at every opening of its tray menu.
#include "platform/linux/PluginRegistry.h"
#include "platform/linux/XdgFolders.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    // The bundle's install and uninstall steps work in the registry's own data folder: they are
    // given it in $XDG_DATA_HOME, as an absolute path, rather than work it out again.
    ::setenv("XDG_DATA_HOME", brindlemark::xdg::dataHome().c_str(), 1);
    const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    const brindlemark::PluginKitResult result = brindlemark::runPluginKit(arguments);
    std::fputs(result.notice.c_str(), stderr);
    std::fputs(result.output.c_str(), result.exitCode == 0 ? stdout : stderr);
    return result.exitCode;
}
