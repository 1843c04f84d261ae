#include "templates/AtomicWrite.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brindlemark {

namespace {

bool writeAll(int fd, std::string_view bytes)
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

mode_t modeForNewFile(const std::string& target)
{
    struct stat existing {};
    if (::stat(target.c_str(), &existing) == 0)
        return existing.st_mode & 07777; // keep the mode the user gave the file
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

std::string folderOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The file a chain of links ends at, however long: the link keeps being a link and only its final
// target is replaced. A dangling chain gives the name it dangles at; a loop gives nothing.
std::string finalTarget(std::string path)
{
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

// One file of a batch on its way: written to its temporary, not yet flushed or renamed.
struct Pending {
    FileReplacement* file;
    std::string target, temporary;
    int fd = -1;
    bool ok = false;
};

void writeTemporary(Pending& pending)
{
    pending.target = finalTarget(pending.file->path);
    if (pending.target.empty() || !makeFolders(folderOf(pending.target)))
        return;
    pending.temporary = pending.target + ".XXXXXX";
    pending.fd = ::mkstemp(pending.temporary.data());
    if (pending.fd < 0)
        return;
    pending.ok = writeAll(pending.fd, pending.file->bytes) && ::fchmod(pending.fd, modeForNewFile(pending.target)) == 0;
#ifdef __linux__
    // Starts the writing out now; the flush below then waits for all of the batch at once.
    if (pending.ok)
        ::sync_file_range(pending.fd, 0, 0, SYNC_FILE_RANGE_WRITE);
#endif
}

// Every byte must be on the disk before the new file takes the old one's name: a short write or a
// failed flush (a disk that filled up meanwhile) leaves the old file in place.
void flushAndRename(Pending& pending)
{
    if (pending.fd < 0)
        return;
    struct stat onDisk {};
    const bool written = pending.ok && ::fsync(pending.fd) == 0 && ::fstat(pending.fd, &onDisk) == 0 &&
                         std::size_t(onDisk.st_size) == pending.file->bytes.size();
    const bool closed = ::close(pending.fd) == 0;
    if (!written || !closed || ::rename(pending.temporary.c_str(), pending.target.c_str()) != 0) {
        ::unlink(pending.temporary.c_str());
        return;
    }
    pending.file->replaced = true;
}

} // namespace

bool makeFolders(const std::string& folder)
{
    struct stat info {};
    if (::stat(folder.c_str(), &info) == 0)
        return S_ISDIR(info.st_mode);
    const std::string parent = folderOf(folder);
    if (parent != folder && !makeFolders(parent))
        return false;
    return ::mkdir(folder.c_str(), 0777) == 0 || (errno == EEXIST && ::stat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode));
}

void replaceFilesAtomically(std::vector<FileReplacement>& files)
{
    std::vector<Pending> batch;
    batch.reserve(files.size());
    for (FileReplacement& file : files) {
        file.replaced = false;
        batch.push_back(Pending{&file, {}, {}});
        writeTemporary(batch.back());
    }
    for (Pending& pending : batch)
        flushAndRename(pending);
}

bool replaceFileAtomically(const std::string& path, std::string_view bytes)
{
    std::vector<FileReplacement> one{{path, std::string(bytes)}};
    replaceFilesAtomically(one);
    return one.front().replaced;
}

} // namespace brindlemark
