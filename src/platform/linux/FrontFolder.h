#pragma once

// The folder the user is looking at: the front file-manager window's, asked of the X server and
// the file manager itself. Exact where the file manager says (Nautilus's open locations, Dolphin
// confirming a folder), read from the window title where that shows a full path; otherwise
// nothing, never a guess.

#include <QDBusConnection>
#include <QDeadlineTimer>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

namespace brindlemark::frontfolder {

enum class FileManager { Other, Nautilus, Dolphin, Nemo, Caja, Thunar, PcManFm };

// The file manager a window belongs to, by its WM_CLASS instance and class names.
FileManager fileManagerOf(const QString& instance, const QString& className);

// What the X server says about a top-level window.
struct Window {
    quint32 id = 0;
    qint64 pid = 0;
    FileManager fileManager = FileManager::Other;
    QString title;
    QString gtkObjectPath; // a GTK application's D-Bus path for this window
    QString gtkBusName;    // and the unique bus name it is exported on
};

// The front file-manager window on the X display named by DISPLAY: the active window first,
// then the stacking order from the top. Windows of the process `ownPid`, hidden windows, the
// desktop, panels and menus are passed over; a dialog stands for the window it belongs to.
// Nothing without an X server or without a file-manager window.
std::optional<Window> frontFileManagerWindow(qint64 ownPid);

// The folder of Nautilus's active tab: `tabUris` are a window's tabs in tab order, `title` its
// title, which names the active tab's folder. Only file: locations count.
std::optional<QString> nautilusFolder(const QStringList& tabUris, const QString& title,
                                      const QString& home);

// The folder a window title shows when it shows a full path, with whatever the file manager
// appends ("/home/ann/Notes - File Manager"); only a folder that exists counts.
std::optional<QString> folderFromFullPathTitle(const QString& title);

// The whole query, bounded by `deadline` however slowly the file manager answers. `bus` is the
// session bus, or a disconnected one where there is none. A command waits at most a tenth of a
// second: the file manager gets 90 ms of it, the X server's few round trips the rest.
constexpr int FileManagerPatience = 90; // milliseconds
std::optional<QString> frontFolder(qint64 ownPid, const QDBusConnection& bus,
                                   QDeadlineTimer deadline = QDeadlineTimer(FileManagerPatience));

// A file-manager window and the local folders it shows, the one in front first: every tab's for
// Nautilus; for the others the folder its title names, when that is certain, and those of
// `candidates` that the file manager confirms (Dolphin) or watches under the title's name.
// Empty when nothing is certain.
struct OpenWindow {
    Window window;
    QStringList folders;
};

// Every file-manager window on the display, minimized ones too, from the bottom of the stack to
// the top; windows of `ownPid` and dialogs are left out. Under Wayland, Nautilus's windows alone,
// as it lists them (no X id). Bounded by `deadline` as frontFolder is.
constexpr int ShowPatience = 300; // milliseconds, for showing a new file
QList<OpenWindow> openWindows(qint64 ownPid, const QDBusConnection& bus, QDeadlineTimer deadline,
                              const QStringList& candidates = {});

// The file-manager windows on the X display named by DISPLAY: see openWindows.
QList<Window> fileManagerWindows(qint64 ownPid);

// The files and folders a process watches with inotify, as (device, inode): the GTK file managers
// watch every folder one of their windows shows. Only the user's own processes can be asked.
QSet<QPair<quint64, quint64>> watchedByProcess(qint64 pid);

// The session bus when one is known to exist; a disconnected connection otherwise, so that a
// machine without a bus never starts one just to be asked.
QDBusConnection sessionBusIfRunning();

} // namespace brindlemark::frontfolder
