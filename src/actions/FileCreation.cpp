#include "actions/FileCreation.h"

#include "actions/FolderChanges.h"
#include "templates/AtomicWrite.h"

#include <QDir>
#include <QFileInfo>
#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <stdio.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

namespace brindlemark {

namespace {

enum class Attempt { Created, Taken, Failed };

// A hidden name in the folder for a file with content while it is written, where the file system
// has no files without a name.
QByteArray temporaryPathIn(const QByteArray& folder) {
    QByteArray path = folder + "/.brindlemark-new-";
    for (int i = 0; i < 8; ++i)
        path += char('a' + QRandomGenerator::global()->bounded(26));
    return path;
}

// The new file, made at each name tried until one is free. An empty one is created exclusively
// at the name. One with content is written once, before any name is tried, and then given the
// name with a call that fails rather than replace what is there.
class NewFile {
public:
    NewFile(const QString& folder, const QByteArray* content, bool executable)
        : m_content(content), m_executable(executable) {
        if (!content)
            return;
        const QByteArray native = QFile::encodeName(folder);
#ifdef O_TMPFILE
        // Named through /proc: without it there is no way to give such a file a name.
        if (!testing::withoutUnnamedFiles && ::access("/proc/self/fd", X_OK) == 0)
            m_fd = ::open(native.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
#endif
        for (int tries = 0; m_fd < 0 && tries < 100; ++tries) {
            m_temporary = temporaryPathIn(native);
            m_fd = ::open(m_temporary.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (m_fd < 0 && errno != EEXIST)
                break;
        }
        if (m_fd < 0)
            m_temporary.clear();
        const std::string_view bytes(content->constData(), std::size_t(content->size()));
        m_written =
            m_fd >= 0 && writeAll(m_fd, bytes) && (!executable || ::fchmod(m_fd, 0755) == 0);
    }

    ~NewFile() {
        if (m_fd >= 0)
            ::close(m_fd);
        if (!m_temporary.isEmpty())
            ::unlink(m_temporary.constData());
    }

    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    Attempt createAt(const QString& path) {
        const QByteArray native = QFile::encodeName(path);
        if (!m_content)
            return createEmpty(native);
        if (!m_written)
            return Attempt::Failed;
        if (testing::beforeNamingWholeFile)
            testing::beforeNamingWholeFile(path);
        int done = -1;
        if (m_temporary.isEmpty()) {
            const QByteArray self = "/proc/self/fd/" + QByteArray::number(m_fd);
            done = ::linkat(AT_FDCWD, self.constData(), AT_FDCWD, native.constData(),
                            AT_SYMLINK_FOLLOW);
        } else {
#ifdef RENAME_NOREPLACE
            done = ::renameat2(AT_FDCWD, m_temporary.constData(), AT_FDCWD, native.constData(),
                               RENAME_NOREPLACE);
            if (done == 0)
                m_temporary.clear();
            else if (errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)
#endif
                done = ::link(m_temporary.constData(), native.constData());
        }
        if (done != 0)
            return errno == EEXIST ? Attempt::Taken : Attempt::Failed;
        return Attempt::Created; // the hidden name, if still there, goes with this object
    }

private:
    Attempt createEmpty(const QByteArray& native) const {
        const int fd = ::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0)
            return errno == EEXIST ? Attempt::Taken : Attempt::Failed;
        bool ok = true;
        if (m_executable)
            ok = ::fchmod(fd, 0755) == 0; // exactly rwxr-xr-x, whatever the umask
        ::close(fd);
        if (!ok) {
            ::unlink(native.constData());
            return Attempt::Failed;
        }
        return Attempt::Created;
    }

    const QByteArray* m_content;
    bool m_executable;
    int m_fd = -1;
    QByteArray m_temporary; // the hidden name while it holds the file
    bool m_written = false;
};

// The names numbering looks for: the plain one, and "start N end" with N written as numbering
// writes it (digits, no leading zero).
struct NamePattern {
    QByteArray plain, start, end;

    bool operator==(const NamePattern&) const = default;

    // 0 for the plain name, N for the numbered one, -1 for any other name.
    qint64 numberOf(QByteArrayView name) const {
        if (name == plain)
            return 0;
        if (name.size() <= start.size() + end.size() || !name.startsWith(start) ||
            !name.endsWith(end))
            return -1;
        const QByteArrayView digits =
            name.sliced(start.size(), name.size() - start.size() - end.size());
        if (digits.size() > 18 || digits.front() == '0' ||
            !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
            return -1;
        return digits.toLongLong();
    }
};

// Which of those names a folder holds: whether the plain one is taken, and which numbers are.
// Far cheaper than asking after every candidate name in a folder of thousands of numbered files.
struct TakenNames {
    bool plain = false;
    std::unordered_set<qint64> numbers;
    qint64 firstFree = 1; // every number below it is taken

