#include "templates/TemplateContent.h"

#include "bridge/TextRules.h"
#include "templates/AtomicFile.h"
#include "templates/AtomicWrite.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brindlemark {

namespace {

constexpr qsizetype LongestContentFileName = 200;

QString limitText() {
    return QStringLiteral("%1 MiB").arg(ContentSizeLimit / (1024 * 1024));
}

// Reads to the end, but never more than one byte past the limit: a file that grew since it was
// measured is caught too.
bool readAll(int fd, QByteArray& bytes) {
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            return true;
        bytes.append(buffer, n);
        if (bytes.size() > ContentSizeLimit)
            return true;
    }
}

} // namespace

ContentRead readContentFile(const QString& path) {
    ContentRead result;
    const QByteArray native = QFile::encodeName(path);
    struct stat entry {};
    if (path.isEmpty() || path.contains(QChar(0)) || ::lstat(native.constData(), &entry) != 0)
        return result;
    result.status = ContentRead::Unusable;
    // Not blocking: opening a FIFO would otherwise wait for a writer.
    const int fd = ::open(native.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        result.reason = errno == ENOENT ? QStringLiteral("is gone (a link to nothing)")
                                        : QStringLiteral("cannot be read (%1)")
                                              .arg(QString::fromLocal8Bit(std::strerror(errno)));
        return result;
    }
    struct stat info {};
    ::fstat(fd, &info);
    if (S_ISDIR(info.st_mode))
        result.reason = QStringLiteral("is a folder");
    else if (!S_ISREG(info.st_mode))
        result.reason = QStringLiteral("is not a regular file");
    else if (info.st_size > ContentSizeLimit)
        result.reason = QStringLiteral("is larger than %1").arg(limitText());
    else if (!readAll(fd, result.bytes))
        result.reason =
            QStringLiteral("cannot be read (%1)").arg(QString::fromLocal8Bit(std::strerror(errno)));
    else if (result.bytes.size() > ContentSizeLimit)
        result.reason = QStringLiteral("is larger than %1").arg(limitText());
    else
        result.status = ContentRead::Loaded;
    ::close(fd);
    if (result.status != ContentRead::Loaded)
        result.bytes.clear();
    return result;
}

QString contentFileName(const QString& identifier) {
    const QByteArray utf8 = identifier.toUtf8();
    QByteArray name;
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
            (byte >= '0' && byte <= '9') || byte == '-' || byte == '_')
            name += c;
        else
            name.append('%').append(hexDigit(byte >> 4, true)).append(hexDigit(byte, true));
    }
    if (name.isEmpty() || name.size() > LongestContentFileName)
        return u'~' + QString::fromLatin1(
                          QCryptographicHash::hash(utf8, QCryptographicHash::Sha256).toHex());
    return QString::fromLatin1(name);
}

QString contentIdentifier(const Template& record) {
    return cleanedString(record.value(TemplateKey::id));
}

Template templateForFile(const QString& fileName, bool executable) {
    const qsizetype dot = fileName.lastIndexOf(u'.');
    const QString base = dot > 0 ? fileName.left(dot) : fileName;
    return Template{
        {TemplateKey::id, newTemplateIdentifier()},
        {TemplateKey::title, base},
        {TemplateKey::prefix, base},
        {TemplateKey::suffix, dot > 0 ? fileName.mid(dot + 1) : QString()},
        {TemplateKey::enabled, true},
        {TemplateKey::executable, executable},
    };
}

TemplateContent::TemplateContent(QString folder) : m_folder(std::move(folder)) {}

QString TemplateContent::pathFor(const QString& identifier) const {
    return m_folder + u'/' + contentFileName(identifier);
}

QString TemplateContent::editingFolderFor(const QString& identifier) const {
    return QDir::cleanPath(m_folder + QStringLiteral("/../editing/")) + u'/' +
           contentFileName(identifier);
}

bool TemplateContent::has(const QString& identifier) const {
    struct stat entry {};
    return ::lstat(QFile::encodeName(pathFor(identifier)).constData(), &entry) == 0;
}

ContentRead TemplateContent::read(const QString& identifier) const {
    takeEdits(identifier);
    return readContentFile(pathFor(identifier));
}

bool TemplateContent::write(const QString& identifier, const QByteArray& bytes) const {
    QDir(editingFolderFor(identifier)).removeRecursively();
    return writeFileAtomically(pathFor(identifier), bytes);
}

bool TemplateContent::remove(const QString& identifier) const {
    QDir(editingFolderFor(identifier)).removeRecursively();
    const QByteArray native = QFile::encodeName(pathFor(identifier));
    return ::unlink(native.constData()) == 0 || errno == ENOENT;
}

QString TemplateContent::editableCopy(const QString& identifier, const QString& fileName) const {
    takeEdits(identifier);
    if (!has(identifier) && !writeFileAtomically(pathFor(identifier), {}))
        return {};
    const ContentRead content = readContentFile(pathFor(identifier));
    if (content.status != ContentRead::Loaded)
        return {};
    const QString copy = editingFolderFor(identifier) + u'/' + fileName;
    // The copies of earlier names (the suffix changed since) go: the one opened now is the edit.
    QDir editing(editingFolderFor(identifier));
    for (const QString& other : editing.entryList(QDir::Files | QDir::Hidden | QDir::System))
        if (other != fileName)
            editing.remove(other);
    const ContentRead held = readContentFile(copy);
    if (held.status == ContentRead::Loaded && held.bytes == content.bytes)
        return copy;
    return writeFileAtomically(copy, content.bytes) ? copy : QString();
}

void TemplateContent::takeEdits(const QString& identifier) const {
    QFileInfo newest;
    QDirIterator copies(editingFolderFor(identifier), QDir::Files | QDir::Hidden);
    while (copies.hasNext()) {
        const QFileInfo copy(copies.next());
        // Only the copies made here, which are never hidden: the files an editor keeps beside
        // the one it edits (".name.swp", ".~lock.name#", "#name#", "name~") are not the edit.
        const QString name = copy.fileName();
        if (name.startsWith(u'.') || name.startsWith(u'#') || name.endsWith(u'~'))
            continue;
        if (!newest.exists() || copy.lastModified() > newest.lastModified())
            newest = copy;
    }
    if (!newest.exists())
        return;
    const ContentRead edited = readContentFile(newest.filePath());
    if (edited.status != ContentRead::Loaded)
        return;
    const ContentRead content = readContentFile(pathFor(identifier));
    if (content.status != ContentRead::Loaded || content.bytes != edited.bytes)
        writeFileAtomically(pathFor(identifier), edited.bytes);
}

} // namespace brindlemark
