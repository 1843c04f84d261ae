#include "platform/linux/FrontFolder.h"

#include "bridge/TextRules.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSet>
#include <QStandardPaths>
#include <QThread>
#include <QUrl>
#include <QXmlStreamReader>

#include <xcb/xcb.h>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

namespace brindlemark::frontfolder {

FileManager fileManagerOf(const QString& instance, const QString& className) {
    static const struct {
        const char* name;
        FileManager fileManager;
    } known[] = {
        {"org.gnome.nautilus", FileManager::Nautilus},
        {"nautilus", FileManager::Nautilus},
        {"dolphin", FileManager::Dolphin},
        {"org.kde.dolphin", FileManager::Dolphin},
        {"nemo", FileManager::Nemo},
        {"caja", FileManager::Caja},
        {"thunar", FileManager::Thunar},
        {"pcmanfm", FileManager::PcManFm},
        {"pcmanfm-qt", FileManager::PcManFm},
    };
    for (const QString& name : {instance, className})
        for (const auto& entry : known)
            if (name.compare(QLatin1String(entry.name), Qt::CaseInsensitive) == 0)
                return entry.fileManager;
    return FileManager::Other;
}

// ---- the X server -------------------------------------------------------------------------

namespace {

enum Atom : std::size_t {
    ClientListStacking,
    ClientList,
    ActiveWindow,
    WmPid,
    WmName,
    Utf8String,
    WindowType,
    WmState,
    StateHidden,
    TypeDesktop,
    TypeDock,
    TypeToolbar,
    TypeMenu,
    TypeSplash,
    TypeDropdownMenu,
    TypePopupMenu,
    TypeTooltip,
    TypeNotification,
    TypeCombo,
    TypeDnd,
    GtkObjectPath,
    GtkBusName,
    AtomCount
};

constexpr std::array<const char*, AtomCount> atomNames{
    "_NET_CLIENT_LIST_STACKING",
    "_NET_CLIENT_LIST",
    "_NET_ACTIVE_WINDOW",
    "_NET_WM_PID",
    "_NET_WM_NAME",
    "UTF8_STRING",
    "_NET_WM_WINDOW_TYPE",
    "_NET_WM_STATE",
    "_NET_WM_STATE_HIDDEN",
    "_NET_WM_WINDOW_TYPE_DESKTOP",
    "_NET_WM_WINDOW_TYPE_DOCK",
    "_NET_WM_WINDOW_TYPE_TOOLBAR",
    "_NET_WM_WINDOW_TYPE_MENU",
    "_NET_WM_WINDOW_TYPE_SPLASH",
    "_NET_WM_WINDOW_TYPE_DROPDOWN_MENU",
    "_NET_WM_WINDOW_TYPE_POPUP_MENU",
    "_NET_WM_WINDOW_TYPE_TOOLTIP",
    "_NET_WM_WINDOW_TYPE_NOTIFICATION",
    "_NET_WM_WINDOW_TYPE_COMBO",
    "_NET_WM_WINDOW_TYPE_DND",
    "_GTK_WINDOW_OBJECT_PATH",
    "_GTK_UNIQUE_BUS_NAME",
};

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter>;

class Display {
public:
    Display() {
        // Without DISPLAY there is no X server to ask (and xcb would not find one either).
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            return;
        int screenNumber = 0;
        m_connection = xcb_connect(nullptr, &screenNumber);
        if (xcb_connection_has_error(m_connection))
            return;
        xcb_screen_iterator_t screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
        for (int i = 0; i < screenNumber && screen.rem; ++i)
            xcb_screen_next(&screen);
        if (!screen.rem)
            return;
        m_root = screen.data->root;
        std::array<xcb_intern_atom_cookie_t, AtomCount> cookies;
        for (std::size_t i = 0; i < AtomCount; ++i)
            cookies[i] = xcb_intern_atom(m_connection, 1, std::uint16_t(std::strlen(atomNames[i])),
                                         atomNames[i]);
        for (std::size_t i = 0; i < AtomCount; ++i) {
            Reply<xcb_intern_atom_reply_t> reply(
                xcb_intern_atom_reply(m_connection, cookies[i], nullptr));
            m_atoms[i] = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
        }
        m_usable = true;
    }
    ~Display() {
        if (m_connection)
            xcb_disconnect(m_connection);
    }
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    bool usable() const { return m_usable; }
    xcb_window_t root() const { return m_root; }
    xcb_atom_t atom(Atom a) const { return m_atoms[a]; }

    xcb_get_property_cookie_t request(xcb_window_t window, xcb_atom_t property,
                                      std::uint32_t words = 1024) {
        return xcb_get_property(m_connection, 0, window, property, XCB_ATOM_ANY, 0, words);
    }
    Reply<xcb_get_property_reply_t> reply(xcb_get_property_cookie_t cookie) {
        return Reply<xcb_get_property_reply_t>(
            xcb_get_property_reply(m_connection, cookie, nullptr));
    }

