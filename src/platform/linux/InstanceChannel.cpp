#include "platform/linux/InstanceChannel.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace brindlemark::channel {

namespace {

void appendNumber(std::string& out, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<char>((value >> shift) & 0xff));
}

std::uint32_t readNumber(const char* bytes)
{
    const auto* b = reinterpret_cast<const unsigned char*>(bytes);
    return (std::uint32_t(b[0]) << 24) | (std::uint32_t(b[1]) << 16) | (std::uint32_t(b[2]) << 8) | b[3];
}

bool writeAll(int fd, const std::string& bytes)
{
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

std::string socketPath(const char* applicationIdentifier)
{
    struct stat info {};
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime && *runtime == '/' && ::stat(runtime, &info) == 0 && S_ISDIR(info.st_mode))
        return std::string(runtime) + "/" + applicationIdentifier + ".socket";
    const char* temporary = std::getenv("TMPDIR");
    std::string folder = temporary && *temporary == '/' ? temporary : "/tmp";
    while (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    return folder + "/" + applicationIdentifier + "-" + std::to_string(::getuid()) + ".socket";
}

std::string encodeMessage(const std::vector<std::string>& urls)
{
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

bool decodeBody(const std::string& body, std::vector<std::string>& urls)
{
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
        urls.emplace_back(body, at, length);
        at += length;
    }
    return at == body.size();
}

Forwarding forward(const std::string& path, const std::vector<std::string>& urls, int timeoutMilliseconds)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
        return Forwarding::NoInstance;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);

    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return Forwarding::NoInstance;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        ::close(fd);
        return Forwarding::NoInstance;
    }
    Forwarding result = Forwarding::Failed;
    if (writeAll(fd, encodeMessage(urls))) {
        pollfd waiting {fd, POLLIN, 0};
        char answer = 0;
        if (::poll(&waiting, 1, timeoutMilliseconds) == 1 && ::read(fd, &answer, 1) == 1 &&
            answer == Acknowledgement)
            result = Forwarding::Delivered;
    }
    ::close(fd);
    return result;
}

std::optional<int> handOff(const std::string& socketPath, const std::vector<std::string>& urls)
{
    switch (forward(socketPath, urls, 60'000)) {
    case Forwarding::Delivered:
        return 0;
    case Forwarding::Failed:
        std::fprintf(stderr, "brindlemark: the running Brindlemark did not answer.\n");
        return 1;
    case Forwarding::NoInstance:
        break;
    }
    return std::nullopt;
}

} // namespace brindlemark::channel
