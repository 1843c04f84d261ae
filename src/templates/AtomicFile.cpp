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

} // namespace

bool writeFileAtomically(const QString& path, const QByteArray& bytes)
{
    QString targetPath = path;
    const QFileInfo info(path);
    if (info.isSymLink())
        targetPath = info.symLinkTarget();
    if (!QDir().mkpath(QFileInfo(targetPath).absolutePath()))
        return false;

    const QByteArray target = QFile::encodeName(targetPath);
    QByteArray temporary = target + ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0)
        return false;
    const bool written = writeAll(fd, bytes) && ::fchmod(fd, modeForNewFile(target)) == 0 && ::fsync(fd) == 0;
    const bool closed = ::close(fd) == 0;
    if (!written || !closed || ::rename(temporary.constData(), target.constData()) != 0) {
        ::unlink(temporary.constData());
        return false;
    }
    return true;
}

} // namespace brindlemark
