#include "platform/linux/InstanceChannel.h"

#include "bridge/TextRules.h"
#include "platform/linux/XdgFolders.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace brindlemark::channel {

namespace {

void appendNumber(std::string& out, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<char>((value >> shift) & 0xff));
}

bool writeAll(int fd, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        // A peer that goes away must not end this process with SIGPIPE.
        const ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += std::size_t(n);
    }
    return true;
}

} // namespace

namespace {

// Makes `folder` if it is missing and checks that it is a real folder of this user's that nobody
// else can enter. Another user may have made it first in the shared temporary folder: then it is
// refused, as is a link, since either would hand this user's URLs to them.
bool makePrivateFolder(const std::string& folder, std::string& problem) {
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        problem = "cannot make " + folder + ": " + std::strerror(errno);
        return false;
    }
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat info {};
    if (fd < 0 || ::fstat(fd, &info) != 0) {
        problem = folder + " is not a folder Brindlemark can use";
    } else if (info.st_uid != ::getuid()) {
        problem = folder + " belongs to another user; remove it or set XDG_RUNTIME_DIR";
    } else if ((info.st_mode & 077) != 0 && ::fchmod(fd, 0700) != 0) {
        problem = "cannot make " + folder + " private: " + std::strerror(errno);
    } else {
        ::close(fd);
        return true;
    }
    if (fd >= 0)
        ::close(fd);
    return false;
}

} // namespace

std::string socketPath(const char* applicationIdentifier, std::string& problem) {
    struct stat info {};
    const std::string runtime = absolutePathVariable("XDG_RUNTIME_DIR");
    if (!runtime.empty() && ::stat(runtime.c_str(), &info) == 0 && S_ISDIR(info.st_mode) &&
        info.st_uid == ::getuid())
        return runtime + "/" + applicationIdentifier + ".socket";
    std::string folder = withoutTrailingSlashes(absolutePathVariable("TMPDIR"));
    if (folder.empty())
        folder = "/tmp";
    folder += "/brindlemark-" + std::to_string(::getuid());
    if (!makePrivateFolder(folder, problem))
        return std::string();
    return folder + "/" + applicationIdentifier + ".socket";
}

bool peerIsThisUser(int fd) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::getuid();
}

std::string encodeMessage(const std::vector<std::string>& urls) {
    std::string body;
    appendNumber(body, static_cast<std::uint32_t>(urls.size()));
    for (const std::string& url : urls) {
        appendNumber(body, static_cast<std::uint32_t>(url.size()));
        body += url;
    }
    std::string message;
    appendNumber(message, static_cast<std::uint32_t>(body.size()));
    return message + body;
}

std::uint32_t readNumber(const char* bytes) {
    const auto* b = reinterpret_cast<const unsigned char*>(bytes);
    return (std::uint32_t(b[0]) << 24) | (std::uint32_t(b[1]) << 16) | (std::uint32_t(b[2]) << 8) |
           b[3];
}

bool socketAddress(const std::string& path, sockaddr_un& address) {
    address = sockaddr_un{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
        return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

bool decodeBody(std::string_view body, std::vector<std::string>& urls) {
    if (body.size() < 4)
        return false;
    const std::uint32_t count = readNumber(body.data());
    std::size_t at = 4;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (body.size() - at < 4)
            return false;
        const std::uint32_t length = readNumber(body.data() + at);
        at += 4;
        if (body.size() - at < length)
            return false;
        urls.emplace_back(body.substr(at, length));
        at += length;
    }
    return at == body.size();
}

Forwarding forward(const std::string& path, const std::vector<std::string>& urls,
                   int timeoutMilliseconds) {
    sockaddr_un address;
    if (!socketAddress(path, address))
        return Forwarding::NoInstance;
    const std::string message = encodeMessage(urls);
    if (message.size() - 4 > LargestMessage)
        return Forwarding::TooLong;

    // Connecting does not block: an instance busy with many connections leaves new ones waiting
    // in a queue, and a full queue is tried again until the time is up rather than waited on.
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return Forwarding::NoInstance;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
    int connected;
    while ((connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address))) !=
               0 &&
           (errno == EAGAIN || errno == EINTR) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (connected != 0) {
        const bool nobody = errno == ENOENT || errno == ECONNREFUSED || errno == ENOTDIR;
        ::close(fd);
        return nobody ? Forwarding::NoInstance : Forwarding::Failed;
    }
    if (!peerIsThisUser(fd)) {
        ::close(fd);
        return Forwarding::Stranger;
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    const timeval sending{timeoutMilliseconds / 1000, (timeoutMilliseconds % 1000) * 1000};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &sending, sizeof(sending));
    Forwarding result = Forwarding::Failed;
    if (writeAll(fd, message)) {
        pollfd waiting{fd, POLLIN, 0};
        char answer = 0;
        if (::poll(&waiting, 1, timeoutMilliseconds) == 1 && ::read(fd, &answer, 1) == 1 &&
            answer == Acknowledgement)
            result = Forwarding::Delivered;
    }
    ::close(fd);
    return result;
}

std::optional<int> handOff(const std::string& socketPath, const std::vector<std::string>& urls) {
    switch (forward(socketPath, urls, 60'000)) {
    case Forwarding::Delivered:
        return 0;
    case Forwarding::Failed:
        std::fprintf(stderr, "brindlemark: the running Brindlemark did not answer.\n");
        return 1;
    case Forwarding::Stranger:
        std::fprintf(stderr, "brindlemark: %s belongs to another user; nothing was sent to it.\n",
                     socketPath.c_str());
        return 1;
    case Forwarding::TooLong:
        std::fprintf(stderr,
                     "brindlemark: the URLs are too long to hand to the running Brindlemark.\n");
        return 1;
    case Forwarding::NoInstance:
        break;
    }
    return std::nullopt;
}

std::optional<int> handOffToInstance(const char* applicationIdentifier,
                                     const std::vector<std::string>& urls) {
    std::string problem;
    const std::string path = socketPath(applicationIdentifier, problem);
    if (path.empty()) {
        std::fprintf(stderr, "brindlemark: %s.\n", problem.c_str());
        return 1;
    }
    return handOff(path, urls);
}

} // namespace brindlemark::channel
