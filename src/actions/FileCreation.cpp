#include "actions/FileCreation.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <string>
#include <algorithm>
#include <unordered_set>
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

// What the folder holds, read once: whether the plain name is taken, and which numbers are taken
// among "base N.suffix" (N written as numbering writes it: digits, no leading zero). Far cheaper
// than asking after every candidate name in a folder of thousands of numbered files.
struct TakenNames {
    bool plain = false;
    std::unordered_set<qint64> numbers;
};

std::optional<TakenNames> takenNames(const QString& folder, const QByteArray& plain, const QByteArray& start,
                                     const QByteArray& end)
{
    DIR* listing = ::opendir(QFile::encodeName(folder).constData());
    if (!listing)
        return std::nullopt;
    TakenNames taken;
    while (const dirent* entry = ::readdir(listing)) {
        const QByteArrayView name(entry->d_name);
        if (name == plain)
            taken.plain = true;
        if (name.size() <= start.size() + end.size() || !name.startsWith(start) || !name.endsWith(end))
            continue;
        const QByteArrayView digits = name.sliced(start.size(), name.size() - start.size() - end.size());
        if (digits.size() > 18 || digits.front() == '0' ||
            !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
            continue;
        taken.numbers.insert(digits.toLongLong());
    }
    ::closedir(listing);
    return taken;
}

bool staysInFolder(const QString& name) { return !name.contains(u'/') && !name.contains(QChar(0)); }

// "." and ".." name the folder and its parent in every folder: always taken, never to be created,
// also where the listing leaves them out (a file system need not list them).
bool namesAFolderItself(const QString& name) { return name == u"." || name == u".."; }

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
    const QString plain = suffix.isEmpty() ? base : base + u'.' + suffix;
    if (!staysInFolder(plain)) // a numbered name stays in the folder whenever the plain one does
        return result;
    // A listed name is taken, a dangling link included. A name missing from the list may still
    // be taken (made since, or the same name in another case on a folder that ignores case):
    // the exclusive creation finds out, and the numbering goes on.
    const std::optional<TakenNames> taken =
        takenNames(folder, QFile::encodeName(plain), QFile::encodeName(base + u' '),
                   suffix.isEmpty() ? QByteArray() : QFile::encodeName(u'.' + suffix));
    for (qint64 n = namesAFolderItself(plain) ? 1 : 0;; ++n) {
        if (taken && (n == 0 ? taken->plain : taken->numbers.count(n) > 0))
            continue;
        // One multi-argument arg() call: a "%1" inside the prefix must stay literal text.
        const QString name = n == 0 ? plain
                             : suffix.isEmpty() ? QStringLiteral("%1 %2").arg(base, QString::number(n))
                                                : QStringLiteral("%1 %2.%3").arg(base, QString::number(n), suffix);
        const QString path = directory + name;
        if (!taken && QFileInfo::exists(path))
            continue;
        switch (createExclusively(path, executable)) {
        case Attempt::Created:
            result.status = FileCreation::Created;
            result.filePath = path;
            return result;
        case Attempt::Failed:
            return result;
        case Attempt::Taken:
            break; // it appeared since the folder was read: go on numbering
        }
    }
}

} // namespace brindlemark
