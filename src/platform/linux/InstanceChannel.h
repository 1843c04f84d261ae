#pragma once

// The channel between a launch of Brindlemark and the instance already running for the same
// user, in plain C++ so that the small launcher needs no Qt at all. The launcher and the
// application use the one client below.
//
// A launch sends one message: a 32-bit big-endian length of the rest, a 32-bit big-endian count
// of URLs, then each URL as a 32-bit big-endian byte length and its UTF-8 bytes. No URL means
// "reopen". The instance answers with the single byte 'k' once it has handled the message.
//
// Only this user's processes may be at either end: the socket lives in a folder only this user
// can enter, and each end checks the user id of the other before anything is sent or handled.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/un.h>
#include <vector>

namespace brindlemark::channel {

inline constexpr char Acknowledgement = 'k';
// A launch's URLs come from its command line, which the system limits to 2 MiB by default: twice
// that, with room for the lengths, is the most a message may hold.
inline constexpr std::uint32_t LargestMessage = 4u * 1024u * 1024u;

// Per user: in $XDG_RUNTIME_DIR when it is this user's folder, else in "brindlemark-UID" in the
// temporary folder, which is made if missing and kept private to this user (mode 0700). Empty,
// with the reason in `problem`, when that folder is not a folder or belongs to someone else.
std::string socketPath(const char* applicationIdentifier, std::string& problem);

// True when the process at the other end of the connected socket runs as this user.
bool peerIsThisUser(int fd);

// The socket's address; false when the path is too long for one.
bool socketAddress(const std::string& path, sockaddr_un& address);

std::string encodeMessage(const std::vector<std::string>& urls);

// A 32-bit big-endian number of the message: a length or a count.
std::uint32_t readNumber(const char* bytes);

// The URLs of a message body (without its length prefix); false when it is malformed or has
// bytes after its last URL.
bool decodeBody(std::string_view body, std::vector<std::string>& urls);

enum class Forwarding { Delivered, NoInstance, Failed, Stranger, TooLong };

// Hands the URLs to the instance listening at `socketPath` and waits up to `timeoutMilliseconds`
// for its answer, which comes once it has handled them. NoInstance when nobody listens there,
// Stranger (and nothing sent) when another user's process does, TooLong when the URLs together
// exceed a message.
Forwarding forward(const std::string& socketPath, const std::vector<std::string>& urls,
                   int timeoutMilliseconds);

// A launch's hand-off of its URLs: its exit code once the running instance has answered (0) or
// failed to (1, said on standard error); nothing when no instance listens. The wait for the answer
// is a minute, which covers a tool the instance runs.
std::optional<int> handOff(const std::string& socketPath, const std::vector<std::string>& urls);

// The hand-off for this application's own socket: also 1, said on standard error, when there is
// no safe place for the socket.
std::optional<int> handOffToInstance(const char* applicationIdentifier,
                                     const std::vector<std::string>& urls);

} // namespace brindlemark::channel
