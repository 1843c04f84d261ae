#include "templates/AtomicFile.h"

#include "templates/AtomicWrite.h"

#include <QFile>
#include <QFileInfo>

namespace brindlemark {

namespace {

std::string nativePath(const QString& path) { return QFile::encodeName(QFileInfo(path).absoluteFilePath()).toStdString(); }

bool holdsExactly(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    // A file of another size differs without being read.
    return file.size() == bytes.size() && file.open(QIODevice::ReadOnly) && file.readAll() == bytes;
}

} // namespace

bool writeFileAtomically(const QString& path, const QByteArray& bytes)
{
    return replaceFileAtomically(nativePath(path), std::string_view(bytes.constData(), std::size_t(bytes.size())));
}

FileWrites writeChangedFilesAtomically(const QList<std::pair<QString, QByteArray>>& files)
{
    std::vector<FileReplacement> changed;
    QStringList changedPaths;
    for (const auto& [path, bytes] : files) {
        if (holdsExactly(path, bytes))
            continue;
        changed.push_back({nativePath(path), bytes.toStdString()});
        changedPaths.append(path);
    }
    replaceFilesAtomically(changed);
    FileWrites outcome;
    for (std::size_t i = 0; i < changed.size(); ++i)
        (changed[i].replaced ? outcome.written : outcome.failed).append(changedPaths[qsizetype(i)]);
    return outcome;
}

} // namespace brindlemark
