// brindlemark: what the desktop runs for a brindlemark:// URL, and what the user starts.
//
// When Brindlemark is already running, this hands the URLs (none: "show the window") to it and
// exits, without loading any GUI library: a URL costs a process start and one socket round trip.
// Otherwise it starts the application itself, brindlemark-app, with the same arguments.
#include "Identifiers.h"
#include "app/InstanceChannel.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace brindlemark;

enum class Result { Delivered, NoInstance, Failed };

bool writeAll(int fd, const std::string& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += std::size_t(n);
    }
    return true;
}

Result forward(const std::vector<std::string>& urls)
{
    const std::string path = channel::socketPath(ApplicationBundleIdentifier);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
        return Result::NoInstance;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);

    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return Result::NoInstance;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        ::close(fd);
        return Result::NoInstance;
    }
    Result result = Result::Failed;
    if (writeAll(fd, channel::encodeMessage(urls))) {
        // The instance answers once it has handled the URLs; a minute covers a tool it runs.
        pollfd waiting {fd, POLLIN, 0};
        char answer = 0;
        if (::poll(&waiting, 1, 60'000) == 1 && ::read(fd, &answer, 1) == 1 &&
            answer == channel::Acknowledgement)
            result = Result::Delivered;
    }
    ::close(fd);
    return result;
}

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
    std::vector<std::string> urls;
    for (int i = 1; i < argc; ++i)
        if (argv[i][0] != '-')
            urls.emplace_back(argv[i]);

    switch (forward(urls)) {
    case Result::Delivered:
        return 0;
    case Result::Failed:
        std::fprintf(stderr, "brindlemark: the running Brindlemark did not answer.\n");
        return 1;
    case Result::NoInstance:
        break;
    }
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
