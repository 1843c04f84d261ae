// brindlemark-killall Finder
//
// Brindlemark's stand-in for "killall Finder": makes the running file managers load Brindlemark's
// menu extension, and keeps the user's windows. A file manager whose process already runs the
// extension (it watches Brindlemark's templates folder) needs nothing: the extension follows
// every change of its own file. Any other Nautilus, Nemo, Caja or Thunar quits cleanly (`-q`)
// and its windows open again, each at the folder it showed. A file manager with a window whose
// folder cannot be learned is left running rather than lose that window. Dolphin reads its
// service menus afresh for every context menu: it needs no restart. Nothing is printed; the
// status is 0, or 1 for a wrong command line.
#include "Identifiers.h"
#include "platform/linux/FrontFolder.h"
#include "platform/linux/XdgFolders.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <optional>

using namespace brindlemark;
using frontfolder::FileManager;

namespace {

struct Manager {
    const char* command;
    const char* busName; // the name its running instance holds, which `-q` asks to quit
    FileManager kind;
};
constexpr Manager restartable[] = {{"nautilus", "org.gnome.Nautilus", FileManager::Nautilus},
                                   {"nemo", "org.Nemo", FileManager::Nemo},
                                   {"caja", "org.mate.Caja", FileManager::Caja},
                                   {"thunar", "org.xfce.Thunar", FileManager::Thunar}};

// Whether the user runs a process of this command name, as pgrep -x would tell, without running it.
bool anyProcessNamed(const char* name) {
    const uid_t user = ::getuid();
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool number = false;
        entry.toLongLong(&number);
        if (!number)
            continue;
        struct stat status {};
        const QByteArray folder = "/proc/" + entry.toLatin1();
        if (::stat(folder.constData(), &status) != 0 || status.st_uid != user)
            continue;
        QFile comm(QString::fromLatin1(folder + "/comm"));
        if (comm.open(QIODevice::ReadOnly) && comm.readAll().trimmed() == name)
            return true;
    }
    return false;
}

// The process that holds a name on the session bus: the instance this session's `-q` quits.
std::optional<qint64> busOwner(const QDBusConnection& bus, const char* name) {
    const QDBusReply<uint> pid = bus.interface()->servicePid(QString::fromLatin1(name));
    return pid.isValid() && pid.value() > 0 ? std::optional<qint64>(pid.value()) : std::nullopt;
}

// Whether the process runs Brindlemark's extension: it watches the templates' folder.
bool runsTheExtension(qint64 pid, const QString& templatesFolder) {
    struct stat folder {};
    if (::stat(QFile::encodeName(templatesFolder).constData(), &folder) != 0)
        return false;
    return frontfolder::watchedByProcess(pid).contains(
        {quint64(folder.st_dev), quint64(folder.st_ino)});
}

// Whether a process has ended, waiting for it until the deadline. One that its parent has not
// yet waited for (a zombie) has ended too.
bool ended(qint64 pid, QDeadlineTimer deadline) {
    for (;;) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            return true;
        const QByteArray fields = stat.readAll();
        if (fields.mid(fields.lastIndexOf(')') + 2, 1) == "Z")
            return true;
        if (deadline.hasExpired())
            return false;
        QThread::msleep(20);
    }
}

// The command that opens one window at a folder.
QStringList windowAt(FileManager kind, const QString& folder) {
    switch (kind) {
    case FileManager::Nautilus:
        return {QStringLiteral("nautilus"), QStringLiteral("--new-window"), folder};
    case FileManager::Nemo:
        return {QStringLiteral("nemo"), folder};
    case FileManager::Caja:
        return {QStringLiteral("caja"), folder};
    default:
        return {QStringLiteral("thunar"), folder};
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2 || std::strcmp(argv[1], "Finder") != 0) {
        std::puts("usage: brindlemark-killall Finder");
        return 1;
    }
    QList<Manager> running;
    for (const Manager& manager : restartable)
        if (anyProcessNamed(manager.command))
            running << manager;
    if (running.isEmpty())
        return 0;

    QCoreApplication application(argc, argv);
    // `-q` reaches the instance on this session's bus, so without a bus nothing can be restarted.
    const QDBusConnection bus = frontfolder::sessionBusIfRunning();
    if (!bus.isConnected())
        return 0;
    const QString templatesFolder =
        QString::fromStdString(xdg::dataHome()) + u'/' + QLatin1String(ExtensionBundleIdentifier);
    const QList<frontfolder::OpenWindow> windows =
        frontfolder::openWindows(0, bus, QDeadlineTimer(2'000));
    for (const Manager& manager : running) {
        const std::optional<qint64> pid = busOwner(bus, manager.busName);
        if (!pid || runsTheExtension(*pid, templatesFolder))
            continue;
        // Its windows, each to be opened again at the folder it shows in front.
        QStringList folders;
        bool everyFolderKnown = true;
        for (const frontfolder::OpenWindow& open : windows) {
            if (open.window.fileManager != manager.kind)
                continue;
            if (open.folders.isEmpty())
                everyFolderKnown = false;
            else
                folders << open.folders.first();
        }
        if (!everyFolderKnown)
            continue;
        QProcess::execute(QLatin1String(manager.command), {QStringLiteral("-q")});
        if (!ended(*pid, QDeadlineTimer(5'000)))
            continue;
        // Each window in a file manager of its own session, holding none of this tool's pipes:
        // whoever runs the tool waits for it alone.
        for (const QString& folder : folders) {
            const QStringList command = windowAt(manager.kind, folder);
            QProcess window;
            window.setProgram(command.first());
            window.setArguments(command.mid(1));
            window.setWorkingDirectory(folder);
            window.setStandardInputFile(QProcess::nullDevice());
            window.setStandardOutputFile(QProcess::nullDevice());
            window.setStandardErrorFile(QProcess::nullDevice());
            window.startDetached();
        }
    }
    return 0;
}
