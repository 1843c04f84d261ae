// brindlemark: what the desktop runs for a brindlemark:// URL, and what the user starts.
//
// When Brindlemark is already running, this hands the URLs (none: "show the window") to it and
// exits, without loading any GUI library: a URL costs a process start and one socket round trip.
// Otherwise it starts the application itself, brindlemark-app, with the same arguments.
#include "Identifiers.h"
#include "bridge/LaunchArguments.h"
#include "platform/linux/InstanceChannel.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

std::string applicationPath()
{
    char self[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n <= 0)
        return "brindlemark-app";
    std::string folder(self, std::size_t(n));
    folder.erase(folder.rfind('/'));
    const std::string beside = folder + "/brindlemark-app";
    if (::access(beside.c_str(), X_OK) == 0)
        return beside;
    return folder + "/" BRINDLEMARK_LIBEXEC_FROM_BIN "/brindlemark-app";
}

} // namespace

int main(int argc, char** argv)
{
    using namespace brindlemark;
    std::vector<std::string> urls;
    for (int i = 1; i < argc; ++i)
        if (isUrlArgument(argv[i]))
            urls.emplace_back(argv[i]);

    if (const std::optional<int> handedOff = channel::handOffToInstance(ApplicationBundleIdentifier, urls))
        return *handedOff;
    const std::string application = applicationPath();
    argv[0] = const_cast<char*>(application.c_str());
    // Started for URLs (by the desktop's URL opener), Brindlemark goes on in the background and
    // this launch returns at once, as opening a URL does; started by the user, it stays in the
    // foreground.
    if (!urls.empty()) {
        const pid_t child = ::fork();
        if (child > 0)
            return 0;
        if (child == 0)
            ::setsid();
    }
    ::execv(application.c_str(), argv);
    std::fprintf(stderr, "brindlemark: cannot start %s: %s\n", application.c_str(), std::strerror(errno));
    return 1;
}
