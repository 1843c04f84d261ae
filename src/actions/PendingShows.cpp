#include "actions/PendingShows.h"

#include <QFileInfo>

#include <algorithm>

namespace brindlemark {

bool PendingShows::add(const QString& filePath) {
    const bool first = m_latestInFolder.isEmpty();
    // Cleaned, so that "/a//b/" and "/a/b" are one folder; links are not followed, which would
    // cost a look at the disk per file.
    m_latestInFolder.insert(QFileInfo(filePath).absolutePath(), {filePath, m_added++});
    return first;
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
