#include "templates/AtomicFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brindlemark {

namespace {

bool writeAll(int fd, const QByteArray& bytes)
{
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

mode_t modeForNewFile(const QByteArray& target)
{
    struct stat existing {};
    if (::stat(target.constData(), &existing) == 0)
        return existing.st_mode & 07777; // keep the mode the user gave the file
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

// The file a chain of links ends at, however long: the link keeps being a link and only its final
// target is replaced. A dangling chain gives the name it dangles at; a loop gives nothing.
QByteArray finalTarget(QByteArray path)
{
    for (int hops = 0; hops < 40; ++hops) {
        struct stat info {};
        if (::lstat(path.constData(), &info) != 0 || !S_ISLNK(info.st_mode))
            return path;
        QByteArray link(4096, '\0');
        const ssize_t n = ::readlink(path.constData(), link.data(), size_t(link.size()));
        if (n <= 0 || n >= link.size())
            return QByteArray();
        link.truncate(n);
        if (!link.startsWith('/'))
            link.prepend(path.left(path.lastIndexOf('/') + 1));
        path = link;
    }
    return QByteArray();
}

} // namespace

bool writeFileAtomically(const QString& path, const QByteArray& bytes)
{
    const QByteArray target = finalTarget(QFile::encodeName(QFileInfo(path).absoluteFilePath()));
    if (target.isEmpty() || !QDir().mkpath(QFileInfo(QFile::decodeName(target)).absolutePath()))
        return false;

    QByteArray temporary = target + ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0)
        return false;
    // Every byte must be on the disk before the new file takes the old one's name: a short write
    // or a failed flush (a disk that filled up meanwhile) leaves the old file in place.
    struct stat onDisk {};
    const bool written = writeAll(fd, bytes) && ::fchmod(fd, modeForNewFile(target)) == 0 && ::fsync(fd) == 0 &&
                         ::fstat(fd, &onDisk) == 0 && onDisk.st_size == bytes.size();
    const bool closed = ::close(fd) == 0;
    if (!written || !closed || ::rename(temporary.constData(), target.constData()) != 0) {
        ::unlink(temporary.constData());
        return false;
    }
    return true;
}

} // namespace brindlemark