    void set(qint64 number, bool taken) {
        if (number == 0) {
            plain = taken;
        } else if (number > 0 && taken) {
            numbers.insert(number);
            while (numbers.count(firstFree) > 0)
                ++firstFree;
        } else if (number > 0 && numbers.erase(number) > 0) {
            firstFree = std::min(firstFree, number);
        }
    }
};

bool readNames(const QByteArray& folder, const NamePattern& pattern, TakenNames& taken) {
    DIR* listing = ::opendir(folder.constData());
    if (!listing)
        return false;
    taken = TakenNames();
    while (const dirent* entry = ::readdir(listing))
        taken.set(pattern.numberOf(entry->d_name), true);
    ::closedir(listing);
    return true;
}

bool staysInFolder(const QString& name) {
    return !name.contains(u'/') && !name.contains(QChar(0));
}

// "." and ".." name the folder and its parent in every folder: always taken, never to be created,
// also where the listing leaves them out (a file system need not list them).
bool namesAFolderItself(const QString& name) {
    return name == u"." || name == u"..";
}

} // namespace

struct FolderNames::Known {
    QString folder;
    NamePattern pattern;
    dev_t device = 0;
    ino_t inode = 0;
    TakenNames taken;
    FolderChanges changes;
    bool followed = false; // `taken` stays current through `changes`

    // What the folder holds now: what is known with the changes since, when the same folder has
    // been followed all along; else what it holds when read again. Nothing when it cannot be read.
    TakenNames* namesIn(const QString& path, const NamePattern& wanted) {
        const QByteArray native = QFile::encodeName(path);
        struct stat info {};
        const bool exists = ::stat(native.constData(), &info) == 0;
        if (followed && exists && path == folder && wanted == pattern && info.st_dev == device &&
            info.st_ino == inode && changes.takeChanges([this](QByteArrayView name, bool appeared) {
                taken.set(pattern.numberOf(name), appeared);
            }))
            return &taken;
        // Watched before it is read: a change made during the reading is also reported, and
        // applying it once more changes nothing.
        followed = exists && changes.watch(native);
        folder = path;
        pattern = wanted;
        device = info.st_dev;
        inode = info.st_ino;
        if (readNames(native, pattern, taken))
            return &taken;
        changes.stop();
        followed = false;
        return nullptr;
    }
};

FolderNames::FolderNames() : m_known(std::make_unique<Known>()) {}

FolderNames::~FolderNames() = default;

void FolderNames::forget() {
    m_known->changes.stop();
    m_known->followed = false;
}

bool isExistingFolder(const QString& folder) {
    // Only an absolute path names a folder: a relative one would depend on where Brindlemark
    // happened to be started. A NUL would cut the path short in the system calls.
    return QDir::isAbsolutePath(folder) && !folder.contains(QChar(0)) && QFileInfo(folder).isDir();
}

namespace testing {
std::function<void(const QString&)> beforeNamingWholeFile;
bool withoutUnnamedFiles = false;
} // namespace testing

FileCreation createFileFromTemplate(const Template& record, const QString& folder,
                                    FolderNames* names, const QByteArray* content) {
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
    const NamePattern pattern{QFile::encodeName(plain), QFile::encodeName(base + u' '),
                              suffix.isEmpty() ? QByteArray() : QFile::encodeName(u'.' + suffix)};
    TakenNames readNow;
    TakenNames* taken = names ? names->m_known->namesIn(folder, pattern)
                        : readNames(QFile::encodeName(folder), pattern, readNow) ? &readNow
                                                                                 : nullptr;
    // After the plain name the first free number, after a number the next one not known taken.
    const auto candidateAfter = [&](qint64 n) {
        n = n == 0 && taken ? taken->firstFree : n + 1;
        while (taken && taken->numbers.count(n) > 0)
            ++n;
        return n;
    };
    NewFile file(folder, content, executable);
    for (qint64 n = namesAFolderItself(plain) || (taken && taken->plain) ? candidateAfter(0) : 0;;
         n = candidateAfter(n)) {
        // One multi-argument arg() call: a "%1" inside the prefix must stay literal text.
        const QString name = n == 0 ? plain
                             : suffix.isEmpty()
                                 ? QStringLiteral("%1 %2").arg(base, QString::number(n))
                                 : QStringLiteral("%1 %2.%3").arg(base, QString::number(n), suffix);
        const QString path = directory + name;
        if (!taken && QFileInfo::exists(path))
            continue;
        switch (file.createAt(path)) {
        case Attempt::Created:
            if (taken)
                taken->set(n, true); // the watch reports it too: the same once more
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
