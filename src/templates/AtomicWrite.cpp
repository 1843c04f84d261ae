#include "templates/AtomicWrite.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace brindlemark {

namespace {

// The process's file-creation mask. Reading it means setting it for a moment, so it is read before
// any thread of a batch starts: a folder one of them made meanwhile would be open to everyone.
mode_t creationMask() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

mode_t modeForNewFile(const std::string& target, mode_t mask) {
    struct stat existing {};
    if (::stat(target.c_str(), &existing) == 0)
        return existing.st_mode & 07777; // keep the mode the user gave the file
    return 0666 & ~mask;
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// A new file's name while it is written: hidden, and ending in mkstemp's six random letters, so
// that one left by a killed writer is told apart from any file of the user's.
constexpr std::string_view TemporaryMark = ".tmp-";
constexpr std::size_t RandomLetters = 6;

std::string temporaryNameFor(const std::string& target) {
    return folderOf(target) + "/." + nameOf(target) + std::string(TemporaryMark) +
           std::string(RandomLetters, 'X');
}

// The temporary name of a write of some file: "." NAME ".tmp-" and the six random letters.
bool isTemporaryName(const std::string& name) {
    const std::size_t stem = name.size() - std::min(name.size(), RandomLetters);
    if (name.size() < 2 + TemporaryMark.size() + RandomLetters || name[0] != '.' ||
        name.compare(stem - TemporaryMark.size(), TemporaryMark.size(), TemporaryMark) != 0)
        return false;
    for (std::size_t i = stem; i < name.size(); ++i)
        if (!std::isalnum(static_cast<unsigned char>(name[i])))
            return false;
    return true;
}

bool isTemporaryNameFor(const std::string& name, const std::string& target) {
    const std::string stem = "." + nameOf(target) + std::string(TemporaryMark);
    return name.size() == stem.size() + RandomLetters && name.compare(0, stem.size(), stem) == 0 &&
           isTemporaryName(name);
}

// Removes the folder's leftovers that `isLeftover` names: only plain files whose writer is gone
// (a writer still at work holds its lock). Returns how many.
int removeUnlockedTemporaries(const std::string& folder,
                              const std::function<bool(const std::string&)>& isLeftover) {
    DIR* listing = ::opendir(folder.c_str());
    if (!listing)
        return 0;
    int removed = 0;
    while (const dirent* entry = ::readdir(listing)) {
        const std::string name = entry->d_name;
        if (!isLeftover(name))
            continue;
        const std::string leftover = folder + "/" + name;
        const int fd = ::open(leftover.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0)
            continue;
        struct stat info {};
        if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) &&
            ::flock(fd, LOCK_EX | LOCK_NB) == 0 && ::unlink(leftover.c_str()) == 0)
            ++removed;
        ::close(fd);
    }
    ::closedir(listing);
    return removed;
}

// The file a chain of links ends at, however long: the link keeps being a link and only its final
// target is replaced. A dangling chain gives the name it dangles at; a loop gives nothing.
std::string finalTarget(std::string path) {
    for (int hops = 0; hops < 40; ++hops) {
        struct stat info {};
        if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode))
            return path;
        std::string link(4096, '\0');
        const ssize_t n = ::readlink(path.c_str(), link.data(), link.size());
        if (n <= 0 || std::size_t(n) >= link.size())
            return std::string();
        link.resize(std::size_t(n));
        if (link.front() != '/')
            link.insert(0, path.substr(0, path.rfind('/') + 1));
        path = link;
    }
    return std::string();
}

// Every byte must be on the disk before the new file takes the old one's name: a short write or a
// failed flush (a disk that filled up meanwhile) leaves the old file in place.
void replace(FileReplacement& file, mode_t mask) {
    file.replaced = false;
    const std::string target = finalTarget(file.path);
    if (target.empty() || !makeFolders(folderOf(target)))
        return;
    std::string temporary = temporaryNameFor(target);
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0)
        return;
    // Held until this process closes the file or dies: whoever cleans up leftovers can tell a
    // file still being written from one whose writer was killed.
    ::flock(fd, LOCK_EX | LOCK_NB);
    struct stat onDisk {};
    const bool written = writeAll(fd, file.bytes) &&
                         ::fchmod(fd, modeForNewFile(target, mask)) == 0 && ::fsync(fd) == 0 &&
                         ::fstat(fd, &onDisk) == 0 &&
                         std::size_t(onDisk.st_size) == file.bytes.size();
    const bool closed = ::close(fd) == 0;
    if (!written || !closed || ::rename(temporary.c_str(), target.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return;
    }
    file.replaced = true;
}

} // namespace

bool writeAll(int fd, std::string_view bytes) {
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

bool makeFolders(const std::string& folder) {
    struct stat info {};
    if (::stat(folder.c_str(), &info) == 0)
        return S_ISDIR(info.st_mode);
    const std::string parent = folderOf(folder);
    if (parent != folder && !makeFolders(parent))
        return false;
    return ::mkdir(folder.c_str(), 0777) == 0 ||
           (errno == EEXIST && ::stat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode));
}

void replaceFilesAtomically(std::vector<FileReplacement>& files) {
    // Each file on a thread of its own, the first on this one: creating, flushing and renaming are
    // mostly waiting for the disk, which then serves all the files of a batch at once.
    const mode_t mask = creationMask();
    std::vector<std::thread> helpers;
    for (std::size_t i = 1; i < files.size(); ++i) {
        try {
            helpers.emplace_back(replace, std::ref(files[i]), mask);
        } catch (const std::system_error&) {
            replace(files[i], mask); // no thread to be had: in turn, then
        }
    }
    if (!files.empty())
        replace(files.front(), mask);
    for (std::thread& helper : helpers)
        helper.join();
}

int removeLeftoverTemporaries(const std::string& path) {
    const std::string target = finalTarget(path);
    if (target.empty())
        return 0;
    return removeUnlockedTemporaries(folderOf(target), [&](const std::string& name) {
        return isTemporaryNameFor(name, target);
    });
}

int removeLeftoverTemporariesIn(const std::string& folder) {
    return removeUnlockedTemporaries(folder, isTemporaryName);
}

bool replaceFileAtomically(const std::string& path, std::string_view bytes) {
    std::vector<FileReplacement> one{{path, std::string(bytes)}};
    replaceFilesAtomically(one);
    return one.front().replaced;
}

} // namespace brindlemark
