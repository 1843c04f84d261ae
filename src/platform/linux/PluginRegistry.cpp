#include "platform/linux/PluginRegistry.h"

#include "bridge/TextRules.h"
#include "platform/linux/XdgFolders.h"
#include "templates/AtomicWrite.h"
#include "templates/StrictJson.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace brindlemark {

namespace {

constexpr std::string_view Usage =
    "usage: brindlemark-pluginkit -a PATH | -r PATH | -e use|ignore -i IDENTIFIER"
    " | -m[AD] [-p PROTOCOL] [-i IDENTIFIER]\n";

struct Registration {
    std::string identifier, path, protocol, version;
    bool elected = false;
};

// A registry holds a handful of registrations of a few hundred bytes each: a file beyond 1 MiB is
// no registry. The bound also keeps a link to an endless device from filling the memory.
constexpr std::size_t RegistrySizeLimit = std::size_t(1) << 20;

// ---- Text

// The length of the well-formed UTF-8 sequence at `at` (no overlong forms, no surrogates, nothing
// beyond U+10FFFF), or 0.
std::size_t utf8Length(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80)
        return 1;
    std::size_t length = 0;
    char32_t code = 0, smallest = 0;
    if (lead >= 0xC2 && lead <= 0xDF)
        length = 2, code = lead & 0x1F, smallest = 0x80;
    else if (lead >= 0xE0 && lead <= 0xEF)
        length = 3, code = lead & 0x0F, smallest = 0x800;
    else if (lead >= 0xF0 && lead <= 0xF4)
        length = 4, code = lead & 0x07, smallest = 0x10000;
    if (length == 0 || text.size() - at < length)
        return 0;
    for (std::size_t i = at + 1; i < at + length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
        code = code << 6 | (byte(i) & 0x3F);
    }
    return code < smallest || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF) ? 0 : length;
}

// Text from outside (arguments, the manifest, what a bundle's step prints) as Qt decoded it: each
// byte that starts no well-formed sequence becomes U+FFFD. What reaches the registry then stays
// the valid JSON that Qt reads. (nlohmann::json checks the UTF-8 of the JSON it reads, but mends
// text only while writing it, and otherwise: one U+FFFD for a whole broken sequence.)
std::string utf8(std::string_view bytes) {
    std::string text;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t length = utf8Length(bytes, at);
        text += length ? bytes.substr(at, length) : "\xEF\xBF\xBD";
        at += length ? length : 1;
    }
    return text;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

bool hasControl(std::string_view text) {
    return std::any_of(text.begin(), text.end(), isControl);
}

// Text as the listing and the messages show it: control characters as \xHH, so that whatever a
// registry holds, a registration is one line and cannot pass for another.
std::string shown(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (isControl(c))
            out.append("\\x").append(1, hexDigit(byte >> 4)).append(1, hexDigit(byte));
        else
            out += c;
    }
    return out;
}

std::string errorText(int error) {
    return std::strerror(error);
}

enum class FileRead { Read, Absent, Unreadable, Failed };

// Reads a regular file of at most RegistrySizeLimit bytes, and nothing else: a pipe would hold the
// tool until someone writes to it, a device may never end, and either would hold the application
// with it. The file is opened without waiting, so that a pipe put in its place after the check
// opens at once too, and is checked again once open. Failed: the system had no room to read it now
// (descriptors, memory), which says nothing about the file.
FileRead readBoundedFile(const std::string& path, std::string& bytes, std::string& problem) {
    constexpr std::size_t limit = RegistrySizeLimit;
    const auto failed = [&](int error) {
        problem = errorText(error);
        if (error == ENOENT)
            return FileRead::Absent;
        return error == EMFILE || error == ENFILE || error == ENOMEM || error == EINTR
                   ? FileRead::Failed
                   : FileRead::Unreadable;
    };
    const auto check = [&](const struct stat& info) {
        if (S_ISREG(info.st_mode) && std::size_t(info.st_size) <= limit)
            return FileRead::Read;
        problem = S_ISREG(info.st_mode) ? "larger than 1 MiB" : "not a regular file";
        return FileRead::Unreadable;
    };
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return failed(errno);
    if (check(info) != FileRead::Read)
        return FileRead::Unreadable;
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return failed(errno);
    FileRead result = ::fstat(fd, &info) == 0 ? check(info) : failed(errno);
    // A file may grow while it is read: never more than the limit and one byte.
    std::size_t got = 0;
    bytes.resize(result == FileRead::Read ? std::size_t(info.st_size) + 1 : 0);
    while (result == FileRead::Read) {
        if (got == bytes.size()) {
            if (got > limit) {
                problem = "larger than 1 MiB";
                result = FileRead::Unreadable;
                break;
            }
            bytes.resize(std::min(got * 2, limit + 1));
        }
        const ssize_t n = ::read(fd, bytes.data() + got, bytes.size() - got);
        if (n == 0)
            break;
        if (n > 0)
            got += std::size_t(n);
        else if (errno != EINTR)
            result = failed(errno);
    }
    bytes.resize(got);
    ::close(fd);
    return result;
}

