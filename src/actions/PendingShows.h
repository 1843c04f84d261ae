#pragma once

#include <QHash>
#include <QStringList>

namespace brindlemark {

// The new files of a burst of commands that are still to be shown in the file manager: each
// folder once, with the last file made there. Every show raises a file-manager window (or starts
// an opener), so a launch that makes thousands of files must not ask thousands of times.
class PendingShows {
public:
    void add(const QString& filePath);

    // Each folder's last file, the folder whose file came last at the end (its window is then the
    // one left in front); nothing is pending afterwards.
    QStringList take();

private:
    struct Latest {
        QString filePath;
        quint64 order = 0;
    };
    QHash<QString, Latest> m_latestInFolder;
    quint64 m_added = 0;
};

} // namespace brindlemark