    // The windows from the bottom of the stack to the top: the window manager's list, else (no
    // window manager) the root's mapped children in their stacking order.
    QList<xcb_window_t> stackingOrder() {
        for (Atom list : {ClientListStacking, ClientList}) {
            const QList<xcb_window_t> windows = words(reply(request(m_root, atom(list), 4096)));
            if (!windows.isEmpty())
                return windows;
        }
        QList<xcb_window_t> children;
        Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, m_root), nullptr));
        if (!tree)
            return children;
        const xcb_window_t* child = xcb_query_tree_children(tree.get());
        for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
            Reply<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
                m_connection, xcb_get_window_attributes(m_connection, child[i]), nullptr));
            if (attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
                !attributes->override_redirect)
                children << child[i];
        }
        return children;
    }

    static QList<std::uint32_t> words(const Reply<xcb_get_property_reply_t>& reply) {
        QList<std::uint32_t> list;
        if (!reply || reply->format != 32)
            return list;
        const auto* data = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
        list.reserve(xcb_get_property_value_length(reply.get()) / 4);
        for (int i = 0; i < xcb_get_property_value_length(reply.get()) / 4; ++i)
            list << data[i];
        return list;
    }
    static QByteArray bytes(const Reply<xcb_get_property_reply_t>& reply) {
        if (!reply || reply->format != 8)
            return QByteArray();
        return QByteArray(static_cast<const char*>(xcb_get_property_value(reply.get())),
                          xcb_get_property_value_length(reply.get()));
    }

private:
    xcb_connection_t* m_connection = nullptr;
    xcb_window_t m_root = XCB_WINDOW_NONE;
    std::array<xcb_atom_t, AtomCount> m_atoms{};
    bool m_usable = false;
};

// One window's properties, asked for together.
struct Properties {
    Window window;
    xcb_window_t transientFor = XCB_WINDOW_NONE;
    QList<std::uint32_t> types, states;
};

Properties readProperties(Display& display, xcb_window_t id) {
    const xcb_get_property_cookie_t pid = display.request(id, display.atom(WmPid), 1),
                                    wmClass = display.request(id, XCB_ATOM_WM_CLASS, 256),
                                    netName = display.request(id, display.atom(WmName), 1024),
                                    name = display.request(id, XCB_ATOM_WM_NAME, 1024),
                                    type = display.request(id, display.atom(WindowType), 32),
                                    state = display.request(id, display.atom(WmState), 32),
                                    transient = display.request(id, XCB_ATOM_WM_TRANSIENT_FOR, 1),
                                    objectPath =
                                        display.request(id, display.atom(GtkObjectPath), 256),
                                    busName = display.request(id, display.atom(GtkBusName), 256);
    Properties p;
    p.window.id = id;
    if (const QList<std::uint32_t> words = Display::words(display.reply(pid)); !words.isEmpty())
        p.window.pid = words.first();
    const QList<QByteArray> classNames = Display::bytes(display.reply(wmClass)).split('\0');
    p.window.fileManager = fileManagerOf(QString::fromLatin1(classNames.value(0)),
                                         QString::fromLatin1(classNames.value(1)));
    const QByteArray utf8Title = Display::bytes(display.reply(netName));
    const QByteArray latin1Title = Display::bytes(display.reply(name));
    p.window.title =
        utf8Title.isEmpty() ? QString::fromLatin1(latin1Title) : QString::fromUtf8(utf8Title);
    p.types = Display::words(display.reply(type));
    p.states = Display::words(display.reply(state));
    if (const QList<std::uint32_t> owner = Display::words(display.reply(transient));
        !owner.isEmpty())
        p.transientFor = owner.first();
    p.window.gtkObjectPath = QString::fromUtf8(Display::bytes(display.reply(objectPath)));
    p.window.gtkBusName = QString::fromUtf8(Display::bytes(display.reply(busName)));
    return p;
}

bool passedOver(const Display& display, const Properties& p, qint64 ownPid,
                bool hiddenCount = false) {
    if (ownPid != 0 && p.window.pid == ownPid)
        return true;
    if (!hiddenCount && p.states.contains(display.atom(StateHidden)))
        return true;
    for (Atom kind : {TypeDesktop, TypeDock, TypeToolbar, TypeMenu, TypeSplash, TypeDropdownMenu,
                      TypePopupMenu, TypeTooltip, TypeNotification, TypeCombo, TypeDnd})
        if (display.atom(kind) != XCB_ATOM_NONE && p.types.contains(display.atom(kind)))
            return true;
    return false;
}

} // namespace

std::optional<Window> frontFileManagerWindow(qint64 ownPid) {
    Display display;
    if (!display.usable())
        return std::nullopt;
    QList<xcb_window_t> order = display.stackingOrder();
    std::reverse(order.begin(), order.end());
    const QList<std::uint32_t> active = Display::words(
        display.reply(display.request(display.root(), display.atom(ActiveWindow), 1)));
    if (!active.isEmpty() && active.first() != XCB_WINDOW_NONE)
        order.prepend(active.first());

    for (xcb_window_t id : order) {
        Properties p = readProperties(display, id);
        if (passedOver(display, p, ownPid))
            continue;
        // A dialog stands for the window it belongs to (a short chain; a loop ends it).
        for (int hops = 0;
             p.transientFor != XCB_WINDOW_NONE && p.transientFor != display.root() && hops < 8;
             ++hops)
            p = readProperties(display, p.transientFor);
        if (passedOver(display, p, ownPid))
            continue;
        if (p.window.fileManager != FileManager::Other)
            return p.window;
    }
    return std::nullopt;
}

