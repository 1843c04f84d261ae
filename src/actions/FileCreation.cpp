#include "actions/FileCreation.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brindlemark {

namespace {

enum class Attempt { Created, Taken, Failed };

Attempt createExclusively(const QString& path, bool executable)
{
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0)
        return errno == EEXIST ? Attempt::Taken : Attempt::Failed;
    bool ok = true;
    if (executable)
        ok = ::fchmod(fd, 0755) == 0; // exactly rwxr-xr-x, whatever the umask
    ::close(fd);
    if (!ok) {
        ::unlink(native.constData());
        return Attempt::Failed;
    }
    return Attempt::Created;
}

bool staysInFolder(const QString& name)
{
    return !name.contains(u'/') && !name.contains(QChar(0)) && name != u"." && name != u"..";
}

} // namespace

bool isExistingFolder(const QString& folder)
{
    // Only an absolute path names a folder: a relative one would depend on where Brindlemark
    // happened to be started. A NUL would cut the path short in the system calls.
    return QDir::isAbsolutePath(folder) && !folder.contains(QChar(0)) && QFileInfo(folder).isDir();
}

FileCreation createFileFromTemplate(const Template& record, const QString& folder)
{
    FileCreation result;
    if (!isExistingFolder(folder)) {
        result.status = FileCreation::NotAFolder;
        return result;
    }

    const Template normalized = normalizedTemplate(record);
    const QString base = cleanedString(normalized.value(TemplateKey::prefix));
    // Normalising took one leading dot off already; a name takes off one more.
    const QString suffix = withoutLeadingDot(cleanedString(normalized.value(TemplateKey::suffix)));
    const bool executable = boolFromValue(normalized.value(TemplateKey::executable), false);

    const QString directory = folder.endsWith(u'/') ? folder : folder + u'/';
    QString name = suffix.isEmpty() ? base : base + u'.' + suffix;
    for (qint64 n = 1;; ++n) {
        if (!staysInFolder(name))
            return result;
        const QString path = directory + name;
        if (!QFileInfo::exists(path)) {
            switch (createExclusively(path, executable)) {
            case Attempt::Created:
                result.status = FileCreation::Created;
                result.filePath = path;
                return result;
            case Attempt::Failed:
                return result;
            case Attempt::Taken:
                break; // it appeared since the test: go on numbering
            }
        }
        // One multi-argument arg() call: a "%1" inside the prefix must stay literal text.
        name = suffix.isEmpty() ? QStringLiteral("%1 %2").arg(base, QString::number(n))
                                : QStringLiteral("%1 %2.%3").arg(base, QString::number(n), suffix);
    }
}

} // namespace brindlemark