// ---- Paths, with Qt's rules, since registrations made by earlier versions hold paths in its form

std::string currentFolder() {
    std::string folder(256, '\0');
    while (::getcwd(folder.data(), folder.size()) == nullptr) {
        if (errno != ERANGE)
            return {};
        folder.resize(folder.size() * 2);
    }
    folder.resize(folder.find('\0'));
    return folder;
}

// QFileInfo::absoluteFilePath: relative to the current folder, cleaned, links left as they are;
// a trailing slash stays.
std::string absoluteFilePath(const std::string& path) {
    if (path.empty())
        return {};
    std::string joined = path.front() == '/' ? std::string() : currentFolder();
    if (path != ".") {
        if (!joined.empty() && joined.back() != '/')
            joined += '/';
        joined += path;
    }
    if (joined == "/")
        return joined;
    return utf8(cleanPath(joined) + (joined.back() == '/' ? "/" : ""));
}

bool isFile(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// ---- The registry file: the JSON array of objects that Qt's QJsonDocument wrote and reads

// Qt's nesting limit, which the registry read before nlohmann::json: deeper texts are broken.
constexpr int RegistryMaxDepth = 1024;

// Reads exactly what a registration needs from the JSON array that every earlier version wrote
// (QJsonDocument's indented text, then the same text written here); members it does not know,
// values of other types and entries that are not objects are skipped. As in Qt, a byte-order mark
// is skipped, the last of repeated members counts, and a lone half of a surrogate pair reads as
// "?". Unlike Qt, a raw control character or an unknown escape in a string makes the text broken:
// no version wrote either. Nothing for a text that is not one JSON array.
std::optional<std::vector<Registration>> registrationsIn(std::string_view text) {
    const nlohmann::json array = parsedJson(text, RegistryMaxDepth);
    if (!array.is_array())
        return std::nullopt;
    std::vector<Registration> read;
    for (const nlohmann::json& entry : array) {
        const auto member = [&](const char* key) {
            const auto found = entry.find(key); // none when the entry is no object
            return found == entry.end() ? nlohmann::json() : *found;
        };
        const auto text = [&](const char* key) {
            const nlohmann::json value = member(key);
            return value.is_string() ? value.get<std::string>() : std::string();
        };
        Registration r{text("identifier"), text("path"), text("protocol"), text("version"),
                       member("elected") == true};
        if (!r.identifier.empty())
            read.push_back(std::move(r));
    }
    return read;
}

// The registry as stored, or why it could not be read.
struct StoredRegistry {
    std::vector<Registration> registrations;
    FileRead state = FileRead::Absent;
    std::string problem;
};

StoredRegistry readRegistry() {
    StoredRegistry stored;
    std::string text;
    stored.state = readBoundedFile(pluginRegistryFilePath(), text, stored.problem);
    if (stored.state != FileRead::Read)
        return stored;
    if (auto read = registrationsIn(text)) {
        stored.registrations = std::move(*read);
    } else {
        stored.state = FileRead::Unreadable;
        stored.problem = "not a JSON array of registrations";
    }
    return stored;
}

std::string cannotRead(const StoredRegistry& stored) {
    return "pluginkit: the registry " + shown(pluginRegistryFilePath()) + " could not be read (" +
           stored.problem + ")";
}

// For the commands that write nothing: the registry stays as it is, whatever it holds.
std::string leftAsItIs(const StoredRegistry& stored) {
    const bool read = stored.state == FileRead::Read || stored.state == FileRead::Absent;
    return read ? std::string() : cannotRead(stored) + "; it is left as it is\n";
}

// Moves an unreadable registry out of the way, as it is (a link or a pipe too: it is never opened
// for writing), to the first of ".unreadable", ".unreadable.1", ... beside it that is free or holds
// the same bytes: an earlier backup of other bytes is never replaced. The backup's name, or "" and
// the reason.
std::string keepAside(const std::string& registry, std::string& problem) {
    struct stat info {};
    std::string bytes, held, unused;
    const bool comparable = ::lstat(registry.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
                            readBoundedFile(registry, bytes, unused) == FileRead::Read;
    int error = 0;
    for (int n = 0; n < 1000; ++n) {
        const std::string backup =
            registry + ".unreadable" + (n == 0 ? "" : "." + std::to_string(n));
        struct stat existing {};
        if (::lstat(backup.c_str(), &existing) != 0) {
            if (errno != ENOENT) {
                error = errno;
                break;
            }
            if (::renameat2(AT_FDCWD, registry.c_str(), AT_FDCWD, backup.c_str(),
                            RENAME_NOREPLACE) == 0)
                return backup;
            if (errno == EEXIST) // taken meanwhile
                continue;
            // A file system without a rename that never replaces: the name was free a moment ago.
            if ((errno == EINVAL || errno == ENOSYS) &&
                ::rename(registry.c_str(), backup.c_str()) == 0)
                return backup;
            error = errno;
            break;
        }
        if (comparable && S_ISREG(existing.st_mode) &&
            readBoundedFile(backup, held, unused) == FileRead::Read && held == bytes) {
            if (::rename(registry.c_str(), backup.c_str()) == 0) // the same bytes: kept either way
                return backup;
            error = errno;
            break;
        }
    }
    problem = error != 0 ? errorText(error) : "no free backup name";
    return {};
}

// In QJsonDocument's indented form, as every earlier version wrote it: members in its order (by
// name), four blanks a level, control characters escaped, a line break at the end, and an empty
// list on two lines.
bool writeRegistry(const std::vector<Registration>& registrations) {
    nlohmann::json array = nlohmann::json::array();
    for (const Registration& r : registrations)
        array.push_back({{"elected", r.elected},
                         {"identifier", r.identifier},
                         {"path", r.path},
                         {"protocol", r.protocol},
                         {"version", r.version}});
    // The texts are UTF-8 (read as JSON, or made so by utf8()): the replacement never happens.
    const std::string json =
        registrations.empty() ? "[\n]"
                              : array.dump(4, ' ', false, nlohmann::json::error_handler_t::replace);
    return replaceFileAtomically(pluginRegistryFilePath(), json + '\n');
}

// ---- The bundle's manifest

struct Manifest {
    std::string identifier, protocol, version;
};

// The [Extension] group of the bundle's Info.ini, as QSettings reads such plain values: blanks
// around keys and values go, and so do the double quotes around a value; a later key wins.
Manifest readManifest(const std::string& path) {
    Manifest manifest;
    std::string text, unused;
    if (readBoundedFile(path, text, unused) != FileRead::Read)
        return manifest;
    std::string_view rest = text;
    if (rest.starts_with("\xEF\xBB\xBF"))
        rest.remove_prefix(3);
    std::string_view group;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = trimmed(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        const std::size_t equals = line.find('=');
        if (line.starts_with('[') && line.ends_with(']')) {
            group = trimmed(line.substr(1, line.size() - 2));
        } else if (group == "Extension" && equals != std::string_view::npos &&
                   !line.starts_with(';') && !line.starts_with('#')) {
            const std::string_view key = trimmed(line.substr(0, equals));
            std::string_view value = trimmed(line.substr(equals + 1));
            if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
                value = value.substr(1, value.size() - 2);
            std::string* field = key == "Identifier" ? &manifest.identifier
                                 : key == "Protocol" ? &manifest.protocol
                                 : key == "Version"  ? &manifest.version
                                                     : nullptr;
            if (field)
                *field = utf8(value);
        }
    }
    return manifest;
}

// ---- The commands

PluginKitResult failure(std::string message, std::string notice = {}) {
    return {1, std::move(message) + '\n', std::move(notice)};
}

// Writes the registrations. A registry that could not be read is first moved aside, never written
// over: what it held may be mended by hand.
PluginKitResult written(const StoredRegistry& stored,
                        const std::vector<Registration>& registrations, std::string output = {}) {
    std::string notice;
    if (stored.state == FileRead::Failed)
        return failure(output + cannotRead(stored) + "; nothing was changed");
    if (stored.state == FileRead::Unreadable) {
        std::string problem;
        const std::string backup = keepAside(pluginRegistryFilePath(), problem);
        if (backup.empty())
            return failure(output + cannotRead(stored) + " nor kept aside (" + problem +
                           "); nothing was changed");
        notice = cannotRead(stored) + "; it is kept as " + shown(backup) +
                 " and a new registry is started\n";
    }
    if (!writeRegistry(registrations))
        return failure(output + "pluginkit: cannot write the registry " +
                           shown(pluginRegistryFilePath()),
                       notice);
    return {0, std::move(output), std::move(notice)};
}

PluginKitResult add(const std::string& bundlePath) {
    const std::string path = absoluteFilePath(bundlePath);
    const std::string info = path + "/Info.ini";
    if (!isFile(info))
        return failure("pluginkit: " + shown(path) +
                       " is not an extension bundle (it has no Info.ini)");
    Manifest manifest = readManifest(info);
    Registration added{std::move(manifest.identifier), path, std::move(manifest.protocol),
                       std::move(manifest.version)};
    if (added.identifier.empty() || added.protocol.empty())
        return failure("pluginkit: " + shown(info) + " names no identifier or protocol");
    // What the registry holds is listed one registration a line: nothing that could break one.
    for (const auto& [field, text] : {std::pair{"identifier", &added.identifier},
                                      {"protocol", &added.protocol},
                                      {"version", &added.version},
                                      {"path", &added.path}})
        if (hasControl(*text))
            return failure("pluginkit: cannot register " + shown(path) + ": its " + field + " \"" +
                           shown(*text) + "\" holds a control character");

    StoredRegistry stored = readRegistry();
    std::vector<Registration>& registrations = stored.registrations;
    const auto same =
        std::find_if(registrations.begin(), registrations.end(),
                     [&](const Registration& r) { return r.identifier == added.identifier; });
    if (same != registrations.end()) {
        added.elected = same->elected; // registering again keeps the user's choice
        *same = std::move(added);
    } else {
        registrations.push_back(std::move(added));
    }
    return written(stored, registrations);
}

PluginKitResult remove(const std::string& bundlePath) {
    const std::string path = absoluteFilePath(bundlePath);
    StoredRegistry stored = readRegistry();
    if (std::erase_if(stored.registrations,
                      [&](const Registration& r) { return r.path == path; }) == 0)
        return failure("pluginkit: no plug-in is registered at " + shown(path), leftAsItIs(stored));
    return written(stored, stored.registrations);
}

// Reads the child's merged output until it ends or `deadline` passes; false when it did not end.
// The child's end, not the pipe's, is what is waited for: something it started in the
// background may hold the pipe open long after.
bool collect(pid_t child, int pipe, std::chrono::steady_clock::time_point deadline,
             std::string& output, int& status) {
    // A pidfd becomes readable when the child ends; without one (an old kernel), short naps.
#ifdef SYS_pidfd_open
    const int ended = int(::syscall(SYS_pidfd_open, child, 0));
#else
    const int ended = -1;
#endif
    pollfd watched[2] = {{pipe, POLLIN, 0}, {ended, POLLIN, 0}};
    bool finished = false;
    char buffer[16384];
    for (;;) {
        if (::waitpid(child, &status, WNOHANG) == child) {
            finished = true;
            break;
        }
        using std::chrono::milliseconds;
        const auto left =
            std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        if (left <= 0)
            break;
        const int ready =
            ::poll(watched, 2, int(ended >= 0 ? left : std::min<decltype(left)>(left, 10)));
        if (ready < 0 && errno != EINTR)
            break;
        if (ready > 0 && watched[0].revents != 0) {
            const ssize_t n = ::read(pipe, buffer, sizeof buffer);
            if (n > 0)
                output.append(buffer, std::size_t(n));
            else if (n == 0 || errno != EINTR)
                watched[0].fd = -1; // the pipe's end: only the child's is left to wait for
        }
    }
    if (finished && watched[0].fd >= 0 && ::fcntl(pipe, F_SETFL, O_NONBLOCK) == 0) {
        ssize_t n;
        while ((n = ::read(pipe, buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR))
            output.append(buffer, std::size_t(std::max<ssize_t>(n, 0)));
    }
    if (ended >= 0)
        ::close(ended);
    return finished;
}

// The process group of the bundle's step while it runs: the tool, told to stop (at the end of a
// terminal, by Ctrl+C, by SIGTERM), takes the step and all it started along rather than leave
// them running on their own.
volatile sig_atomic_t runningStepGroup = 0;
constexpr int StopSignals[] = {SIGHUP, SIGINT, SIGTERM};

extern "C" void stopStepAndEnd(int signal) {
    if (runningStepGroup > 0)
        ::kill(-pid_t(runningStepGroup), SIGKILL);
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

std::string inSeconds(std::chrono::milliseconds time) {
    char text[32];
    const auto [end, error] = std::to_chars(text, text + sizeof text, double(time.count()) / 1000);
    return error == std::errc() ? std::string(text, end) : std::to_string(time.count() / 1000);
}

struct StepOutcome {
    bool endedWell = true;
    std::string output; // what it said; when it did not end well, followed by why
};

// Runs the bundle's own install or uninstall step, if it has one, in a process group of its own,
// which goes whole at the limit: the step may start programs of its own, and none may outlive it.
StepOutcome runBundleStep(const Registration& r, const char* step,
                          std::chrono::milliseconds limit) {
    std::string program = r.path + '/' + step;
    // A path from the registry may hold a NUL ("\u0000"), which would cut it short to another
    // program.
    if (program.find('\0') != std::string::npos || ::access(program.c_str(), X_OK) != 0)
        return {};
    const auto notWell = [&](std::string said, const std::string& why) {
        said = utf8(said);
        if (!said.empty() && !said.ends_with('\n'))
            said += '\n';
        return StepOutcome{false, said + "pluginkit: " + shown(program) + " " + why +
                                      "; the registry is left as it was\n"};
    };
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        return notWell({}, "could not be started (" + errorText(errno) + ")");

    // The stop signals wait until the step's group is known, and the step starts with them as
    // they were.
    sigset_t stopSignals, before;
    ::sigemptyset(&stopSignals);
    for (const int signal : StopSignals)
        ::sigaddset(&stopSignals, signal);
    ::sigprocmask(SIG_BLOCK, &stopSignals, &before);
    struct sigaction stopping = {};
    struct sigaction previous[std::size(StopSignals)] = {};
    stopping.sa_handler = stopStepAndEnd;
    for (std::size_t i = 0; i < std::size(StopSignals); ++i)
        ::sigaction(StopSignals[i], &stopping, &previous[i]);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    ::posix_spawnattr_setpgroup(&attributes, 0);
    ::posix_spawnattr_setsigmask(&attributes, &before);
    // Its output and errors in one pipe, in the order written; nothing to read on its input.
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    ::posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
    char* argv[] = {program.data(), nullptr};
    pid_t child = 0;
    const int error = ::posix_spawn(&child, program.c_str(), &actions, &attributes, argv, environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
    ::close(fds[1]);
    runningStepGroup = error == 0 ? child : 0;
    ::sigprocmask(SIG_SETMASK, &before, nullptr);

    std::string output;
    int status = 0;
    const bool finished =
        error == 0 &&
        collect(child, fds[0], std::chrono::steady_clock::now() + limit, output, status);
    ::close(fds[0]);
    if (error == 0 && !finished) {
        ::kill(-child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }
    runningStepGroup = 0;
    for (std::size_t i = 0; i < std::size(StopSignals); ++i)
        ::sigaction(StopSignals[i], &previous[i], nullptr);

    if (error != 0)
        return notWell({}, "could not be started (" + errorText(error) + ")");
    if (!finished)
        return notWell(output,
                       "did not end within " + inSeconds(limit) + " seconds and was stopped");
    if (WIFSIGNALED(status))
        return notWell(output, "was ended by signal " + std::to_string(WTERMSIG(status)));
    if (WEXITSTATUS(status) != 0)
        return notWell(output, "failed with exit status " + std::to_string(WEXITSTATUS(status)));
    return {true, utf8(output)};
}

// The registry follows what the bundle's step did: an extension counts as elected once its install
// step has ended well, and as no longer elected once its uninstall step has. A step that fails or
// is stopped leaves the registry as it was, so that it never claims menus that are not there (or
// forgets ones that are).
PluginKitResult elect(const std::string& choice, const std::string& identifier,
                      std::chrono::milliseconds limit) {
    const bool use = choice == "use";
    const auto named = [&](const Registration& r) { return r.identifier == identifier; };
    const StoredRegistry before = readRegistry();
    const auto found =
        std::find_if(before.registrations.begin(), before.registrations.end(), named);
    if (found == before.registrations.end())
        return failure("pluginkit: no plug-in is registered as " + shown(identifier),
                       leftAsItIs(before));
    StepOutcome step = runBundleStep(*found, use ? "install" : "uninstall", limit);
    if (!step.endedWell)
        return {1, std::move(step.output), {}};
    // The registry as it is now: a step takes a while, and others may register meanwhile.
    StoredRegistry now = readRegistry();
    const auto still = std::find_if(now.registrations.begin(), now.registrations.end(), named);
    if (still == now.registrations.end())
        return failure(step.output + "pluginkit: no plug-in is registered as " + shown(identifier),
                       leftAsItIs(now));
    still->elected = use;
    return written(now, now.registrations, std::move(step.output));
}

PluginKitResult list(const std::string& protocol, const std::string& identifier) {
    const StoredRegistry stored = readRegistry();
    PluginKitResult result{0, {}, leftAsItIs(stored)};
    for (const Registration& r : stored.registrations) {
        if ((!protocol.empty() && r.protocol != protocol) ||
            (!identifier.empty() && r.identifier != identifier))
            continue;
        result.output.append(r.elected ? "+" : "-").append("    ").append(shown(r.identifier));
        result.output.append("(").append(shown(r.version)).append(")\n");
    }
    return result;
}

// -m with optional letters of its own: -mAD.
bool isMatchFlag(std::string_view argument) {
    return argument.starts_with("-m") &&
           argument.find_first_not_of("ADv", 2) == std::string_view::npos;
}

} // namespace

std::string pluginRegistryFilePath() {
    return xdg::dataHome() + "/brindlemark/plugin-registry.json";
}

PluginKitResult runPluginKit(const std::vector<std::string>& given,
                             std::chrono::milliseconds stepLimit) {
    std::vector<std::string> arguments;
    for (const std::string& argument : given)
        arguments.push_back(utf8(argument));
    const std::string first = arguments.empty() ? std::string() : arguments[0];
    if (arguments.size() == 2 && first == "-a")
        return add(arguments[1]);
    if (arguments.size() == 2 && first == "-r")
        return remove(arguments[1]);
    if (arguments.size() == 4 && first == "-e" && arguments[2] == "-i" &&
        (arguments[1] == "use" || arguments[1] == "ignore"))
        return elect(arguments[1], arguments[3], stepLimit);

    // -m, then -p PROTOCOL and -i IDENTIFIER in any order.
    const PluginKitResult usage{64, std::string(Usage), {}};
    if (!isMatchFlag(first))
        return usage;
    std::string protocol, identifier;
    for (std::size_t i = 1; i < arguments.size(); i += 2) {
        if (i + 1 >= arguments.size())
            return usage;
        if (arguments[i] == "-p")
            protocol = arguments[i + 1];
        else if (arguments[i] == "-i")
            identifier = arguments[i + 1];
        else
            return usage;
    }
    return list(protocol, identifier);
}

} // namespace brindlemark
