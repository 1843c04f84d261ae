#include "actions/PendingShows.h"

#include <QFileInfo>

#include <algorithm>

namespace brindlemark {

void PendingShows::add(const QString& filePath) {
    // Cleaned, so that "/a//b/" and "/a/b" are one folder; links are not followed, which would
    // cost a look at the disk per file.
    m_latestInFolder.insert(QFileInfo(filePath).absolutePath(), {filePath, m_added++});
}

QStringList PendingShows::take() {
    QList<Latest> latest = m_latestInFolder.values();
    m_latestInFolder.clear();
    std::sort(latest.begin(), latest.end(),
              [](const Latest& a, const Latest& b) { return a.order < b.order; });
    QStringList files;
    files.reserve(latest.size());
    for (const Latest& file : latest)
        files << file.filePath;
    return files;
}

} // namespace brindlemark