QList<Window> fileManagerWindows(qint64 ownPid) {
    QList<Window> windows;
    Display display;
    if (!display.usable())
        return windows;
    for (xcb_window_t id : display.stackingOrder()) {
        const Properties p = readProperties(display, id);
        // A minimized window still shows its folder; a dialog shows none.
        if (p.window.fileManager != FileManager::Other && p.transientFor == XCB_WINDOW_NONE &&
            !passedOver(display, p, ownPid, true))
            windows << p.window;
    }
    return windows;
}

// ---- what a window shows --------------------------------------------------------------------

namespace {

// A file: URI as a path, percent-decoded; nothing for any other kind of location.
std::optional<QString> localPath(const QString& uri) {
    const QUrl url(uri, QUrl::StrictMode);
    if (!url.isValid() || url.scheme() != QLatin1String("file") || !url.host().isEmpty())
        return std::nullopt;
    const QString path = url.toLocalFile();
    if (path.isEmpty() || !path.startsWith(u'/'))
        return std::nullopt;
    return withoutTrailingSlashes(path);
}

// The name a file manager shows for a folder: its last component, "/" for the root.
QString folderName(const QString& path) {
    return path == QLatin1String("/") ? path : path.mid(path.lastIndexOf(u'/') + 1);
}

// The name of a location of any kind as it would appear in a title.
QString locationName(const QString& uri) {
    if (const std::optional<QString> path = localPath(uri))
        return folderName(*path);
    const QUrl url(uri);
    return withoutTrailingSlashes(url.path()).section(u'/', -1);
}

bool isFolder(const QString& path) {
    const QFileInfo info(path);
    return info.isAbsolute() && info.isDir();
}

} // namespace

std::optional<QString> nautilusFolder(const QStringList& tabUris, const QString& title,
                                      const QString& home) {
    // The title names the active tab. Several tabs may bear that name; they must agree, and
    // must all be folders on disk, or the answer is not certain.
    std::optional<QString> named;
    bool anyNamed = false;
    for (const QString& uri : tabUris) {
        if (locationName(uri) != title)
            continue;
        anyNamed = true;
        const std::optional<QString> path = localPath(uri);
        if (!path || (named && *named != *path))
            return std::nullopt;
        named = path;
    }
    if (anyNamed)
        return named;

    // No tab by that name: the title is a display name, which only the home folder ("Home", in
    // the user's language) and places that are not folders have. Certain when the window shows
    // one place, or when the home folder is the only such place among its tabs.
    if (tabUris.size() == 1)
        return localPath(tabUris.first());
    const QString homePath = withoutTrailingSlashes(home);
    std::optional<QString> displayNamed;
    int displayNamedPlaces = 0;
    for (const QString& uri : tabUris) {
        const std::optional<QString> path = localPath(uri);
        if (path && *path != homePath)
            continue;
        if (!path || !displayNamed)
            ++displayNamedPlaces;
        displayNamed = path;
    }
    return displayNamedPlaces == 1 ? displayNamed : std::nullopt;
}

std::optional<QString> folderFromFullPathTitle(const QString& title) {
    // The path may stand alone ("/srv/x"), be followed by the file manager's name ("/srv/x -
    // Thunar", "/srv/x — Dolphin") or follow the folder's name ("x - /srv/x", as Nemo has it).
    // Try every run of the title's " - " parts that starts with a path, longest first, since a
    // folder's own name may hold " - " too.
    static const QRegularExpression separator(QStringLiteral(" [-–—] "));
    QList<qsizetype> starts{0}, ends;
    for (QRegularExpressionMatchIterator it = separator.globalMatch(title); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        ends.prepend(match.capturedStart());
        starts << match.capturedEnd();
    }
    ends.prepend(title.size());
    for (const qsizetype start : starts) {
        for (const qsizetype end : ends) {
            if (end <= start)
                break;
            QString candidate = title.mid(start, end - start);
            if (candidate == QLatin1String("~") || candidate.startsWith(QLatin1String("~/")))
                candidate = QDir::homePath() + candidate.mid(1);
            if (candidate.startsWith(u'/') && isFolder(candidate))
                return withoutTrailingSlashes(QDir::cleanPath(candidate));
        }
    }
    return std::nullopt;
}

// ---- asking the file managers -----------------------------------------------------------------

namespace {

// A call that waits no longer than what is left of the query's time.
std::optional<QDBusMessage> callWithin(const QDBusConnection& bus, const QDBusMessage& call,
                                       QDeadlineTimer deadline) {
    const qint64 left = deadline.remainingTime();
    if (left <= 0)
        return std::nullopt;
    QDBusMessage answer = QDBusConnection(bus).call(call, QDBus::Block, int(left));
    if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().isEmpty())
        return std::nullopt;
    return answer;
}

