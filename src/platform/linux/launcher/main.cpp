// brindlemark: what the desktop runs for a brindlemark:// URL, and what the user starts.
//
// When Brindlemark is already running, this hands the URLs (none: "show the window") to it and
// exits, without loading any GUI library: a URL costs a process start and one socket round trip.
// Otherwise it starts the application itself, brindlemark-app, with the same arguments.
//
//   brindlemark [URL...]               hand the URLs to Brindlemark (none: show its window);
//                                      a URL begins with a scheme, other arguments (Qt's options
//                                      and their values, "-style Fusion") go to brindlemark-app
//   brindlemark --in FOLDER URL...     the same, each URL given FOLDER as its "path"
//   brindlemark --new-file[=ID]        a new file (from the template ID) in the folder the file
//                                      manager shows: for a keyboard shortcut
//   brindlemark --open-terminal        a terminal at the folder the file manager shows
//   brindlemark --import-templates     a template for each file in the user's Templates folder
//   brindlemark --doctor               say what the file managers' menus need on this machine
#include "Identifiers.h"
#include "bridge/LaunchArguments.h"
#include "bridge/TextRules.h"
#include "platform/linux/InstanceChannel.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
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

// The folder as a query value: everything but unreserved characters and "/" percent-encoded.
std::string percentEncoded(const std::string& text) {
    std::string out;
    for (const unsigned char c : text) {
        if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '/') {
            out += char(c);
        } else {
            out += '%';
            out += brindlemark::hexDigit(c >> 4, true);
            out += brindlemark::hexDigit(c, true);
        }
    }
    return out;
}

} // namespace

int main(int argc, char** argv) {
    using namespace brindlemark;
    if (argc > 1 && std::strcmp(argv[1], "--doctor") == 0) {
        const std::string doctor = besideApplication(applicationPath(), "brindlemark-doctor");
        argv[1] = const_cast<char*>(doctor.c_str());
        ::execv(doctor.c_str(), argv + 1);
        std::fprintf(stderr, "brindlemark: cannot start %s: %s\n", doctor.c_str(),
                     std::strerror(errno));
        return 1;
    }

    // "--in FOLDER" gives every URL that folder as its "path": a file manager's menu entry passes
    // the folder as an argument of its own, where it cannot be written into the URL.
    auto isFolderOption = [&](int i) { return std::strcmp(argv[i], "--in") == 0 && i + 1 < argc; };
    std::string folder;
    bool inFolder = false;
    std::vector<std::string> forwarded; // the URLs and the folder commands, in order
    for (int i = 1; i < argc; ++i) {
        if (isFolderOption(i)) {
            folder = argv[++i];
            inFolder = true;
        } else if (isForwardedArgument(argv[i])) {
            forwarded.emplace_back(argv[i]);
        }
    }
    for (std::string& url : forwarded)
        if (inFolder && isUrlArgument(url.c_str()))
            url +=
                (url.find('?') == std::string::npos ? "?path=" : "&path=") + percentEncoded(folder);

    if (const std::optional<int> handedOff =
            channel::handOffToInstance(ApplicationBundleIdentifier, forwarded))
        return *handedOff;

    // brindlemark-app gets the same arguments, with the URLs completed and "--in" consumed; the
    // rest, its own options and their values, stays as it was given.
    const std::string application = applicationPath();
    std::vector<char*> arguments{const_cast<char*>(application.c_str())};
    auto item = forwarded.begin();
    for (int i = 1; i < argc; ++i) {
        if (isFolderOption(i))
            ++i;
        else
            arguments.push_back(isForwardedArgument(argv[i]) ? (item++)->data() : argv[i]);
    }
    arguments.push_back(nullptr);
    // Started for URLs (by the desktop's URL opener) or a keyboard shortcut, Brindlemark goes on
    // in the background and this launch returns at once, as opening a URL does; started by the
    // user, it stays in the foreground.
    if (!forwarded.empty()) {
        const pid_t child = ::fork();
        if (child > 0)
            return 0;
        if (child == 0)
            ::setsid();
    }
    ::execv(application.c_str(), arguments.data());
    std::fprintf(stderr, "brindlemark: cannot start %s: %s\n", application.c_str(),
                 std::strerror(errno));
    return 1;
}
