#include "platform/linux/Autostart.h"

#include "platform/linux/XdgFolders.h"
#include "templates/AtomicFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace brindlemark::autostart {

namespace {

constexpr char Group[] = "[Desktop Entry]";

// The value of `key` in the [Desktop Entry] group, blanks around it trimmed.
std::optional<QByteArray> valueOf(const QByteArray& entry, const QByteArray& key) {
    bool inGroup = false;
    for (const QByteArray& raw : entry.split('\n')) {
        const QByteArray line = raw.trimmed();
        if (line.startsWith('['))
            inGroup = line == Group;
        else if (inGroup && line.startsWith(key) && line.mid(key.size()).trimmed().startsWith('='))
            return line.mid(line.indexOf('=') + 1).trimmed();
    }
    return std::nullopt;
}

std::optional<QByteArray> read(const QString& path) {
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return file.readAll();
}

// The entry that counts: the user's file, else the first system one.
std::optional<QByteArray> effective(const Folders& where, const QString& entryName) {
    if (const auto own = read(where.user + u'/' + entryName))
        return own;
    for (const QString& folder : where.system)
        if (const auto entry = read(folder + u'/' + entryName))
            return entry;
    return std::nullopt;
}

} // namespace

Folders folders() {
    Folders where;
    where.user = QString::fromStdString(xdg::configHome()) + QStringLiteral("/autostart");
    const QString dirs = qEnvironmentVariable("XDG_CONFIG_DIRS");
    for (const QString& folder : (dirs.isEmpty() ? QStringLiteral("/etc/xdg") : dirs).split(u':'))
        if (QDir::isAbsolutePath(folder))
            where.system << QDir::cleanPath(folder) + QStringLiteral("/autostart");
    return where;
}

bool isOn(const Folders& where, const QString& entryName) {
    const std::optional<QByteArray> entry = effective(where, entryName);
    return entry && valueOf(*entry, "Hidden").value_or("false") != "true" &&
           valueOf(*entry, "X-GNOME-Autostart-enabled").value_or("true") != "false";
}

QByteArray withKey(const QByteArray& entry, const QByteArray& key, const QByteArray& value) {
    QList<QByteArray> lines = entry.split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    qsizetype groupEnd = -1;
    bool inGroup = false, set = false;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QByteArray line = lines[i].trimmed();
        if (line.startsWith('[')) {
            inGroup = line == Group;
            continue;
        }
        if (!inGroup)
            continue;
        if (!line.isEmpty())
            groupEnd = i;
        if (line.startsWith(key) && line.mid(key.size()).trimmed().startsWith('=')) {
            lines[i] = key + '=' + value;
            set = true;
        }
    }
    if (!set) {
        if (groupEnd < 0) { // no group at all: one at the start
            lines.prepend(Group);
            groupEnd = 0;
        }
        lines.insert(groupEnd + 1, key + '=' + value);
    }
    return lines.join('\n') + '\n';
}

std::optional<QString> setOn(const Folders& where, const QString& entryName, bool on,
                             const QByteArray& ownEntry) {
    if (isOn(where, entryName) == on)
        return std::nullopt;
    const QString path = where.user + u'/' + entryName;
    QByteArray entry;
    if (const auto own = read(path)) {
        entry = withKey(*own, "Hidden", on ? "false" : "true");
        if (valueOf(entry, "X-GNOME-Autostart-enabled"))
            entry = withKey(entry, "X-GNOME-Autostart-enabled", on ? "true" : "false");
    } else if (const auto system = effective(where, entryName)) {
        entry = withKey(*system, "Hidden", on ? "false" : "true");
    } else {
        entry = ownEntry;
    }
    if (!QDir().mkpath(where.user) || !writeFileAtomically(path, entry))
        return QStringLiteral("cannot write %1").arg(path);
    return std::nullopt;
}

} // namespace brindlemark::autostart
