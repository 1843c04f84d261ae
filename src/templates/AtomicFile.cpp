#include "templates/AtomicFile.h"

#include "templates/AtomicWrite.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <sys/stat.h>

namespace brindlemark {

namespace {

std::string nativePath(const QString& path) {
    return QFile::encodeName(QFileInfo(path).absoluteFilePath()).toStdString();
}

enum class Holding { Exactly, Other, Unknown };

Holding holding(const QString& path, const QByteArray& bytes) {
    // A link that leads nowhere yet is a missing file, as the write will follow it.
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0 && errno == ENOENT)
        return Holding::Other;
    QFile file(path);
    // A file that cannot be read may hold what nothing else does: it is never written over.
    if (!file.open(QIODevice::ReadOnly))
        return Holding::Unknown;
    // A file of another size differs without being read.
    if (file.size() != bytes.size())
        return Holding::Other;
    const QByteArray held = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return Holding::Unknown;
    return held == bytes ? Holding::Exactly : Holding::Other;
}

} // namespace

bool writeFileAtomically(const QString& path, const QByteArray& bytes) {
    return replaceFileAtomically(nativePath(path),
                                 std::string_view(bytes.constData(), std::size_t(bytes.size())));
}

FileWrites writeChangedFilesAtomically(const QList<std::pair<QString, QByteArray>>& files) {
    QList<Holding> held;
    std::vector<FileReplacement> changed;
    for (const auto& [path, bytes] : files) {
        held.append(holding(path, bytes));
        if (held.constLast() == Holding::Other)
            changed.push_back({nativePath(path), bytes.toStdString()});
    }
    replaceFilesAtomically(changed);
    FileWrites outcome;
    auto replacement = changed.cbegin();
    for (qsizetype i = 0; i < files.size(); ++i) {
        if (held[i] == Holding::Unknown ||
            (held[i] == Holding::Other && !(replacement++)->replaced))
            outcome.failed.append(files[i].first);
        else if (held[i] == Holding::Other)
            outcome.written.append(files[i].first);
    }
    return outcome;
}

} // namespace brindlemark