// Nautilus's windows and the locations of their tabs, by the windows' object paths.
std::optional<QMap<QString, QStringList>>
nautilusWindows(const QDBusConnection& bus, const QString& service, QDeadlineTimer deadline) {
    QDBusMessage get = QDBusMessage::createMethodCall(
        service, QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << QStringLiteral("org.freedesktop.FileManager1")
        << QStringLiteral("OpenWindowsWithLocations");
    get.setAutoStartService(false); // asked, never started
    const std::optional<QDBusMessage> answer = callWithin(bus, get, deadline);
    if (!answer)
        return std::nullopt;
    const QVariant value = answer->arguments().first().value<QDBusVariant>().variant();
    if (!value.canConvert<QDBusArgument>())
        return std::nullopt;
    const QDBusArgument argument = value.value<QDBusArgument>();
    if (argument.currentSignature() != QLatin1String("a{sas}"))
        return std::nullopt;
    QMap<QString, QStringList> windows;
    argument >> windows;
    return windows;
}

std::optional<QString> nautilusWindowFolder(const QDBusConnection& bus, const Window& window,
                                            QDeadlineTimer deadline) {
    if (window.gtkObjectPath.isEmpty())
        return std::nullopt;
    const QString service =
        window.gtkBusName.isEmpty() ? QStringLiteral("org.gnome.Nautilus") : window.gtkBusName;
    const std::optional<QMap<QString, QStringList>> windows =
        nautilusWindows(bus, service, deadline);
    if (!windows || !windows->contains(window.gtkObjectPath))
        return std::nullopt;
    return nautilusFolder(windows->value(window.gtkObjectPath), window.title, QDir::homePath());
}

// The folders a Dolphin title that is not a full path may name: the home folder's folder of
// that name, the root, and the home folder itself, whose title is "Home".
QStringList dolphinCandidates(const QString& title) {
    QString name = title;
    static const QRegularExpression ending(QStringLiteral(" [-–—] Dolphin$"));
    name.remove(ending);
    const QString home = withoutTrailingSlashes(QDir::homePath());
    QStringList candidates;
    if (name == QLatin1String("/"))
        candidates << name;
    else if (!name.isEmpty() && !name.contains(u'/') && isFolder(home + u'/' + name))
        candidates << home + u'/' + name;
    if (name == QLatin1String("Home") || name == folderName(home))
        candidates << home;
    return candidates;
}

// The D-Bus object of a Dolphin window: the one whose winId is this X window.
std::optional<QString> dolphinWindowObject(const QDBusConnection& bus, const QString& service,
                                           const Window& window, QDeadlineTimer deadline) {
    QDBusMessage introspect = QDBusMessage::createMethodCall(
        service, QStringLiteral("/dolphin"), QStringLiteral("org.freedesktop.DBus.Introspectable"),
        QStringLiteral("Introspect"));
    const std::optional<QDBusMessage> tree = callWithin(bus, introspect, deadline);
    if (!tree)
        return std::nullopt;
    QXmlStreamReader xml(tree->arguments().first().toString());
    while (xml.readNextStartElement()) {
        if (xml.name() != QLatin1String("node")) {
            xml.skipCurrentElement();
            continue;
        }
        const QString child = xml.attributes().value(QLatin1String("name")).toString();
        if (child.isEmpty())
            continue; // the root node: its children follow
        xml.skipCurrentElement();
        const QString path = QStringLiteral("/dolphin/") + child;
        const std::optional<QDBusMessage> id = callWithin(
            bus,
            QDBusMessage::createMethodCall(service, path, QStringLiteral("org.kde.KMainWindow"),
                                           QStringLiteral("winId")),
            deadline);
        if (!id)
            return std::nullopt;
        if (id->arguments().first().toLongLong() == qint64(window.id))
            return path;
    }
    return std::nullopt;
}

// Whether a folder is open in a Dolphin window, in any tab or view.
std::optional<bool> dolphinHasOpen(const QDBusConnection& bus, const QString& service,
                                   const QString& objectPath, const QString& folder,
                                   QDeadlineTimer deadline) {
    QDBusMessage ask = QDBusMessage::createMethodCall(service, objectPath,
                                                      QStringLiteral("org.kde.dolphin.MainWindow"),
                                                      QStringLiteral("isUrlOpen"));
    ask << QUrl::fromLocalFile(folder).toString(QUrl::FullyEncoded);
    const std::optional<QDBusMessage> answer = callWithin(bus, ask, deadline);
    if (!answer)
        return std::nullopt;
    return answer->arguments().first().toBool();
}

QString dolphinService(const Window& window) {
    return QStringLiteral("org.kde.dolphin-%1").arg(window.pid);
}

struct DolphinWindow {
    QString service, path, title;
    qint64 pid = 0;
    bool active = false;
};

// The folder a Dolphin window shows, by its title: a full path, or a folder name when exactly one
// folder of that name is open there; either only once the window confirms it has it open.
std::optional<QString> dolphinFolderOf(const QDBusConnection& bus, const DolphinWindow& window,
                                       QDeadlineTimer deadline) {
    auto isOpen = [&](const QString& folder) {
        return dolphinHasOpen(bus, window.service, window.path, folder, deadline);
    };
    if (const std::optional<QString> titled = folderFromFullPathTitle(window.title)) {
        const std::optional<bool> open = isOpen(*titled);
        return open && *open ? titled : std::nullopt;
    }
    std::optional<QString> found;
    for (const QString& candidate : dolphinCandidates(window.title)) {
        const std::optional<bool> open = isOpen(candidate);
        if (!open)
            return std::nullopt;
        if (!*open)
            continue;
        if (found)
            return std::nullopt;
        found = candidate;
    }
    return found;
}

std::optional<QString> dolphinWindowFolder(const QDBusConnection& bus, const Window& window,
                                           QDeadlineTimer deadline) {
    if (window.pid <= 0)
        return std::nullopt;
    const QString service = dolphinService(window);
    const std::optional<QString> objectPath = dolphinWindowObject(bus, service, window, deadline);
    if (!objectPath)
        return std::nullopt;
    return dolphinFolderOf(bus, {service, *objectPath, window.title}, deadline);
}

bool onWayland() {
    const QByteArray session = qgetenv("XDG_SESSION_TYPE");
    return session == "wayland" ||
           (session.isEmpty() && !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"));
}

// ---- under Wayland ------------------------------------------------------------------------------
//
// No program may ask a Wayland compositor which window of another program is in front: the answer
// comes from the file manager itself (Dolphin says which of its windows is active), from the
// desktop's shell (Brindlemark's GNOME Shell extension names the focused window and the file
// manager's window used last) or from its scripting (a KWin script names the active window and the
// Dolphin window highest in the stack). Where none of them answers, only a single window is
// certain.

constexpr auto ShellService = "org.brindlemark.FrontWindow";
constexpr auto ShellPath = "/org/brindlemark/FrontWindow";
const QString NautilusId = QStringLiteral("org.gnome.Nautilus");

// A window's folder when its tabs leave no doubt: one location, or every tab on the same one (the
// active tab is not known without the window's title).
std::optional<QString> onlyFolder(const QStringList& tabUris) {
    std::optional<QString> folder;
    for (const QString& uri : tabUris) {
        const std::optional<QString> path = localPath(uri);
        if (!path || (folder && *folder != *path))
            return std::nullopt;
        folder = path;
    }
    return folder;
}

// What the Shell extension says: the focused window's application and GTK object path, and the
// object path of the Nautilus window used last. Nothing without the extension.
struct ShellAnswer {
    QString focusedApp, focusedPath, lastPath;
};
std::optional<ShellAnswer> askShell(const QDBusConnection& bus, QDeadlineTimer deadline) {
    QDBusMessage get =
        QDBusMessage::createMethodCall(QLatin1String(ShellService), QLatin1String(ShellPath),
                                       QLatin1String(ShellService), QStringLiteral("Get"));
    get << QStringList{NautilusId};
    const std::optional<QDBusMessage> answer = callWithin(bus, get, deadline);
    if (!answer || answer->arguments().size() != 3)
        return std::nullopt;
    return ShellAnswer{answer->arguments()[0].toString(), answer->arguments()[1].toString(),
                       answer->arguments()[2].toString()};
}

// A Dolphin window as its own D-Bus object tells it.

// Every window of every Dolphin on the bus, each asked whether it is the active one.
std::optional<QList<DolphinWindow>> dolphinWindows(const QDBusConnection& bus,
                                                   QDeadlineTimer deadline) {
    const std::optional<QDBusMessage> names =
        callWithin(bus,
                   QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                                  QStringLiteral("/org/freedesktop/DBus"),
                                                  QStringLiteral("org.freedesktop.DBus"),
                                                  QStringLiteral("ListNames")),
                   deadline);
    if (!names)
        return std::nullopt;
    QList<DolphinWindow> windows;
    static const QRegularExpression dolphinName(QStringLiteral("^org\\.kde\\.dolphin-(\\d+)$"));
    for (const QString& service : names->arguments().first().toStringList()) {
        const QRegularExpressionMatch match = dolphinName.match(service);
        if (!match.hasMatch())
            continue;
        const std::optional<QDBusMessage> tree = callWithin(
            bus,
            QDBusMessage::createMethodCall(service, QStringLiteral("/dolphin"),
                                           QStringLiteral("org.freedesktop.DBus.Introspectable"),
                                           QStringLiteral("Introspect")),
            deadline);
        if (!tree)
            return std::nullopt;
        QXmlStreamReader xml(tree->arguments().first().toString());
        while (xml.readNextStartElement()) {
            if (xml.name() != QLatin1String("node")) {
                xml.skipCurrentElement();
                continue;
            }
            const QString child = xml.attributes().value(QLatin1String("name")).toString();
            if (child.isEmpty())
                continue; // the root node: its children follow
            xml.skipCurrentElement();
            QDBusMessage getAll = QDBusMessage::createMethodCall(
                service, QStringLiteral("/dolphin/") + child,
                QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"));
            getAll << QStringLiteral("org.qtproject.Qt.QWidget");
            const std::optional<QDBusMessage> properties = callWithin(bus, getAll, deadline);
            if (!properties)
                return std::nullopt;
            QVariantMap values;
            properties->arguments().first().value<QDBusArgument>() >> values;
            windows << DolphinWindow{service, QStringLiteral("/dolphin/") + child,
                                     values.value(QStringLiteral("windowTitle")).toString(),
                                     match.captured(1).toLongLong(),
                                     values.value(QStringLiteral("isActiveWindow")).toBool()};
        }
    }
    return windows;
}

// KWin's answer to the script below: the active window's class, process and caption, and the
// process and caption of the Dolphin window highest in the stack (minimized ones passed over).
struct KWinAnswer {
    QString activeClass, activeCaption, lastCaption;
    qint64 activePid = 0, lastPid = 0;
};

// Receives the script's call, in a thread of its own so that it arrives while the query waits.
class KWinCallback : public QDBusVirtualObject {
public:
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& bus) override {
        const QVariantList a = call.arguments();
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (a.size() == 5 && !m_answer)
                m_answer = KWinAnswer{a[0].toString(), a[2].toString(), a[4].toString(),
                                      a[1].toLongLong(), a[3].toLongLong()};
        }
        m_arrived.notify_all();
        bus.send(call.createReply());
        return true;
    }
    std::optional<KWinAnswer> wait(QDeadlineTimer deadline) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_arrived.wait_for(lock,
                           std::chrono::milliseconds(std::max<qint64>(0, deadline.remainingTime())),
                           [this] { return m_answer.has_value(); });
        return m_answer;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::optional<KWinAnswer> m_answer;
};

