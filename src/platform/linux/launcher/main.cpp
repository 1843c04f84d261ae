// brindlemark: what the desktop runs for a brindlemark:// URL, and what the user starts.
//
// When Brindlemark is already running, this hands the URLs (none: "show the window") to it and
// exits, without loading any GUI library: a URL costs a process start and one socket round trip.
// Otherwise it starts the application itself, brindlemark-app, with the same arguments.
//
//   brindlemark [URL...]               hand the URLs to Brindlemark (none: show its window);
//                                      a URL begins with a scheme, other arguments (Qt's options
//                                      and their values, "-style Fusion") go to brindlemark-app
//   brindlemark --in FOLDER URL...     the same, each URL given FOLDER as its "path"; with
//                                      --new-file or --open-terminal, FOLDER instead of the
//                                      file manager's
//   brindlemark --new-file[=ID]        a new file (from the template ID) in the folder the file
//                                      manager shows: for a keyboard shortcut
//   brindlemark --open-terminal        a terminal at the folder the file manager shows
//   brindlemark --import-templates     a template for each file in the user's Templates folder
//   brindlemark --doctor               say what the file managers' menus need on this machine
//   brindlemark --help | --version
#include "Identifiers.h"
#include "platform/linux/InstanceChannel.h"
#include "platform/linux/launcher/CommandLine.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

std::string applicationPath() {
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

std::string besideApplication(const std::string& application, const char* name) {
    return application.substr(0, application.rfind('/') + 1) + name;
}

// Detaches the process that becomes the background instance from whoever started the launch: a
// session of its own, and none of the starter's descriptors, so that a caller reading the
// launcher's output to its end (a shortcut daemon, $(brindlemark --new-file)) is done as soon as
// the launcher is, and later messages do not turn up in the starter's terminal.
void detachFromStarter() {
    ::setsid();
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null >= 0) {
        for (int standard = 0; standard <= 2; ++standard)
            ::dup2(null, standard);
        if (null > 2)
            ::close(null);
    }
    if (::close_range(3, ~0U, 0) != 0) // kernels before 5.9: one by one
        for (int fd = 3, last = int(::sysconf(_SC_OPEN_MAX)); fd < last && fd < 65536; ++fd)
            ::close(fd);
}

} // namespace

int main(int argc, char** argv) {
    using namespace brindlemark;
    char here[PATH_MAX];
    const CommandLine line = parseCommandLine(std::vector<std::string>(argv + 1, argv + argc),
                                              ::getcwd(here, sizeof(here)) ? here : "/");
    switch (line.action) {
    case CommandLine::Action::Help:
        std::fputs(usageText(), stdout);
        return 0;
    case CommandLine::Action::Version:
        std::printf("brindlemark %s\n", ApplicationVersion);
        return 0;
    case CommandLine::Action::Misuse:
        std::fprintf(stderr, "brindlemark: %s\nTry 'brindlemark --help' for more information.\n",
                     line.problem.c_str());
        return 2;
    case CommandLine::Action::Doctor: {
        const std::string doctor = besideApplication(applicationPath(), "brindlemark-doctor");
        argv[1] = const_cast<char*>(doctor.c_str());
        ::execv(doctor.c_str(), argv + 1);
        std::fprintf(stderr, "brindlemark: cannot start %s: %s\n", doctor.c_str(),
                     std::strerror(errno));
        return 1;
    }
    case CommandLine::Action::Run:
        break;
    }

    if (const std::optional<int> handedOff =
            channel::handOffToInstance(ApplicationBundleIdentifier, line.forwarded))
        return *handedOff;

    // brindlemark-app gets the URLs, completed, the folder commands and Qt's options.
    const std::string application = applicationPath();
    std::vector<char*> arguments{const_cast<char*>(application.c_str())};
    for (const std::string& argument : line.applicationArguments)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    // Started for URLs (by the desktop's URL opener) or a keyboard shortcut, Brindlemark goes on
    // in the background and this launch returns at once, as opening a URL does; started by the
    // user, it stays in the foreground.
    if (!line.forwarded.empty()) {
        const pid_t child = ::fork();
        if (child > 0)
            return 0;
        if (child == 0)
            detachFromStarter();
    }
    ::execv(application.c_str(), arguments.data());
    std::fprintf(stderr, "brindlemark: cannot start %s: %s\n", application.c_str(),
                 std::strerror(errno));
    return 1;
}
