#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <utility>

namespace brindlemark {

// Replaces the file's contents all at once: the bytes go to a new file beside it, which is
// flushed to the disk and then renamed over the target, so a reader sees the old contents or the
// new, never a part. A link is followed: its target is replaced and the link stays. Missing
// folders are created. On any failure (a full disk, a read-only folder) the old file is left as
// it was and false comes back.
//
// Qt's QSaveFile is not used: on a full disk the one in Qt 6.4 reports success and leaves an
// empty file in place of the old one.
bool writeFileAtomically(const QString& path, const QByteArray& bytes);

// Gives each file its bytes, the same way, in one batch: a file that already holds exactly those
// bytes is not written again (nor flushed), the others are flushed once each. A file that exists
// but cannot be read is not written either, and counts as failed.
struct FileWrites {
    QStringList written, failed; // in the order given
};
FileWrites writeChangedFilesAtomically(const QList<std::pair<QString, QByteArray>>& files);

} // namespace brindlemark