// Loads a one-shot script into KWin that calls back with what it sees, and waits for it within
// the deadline. KWin 5 names the active window activeClient, KWin 6 activeWindow.
std::optional<KWinAnswer> askKWin(const QDBusConnection& bus, QDeadlineTimer deadline) {
    static std::atomic<int> serial{0};
    const QString name = QStringLiteral("brindlemark-front-%1-%2")
                             .arg(QCoreApplication::applicationPid())
                             .arg(++serial);
    const QString objectPath = QStringLiteral("/org/brindlemark/KWinAnswer/%1").arg(serial.load());
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    QFile script((runtime.isEmpty() ? QDir::tempPath() : runtime) + u'/' + name +
                 QStringLiteral(".js"));
    const QByteArray text = QStringLiteral(R"((function () {
    function dolphin(w) {
        var c = String(w.resourceClass).toLowerCase();
        return c == "dolphin" || c == "org.kde.dolphin";
    }
    function owner(w) {
        for (var hops = 0; w && w.transient && w.transientFor && hops < 8; ++hops)
            w = w.transientFor;
        return w;
    }
    var active = owner(workspace.activeWindow !== undefined ? workspace.activeWindow
                                                           : workspace.activeClient);
    var order = workspace.stackingOrder, last = null;
    if (order === undefined) { // KWin 5: each window knows its place in the stack
        var all = workspace.clientList();
        order = [];
        for (var k = 0; k < all.length; ++k)
            order.push(all[k]);
        order.sort(function (a, b) { return a.stackingOrder - b.stackingOrder; });
    }
    for (var i = order.length - 1; i >= 0 && !last; --i)
        if (dolphin(order[i]) && order[i].normalWindow && !order[i].minimized)
            last = order[i];
    callDBus("%1", "%2", "org.brindlemark.KWinAnswer", "Answer",
             active ? String(active.resourceClass) : "", active ? String(active.pid) : "0",
             active ? String(active.caption) : "", last ? String(last.pid) : "0",
             last ? String(last.caption) : "");
})();
)")
                                .arg(QDBusConnection(bus).baseService(), objectPath)
                                .toUtf8();
    if (!script.open(QIODevice::WriteOnly) || script.write(text) != text.size())
        return std::nullopt;
    script.close();
    const auto removeScript = qScopeGuard([&] { script.remove(); });

    KWinCallback callback;
    QThread thread;
    callback.moveToThread(&thread);
    thread.start();
    QDBusConnection connection(bus);
    const auto stop = qScopeGuard([&] {
        connection.unregisterObject(objectPath);
        thread.quit();
        thread.wait();
    });
    if (!connection.registerVirtualObject(objectPath, &callback))
        return std::nullopt;

    QDBusMessage load = QDBusMessage::createMethodCall(
        QStringLiteral("org.kde.KWin"), QStringLiteral("/Scripting"),
        QStringLiteral("org.kde.kwin.Scripting"), QStringLiteral("loadScript"));
    load << script.fileName() << name;
    const std::optional<QDBusMessage> loaded = callWithin(bus, load, deadline);
    if (!loaded || loaded->arguments().first().toInt() < 0)
        return std::nullopt;
    // Unloaded without waiting for KWin to say so: the name is never used again.
    const auto unload = qScopeGuard([&] {
        QDBusMessage message = QDBusMessage::createMethodCall(
            QStringLiteral("org.kde.KWin"), QStringLiteral("/Scripting"),
            QStringLiteral("org.kde.kwin.Scripting"), QStringLiteral("unloadScript"));
        message << name;
        connection.send(message);
    });
    // The script's object: /N on KWin 5, /Scripting/ScriptN on KWin 6.
    const int id = loaded->arguments().first().toInt();
    bool running = false;
    for (const QString& path :
         {QStringLiteral("/%1").arg(id), QStringLiteral("/Scripting/Script%1").arg(id)}) {
        const QDBusMessage ran =
            connection.call(QDBusMessage::createMethodCall(QStringLiteral("org.kde.KWin"), path,
                                                           QStringLiteral("org.kde.kwin.Script"),
                                                           QStringLiteral("run")),
                            QDBus::Block, int(std::max<qint64>(1, deadline.remainingTime())));
        if ((running = ran.type() == QDBusMessage::ReplyMessage) || deadline.hasExpired())
            break;
    }
    if (!running)
        return std::nullopt;
    return callback.wait(deadline);
}

