#pragma once

// The channel between a launch of Brindlemark and the instance already running for the same
// user, in plain C++ so that the small launcher needs no Qt at all. The launcher and the
// application use the one client below.
//
// A launch sends one message: a 32-bit big-endian length of the rest, a 32-bit big-endian count
// of URLs, then each URL as a 32-bit big-endian byte length and its UTF-8 bytes. No URL means
// "reopen". The instance answers with the single byte 'k' once it has handled the message.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace brindlemark::channel {

inline constexpr char Acknowledgement = 'k';
inline constexpr std::uint32_t LargestMessage = 64u * 1024u * 1024u;

// Per user: in the private runtime folder, else in the temporary folder with the uid in the name.
std::string socketPath(const char* applicationIdentifier);

std::string encodeMessage(const std::vector<std::string>& urls);

// The URLs of a message body (without its length prefix); false when it is malformed or has
// bytes after its last URL.
bool decodeBody(const std::string& body, std::vector<std::string>& urls);

enum class Forwarding { Delivered, NoInstance, Failed };

// Hands the URLs to the instance listening at `socketPath` and waits up to `timeoutMilliseconds`
// for its answer, which comes once it has handled them. NoInstance when nobody listens there.
Forwarding forward(const std::string& socketPath, const std::vector<std::string>& urls,
                   int timeoutMilliseconds);

// A launch's hand-off of its URLs: its exit code once the running instance has answered (0) or
// failed to (1, said on standard error); nothing when no instance listens. The wait for the answer
// is a minute, which covers a tool the instance runs.
std::optional<int> handOff(const std::string& socketPath, const std::vector<std::string>& urls);

} // namespace brindlemark::channel
