#pragma once

// The channel between a launch of Brindlemark and the instance already running for the same
// user, in plain C++ so that the small launcher needs no Qt at all.
//
// A launch sends one message: a 32-bit big-endian length of the rest, a 32-bit big-endian count
// of URLs, then each URL as a 32-bit big-endian byte length and its UTF-8 bytes. No URL means
// "reopen". The instance answers with the single byte 'k' once it has handled the message.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace brindlemark::channel {

inline constexpr char Acknowledgement = 'k';
inline constexpr std::uint32_t LargestMessage = 64u * 1024u * 1024u;

// Per user: in the private runtime folder, else in the temporary folder with the uid in the name.
inline std::string socketPath(const char* applicationIdentifier)
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

inline void appendNumber(std::string& out, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<char>((value >> shift) & 0xff));
}

inline std::string encodeMessage(const std::vector<std::string>& urls)
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

inline std::uint32_t readNumber(const char* bytes)
{
    const auto* b = reinterpret_cast<const unsigned char*>(bytes);
    return (std::uint32_t(b[0]) << 24) | (std::uint32_t(b[1]) << 16) | (std::uint32_t(b[2]) << 8) | b[3];
}

// The URLs of a message body (without its length prefix); false when it is malformed.
inline bool decodeBody(const std::string& body, std::vector<std::string>& urls)
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

} // namespace brindlemark::channel