// The Dolphin window KWin names by process and caption (the window's title and Dolphin's name).
std::optional<DolphinWindow> dolphinNamed(const QList<DolphinWindow>& windows, qint64 pid,
                                          const QString& caption) {
    std::optional<DolphinWindow> found;
    for (const DolphinWindow& window : windows) {
        if (window.pid != pid)
            continue;
        static const QRegularExpression appended(QStringLiteral(" [-–—] Dolphin( <\\d+>)?$"));
        if (QString(caption).remove(appended) != window.title && caption != window.title)
            continue;
        if (found)
            return std::nullopt; // two windows of one caption: which one is not certain
        found = window;
    }
    return found;
}

std::optional<QString> waylandFolder(qint64 ownPid, const QDBusConnection& bus,
                                     QDeadlineTimer deadline) {
    const std::optional<QMap<QString, QStringList>> nautilus =
        nautilusWindows(bus, NautilusId, deadline);
    const std::optional<ShellAnswer> shell = nautilus ? askShell(bus, deadline) : std::nullopt;
    const auto nautilusWindow = [&](const QString& path) -> std::optional<QString> {
        if (path.isEmpty() || !nautilus->contains(path))
            return std::nullopt;
        return onlyFolder(nautilus->value(path));
    };
    // A focused Nautilus window, as the Shell extension names it.
    if (shell && shell->focusedApp == NautilusId)
        return nautilusWindow(shell->focusedPath);
    // A Dolphin window that says it is active.
    const std::optional<QList<DolphinWindow>> dolphins = dolphinWindows(bus, deadline);
    for (const DolphinWindow& window : dolphins ? *dolphins : QList<DolphinWindow>())
        if (window.active)
            return dolphinFolderOf(bus, window, deadline);
    // Another application in front: the Nautilus window used last, as the Shell remembers it...
    if (shell && !shell->lastPath.isEmpty())
        return nautilusWindow(shell->lastPath);
    // ... or the Dolphin window highest in KWin's stack.
    if (dolphins && !dolphins->isEmpty()) {
        if (const std::optional<KWinAnswer> kwin = askKWin(bus, deadline)) {
            const std::optional<DolphinWindow> last =
                kwin->lastPid > 0 && kwin->lastPid != ownPid
                    ? dolphinNamed(*dolphins, kwin->lastPid, kwin->lastCaption)
                    : std::nullopt;
            return last ? dolphinFolderOf(bus, *last, deadline) : std::nullopt;
        }
    }
    // Nothing says which window is in front: certain only when there is a single one.
    const qsizetype nautilusCount = nautilus ? nautilus->size() : 0,
                    dolphinCount = dolphins ? dolphins->size() : 0;
    if (nautilusCount + dolphinCount != 1)
        return std::nullopt;
    return nautilusCount == 1 ? onlyFolder(nautilus->first())
                              : dolphinFolderOf(bus, dolphins->first(), deadline);
}

} // namespace

std::optional<QString> frontFolder(qint64 ownPid, const QDBusConnection& bus,
                                   QDeadlineTimer deadline) {
    std::optional<QString> folder;
    if (onWayland()) {
        folder = bus.isConnected() ? waylandFolder(ownPid, bus, deadline) : std::nullopt;
        return folder && isFolder(*folder) ? folder : std::nullopt;
    }
    const std::optional<Window> window = frontFileManagerWindow(ownPid);
    if (!window)
        return std::nullopt;
    switch (window->fileManager) {
    case FileManager::Nautilus:
        folder = bus.isConnected() ? nautilusWindowFolder(bus, *window, deadline) : std::nullopt;
        break;
    case FileManager::Dolphin:
        folder = bus.isConnected() ? dolphinWindowFolder(bus, *window, deadline) : std::nullopt;
        break;
    case FileManager::Nemo:
    case FileManager::Caja:
    case FileManager::Thunar:
    case FileManager::PcManFm:
        folder = folderFromFullPathTitle(window->title);
        break;
    case FileManager::Other:
        break;
    }
    // Only a folder that is there: a location deleted meanwhile is no answer.
    return folder && isFolder(*folder) ? folder : std::nullopt;
}

namespace {

// The folder's name a title shows, without the file manager's own name after it.
QString titledName(const Window& window) {
    static const QRegularExpression appended(
        QStringLiteral(" [-–—] (Thunar|Caja|Nemo|Dolphin|File Manager)$"));
    return QString(window.title).remove(appended);
}

void addFolder(QStringList& folders, const std::optional<QString>& folder) {
    if (folder && isFolder(*folder) && !folders.contains(*folder))
        folders << *folder;
}

} // namespace

QSet<QPair<quint64, quint64>> watchedByProcess(qint64 pid) {
    QSet<QPair<quint64, quint64>> watched;
    const QString fds = QStringLiteral("/proc/%1/fd").arg(pid);
    const QStringList entries = QDir(fds).entryList(QDir::System | QDir::Files);
    static const QRegularExpression watch(
        QStringLiteral("^inotify wd:\\S+ ino:([0-9a-f]+) sdev:([0-9a-f]+)"),
        QRegularExpression::MultilineOption);
    for (const QString& fd : entries) {
        char target[32] = {};
        const QByteArray link = QFile::encodeName(fds + u'/' + fd);
        if (::readlink(link.constData(), target, sizeof target - 1) <= 0 ||
            std::strcmp(target, "anon_inode:inotify") != 0)
            continue;
        QFile info(QStringLiteral("/proc/%1/fdinfo/%2").arg(pid).arg(fd));
        if (!info.open(QIODevice::ReadOnly))
            continue;
        const QString text = QString::fromLatin1(info.readAll());
        for (QRegularExpressionMatchIterator it = watch.globalMatch(text); it.hasNext();) {
            const QRegularExpressionMatch m = it.next();
            // The kernel writes the device as its own dev_t: 12 bits of major, 20 of minor.
            const quint64 kernelDevice = m.captured(2).toULongLong(nullptr, 16);
            watched.insert(
                {quint64(makedev(unsigned(kernelDevice >> 20), unsigned(kernelDevice & 0xfffff))),
                 m.captured(1).toULongLong(nullptr, 16)});
        }
    }
    return watched;
}

QList<OpenWindow> openWindows(qint64 ownPid, const QDBusConnection& bus, QDeadlineTimer deadline,
                              const QStringList& candidates) {
    QList<OpenWindow> open;
    const QString home = withoutTrailingSlashes(QDir::homePath());
    if (onWayland()) {
        // Nautilus alone says what its windows show; which of them is which is unknown.
        const std::optional<QMap<QString, QStringList>> windows =
            bus.isConnected() ? nautilusWindows(bus, QStringLiteral("org.gnome.Nautilus"), deadline)
                              : std::nullopt;
        for (auto it = windows ? windows->begin() : QMap<QString, QStringList>::const_iterator();
             windows && it != windows->end(); ++it) {
            OpenWindow window;
            window.window.fileManager = FileManager::Nautilus;
            window.window.gtkBusName = QStringLiteral("org.gnome.Nautilus");
            for (const QString& uri : it.value())
                addFolder(window.folders, localPath(uri));
            open << window;
        }
        return open;
    }

    QMap<QString, std::optional<QMap<QString, QStringList>>> nautilusByService;
    QMap<qint64, QSet<QPair<quint64, quint64>>> watchedByPid;
    for (const Window& window : fileManagerWindows(ownPid)) {
        OpenWindow entry{window, {}};
        switch (window.fileManager) {
        case FileManager::Nautilus: {
            if (!bus.isConnected() || window.gtkObjectPath.isEmpty())
                break;
            const QString service = window.gtkBusName.isEmpty()
                                        ? QStringLiteral("org.gnome.Nautilus")
                                        : window.gtkBusName;
            if (!nautilusByService.contains(service))
                nautilusByService.insert(service, nautilusWindows(bus, service, deadline));
            const std::optional<QMap<QString, QStringList>>& windows = nautilusByService[service];
            if (!windows || !windows->contains(window.gtkObjectPath))
                break;
            // The tab in front first, then every other tab's folder.
            const QStringList tabs = windows->value(window.gtkObjectPath);
            addFolder(entry.folders, nautilusFolder(tabs, window.title, home));
            for (const QString& uri : tabs)
                addFolder(entry.folders, localPath(uri));
            break;
        }
        case FileManager::Dolphin: {
            if (!bus.isConnected() || window.pid <= 0)
                break;
            addFolder(entry.folders, dolphinWindowFolder(bus, window, deadline));
            const QString service = dolphinService(window);
            const std::optional<QString> object =
                candidates.isEmpty() ? std::nullopt
                                     : dolphinWindowObject(bus, service, window, deadline);
            for (const QString& candidate : candidates) {
                if (!object || entry.folders.contains(candidate))
                    continue;
                const std::optional<bool> has =
                    dolphinHasOpen(bus, service, *object, candidate, deadline);
                if (has && *has)
                    addFolder(entry.folders, candidate);
            }
            break;
        }
        case FileManager::Nemo:
        case FileManager::Caja:
        case FileManager::Thunar:
        case FileManager::PcManFm: {
            if (const std::optional<QString> titled = folderFromFullPathTitle(window.title)) {
                addFolder(entry.folders, titled);
                break;
            }
            // A title with the folder's name alone: the folder of that name among the
            // candidates (the home folder and its folders too) that the window's process
            // watches. Certain when there is exactly one.
            const QString name = titledName(window);
            if (name.isEmpty() || window.pid <= 0)
                break;
            if (!watchedByPid.contains(window.pid))
                watchedByPid.insert(window.pid, watchedByProcess(window.pid));
            const QSet<QPair<quint64, quint64>>& watched = watchedByPid[window.pid];
            QStringList named;
            for (const QString& candidate : candidates + QStringList{home, home + u'/' + name}) {
                const QString folder = withoutTrailingSlashes(QDir::cleanPath(candidate));
                struct stat status {};
                if ((folderName(folder) == name ||
                     (folder == home && name == QLatin1String("Home"))) &&
                    !named.contains(folder) &&
                    ::stat(QFile::encodeName(folder).constData(), &status) == 0 &&
                    S_ISDIR(status.st_mode) &&
                    watched.contains({quint64(status.st_dev), quint64(status.st_ino)}))
                    named << folder;
            }
            if (named.size() == 1)
                entry.folders = named;
            break;
        }
        case FileManager::Other:
            break;
        }
        open << entry;
    }
    return open;
}

QDBusConnection sessionBusIfRunning() {
    // Without an address the D-Bus library would start a bus of its own (autolaunch): ask only
    // a bus that is named, or the one at the standard place in the runtime folder.
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") ||
        (!runtime.isEmpty() &&
         QFileInfo(QString::fromLocal8Bit(runtime) + QStringLiteral("/bus")).exists()))
        return QDBusConnection::sessionBus();
    return QDBusConnection(QStringLiteral("brindlemark-no-bus"));
}

} // namespace brindlemark::frontfolder
