// The folder the user is looking at: front-window choice on a real X server (Xvfb) with windows
// carrying the properties window managers and file managers set, stand-in Nautilus and Dolphin
// services on a private session bus, and the keyboard shortcut's commands through the launcher.
#include "TestSupport.h"

#include "platform/linux/FrontFolder.h"

#include <xcb/xcb.h>

using namespace brindlemark;
using namespace brindlemark::frontfolder;

namespace {

constexpr qint64 OwnPid = 4242; // the pid the tests' "own" windows carry

// Draws windows on the test's X server and plays the window manager's part: the root window's
// stacking list and active window are what the test says, and everything drawn reaches the
// server once they are set. The server destroys the windows of a connection that closes.
class Windows {
public:
    Windows()
        : m_c(xcb_connect(nullptr, nullptr)),
          m_root(xcb_setup_roots_iterator(xcb_get_setup(m_c)).data->root) {}
    ~Windows() { xcb_disconnect(m_c); }

    xcb_atom_t atom(const QByteArray& name) {
        const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
            xcb_intern_atom_reply(m_c, xcb_intern_atom(m_c, 0, name.size(), name), nullptr),
            &std::free);
        return reply->atom;
    }
    void setText(xcb_window_t w, const char* property, const QByteArray& text,
                 const char* type = "STRING") {
        xcb_change_property(m_c, XCB_PROP_MODE_REPLACE, w, atom(property), atom(type), 8,
                            std::uint32_t(text.size()), text.constData());
    }
    void setWords(xcb_window_t w, const char* property, xcb_atom_t type,
                  const QList<std::uint32_t>& words) {
        xcb_change_property(m_c, XCB_PROP_MODE_REPLACE, w, atom(property), type, 32,
                            std::uint32_t(words.size()), words.constData());
    }

    // A top-level window: "instance\0Class\0" and the rest as a file manager sets them.
    xcb_window_t make(const QByteArray& wmClass, qint64 pid, const QString& title = {},
                      bool map = false) {
        const xcb_window_t w = xcb_generate_id(m_c);
        xcb_create_window(m_c, XCB_COPY_FROM_PARENT, w, m_root, 0, 0, 50, 50, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        setText(w, "WM_CLASS", wmClass + '\0' + wmClass + '\0');
        setWords(w, "_NET_WM_PID", XCB_ATOM_CARDINAL, {std::uint32_t(pid)});
        setText(w, "_NET_WM_NAME", title.toUtf8(), "UTF8_STRING");
        if (map)
            xcb_map_window(m_c, w);
        return w;
    }
    void stack(const QList<xcb_window_t>& bottomToTop, xcb_window_t active = XCB_WINDOW_NONE) {
        setWords(m_root, "_NET_CLIENT_LIST_STACKING", XCB_ATOM_WINDOW, bottomToTop);
        setWords(m_root, "_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW, {active});
        sync();
    }
    void clearRoot() { // as without a window manager
        for (const char* list : {"_NET_CLIENT_LIST_STACKING", "_NET_ACTIVE_WINDOW"})
            xcb_delete_property(m_c, m_root, atom(list));
        sync();
    }
    void sync() { std::free(xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr)); }

private:
    xcb_connection_t* m_c;
    xcb_window_t m_root;
};

// A stand-in file manager on the test's bus, of this kind, whose windows (Nautilus's by number,
// Dolphin's by X id) show these locations, with the rest of its setup as the helper reads it; its
// unique bus name once it answers.
struct FakeFileManager : Child {
    QString busName, program = FAKE_FILE_MANAGER; // or a copy named as a file manager
    bool start(const char* kind, const QMap<QString, QStringList>& windows = {},
               QJsonObject setup = {}) {
        QJsonObject list;
        for (auto it = windows.begin(); it != windows.end(); ++it)
            list.insert(it.key(), QJsonArray::fromStringList(it.value()));
        setup.insert("kind", kind);
        setup.insert("windows", list);
        QProcess::start(program, {QJsonDocument(setup).toJson(QJsonDocument::Compact)});
        return waitForReadyRead(10'000) && !(busName = readLine().trimmed()).isEmpty();
    }
};

// Nautilus's window `n`, as it marks its windows for its D-Bus objects.
xcb_window_t nautilusWindow(Windows& x, const FakeFileManager& nautilus, int n,
                            const QString& title) {
    const xcb_window_t w = x.make("org.gnome.Nautilus", nautilus.processId(), title);
    x.setText(w, "_GTK_WINDOW_OBJECT_PATH", "/org/gnome/Nautilus/window/" + QByteArray::number(n));
    x.setText(w, "_GTK_UNIQUE_BUS_NAME", nautilus.busName.toUtf8());
    return w;
}

// A stacking-list case, "the windows bottom to top|the active window's index", drawn and
// stacked. A window in a few words: NAME[@TYPE][!hidden|!mapped][>N], NAME a file manager's
// class, "xterm", or "own" (a Nemo window of this process); @TYPE a _NET_WM_WINDOW_TYPE suffix;
// !mapped shown on the screen; >N transient for the N-th window. With "no window manager" for
// the active window the root lists nothing.
QList<xcb_window_t> makeStack(Windows& x, const QString& description) {
    const QStringList words = description.section('|', 0, 0).split(u' ', Qt::SkipEmptyParts);
    static const QRegularExpression form(R"(^([\w.]+)(?:@(\w+))?(!hidden|!mapped)?(?:>(\d+))?$)");
    QList<xcb_window_t> made;
    for (const QString& word : words) {
        const QRegularExpressionMatch m = form.match(word);
        const bool own = m.captured(1) == "own";
        made << x.make(own ? QByteArray("nemo") : m.captured(1).toUtf8(), own ? OwnPid : 100,
                       QString(), m.captured(3) == "!mapped");
        if (m.hasCaptured(2))
            x.setWords(made.last(), "_NET_WM_WINDOW_TYPE", XCB_ATOM_ATOM,
                       {x.atom(("_NET_WM_WINDOW_TYPE_" + m.captured(2)).toLatin1())});
        if (m.captured(3) == "!hidden")
            x.setWords(made.last(), "_NET_WM_STATE", XCB_ATOM_ATOM,
                       {x.atom("_NET_WM_STATE_HIDDEN")});
    }
    for (int i = 0; i < words.size(); ++i)
        if (const qsizetype at = words[i].indexOf(u'>'); at > 0)
            x.setWords(made[i], "WM_TRANSIENT_FOR", XCB_ATOM_WINDOW,
                       {made[words[i].mid(at + 1).toInt()]});
    const QString active = description.section('|', 1);
    if (active == "no window manager")
        x.clearRoot();
    else
        x.stack(made, active.isEmpty() ? xcb_window_t(XCB_WINDOW_NONE) : made[active.toInt()]);
    return made;
}

} // namespace

class FrontFolderTest : public QObject {
    Q_OBJECT

    Child m_xvfb, m_bus;
    QTemporaryDir m_busFolder;
    QString m_busAddress;

    QDBusConnection bus() {
        return QDBusConnection::connectToBus(m_busAddress, "front-folder-test");
    }
    std::optional<QString> front() { return frontFolder(OwnPid, bus(), QDeadlineTimer(5'000)); }

private slots:
    void initTestCase() {
        // One X server and one session bus of the test's own, for the whole program.
        m_xvfb.start("Xvfb", {"-displayfd", "1", "-noreset", "-screen", "0", "640x480x24",
                              "-nolisten", "tcp"});
        QVERIFY2(m_xvfb.waitForReadyRead(20'000), "Xvfb did not start (Debian package xvfb)");
        qputenv("DISPLAY", ":" + m_xvfb.readLine().trimmed());
        m_busAddress = startSessionBus(m_bus, m_busFolder.path());
        QVERIFY2(!m_busAddress.isEmpty(), "dbus-daemon did not start (Debian package dbus-daemon)");
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_busAddress.toUtf8());
        qunsetenv("WAYLAND_DISPLAY");
        qputenv("XDG_SESSION_TYPE", "x11");
        QVERIFY(bus().isConnected());
    }

    void frontWindow() {
        // "the stack|the active window's index" -> the chosen window's index in the stack. With
        // no window manager, the mapped windows in the server's order.
        expectEach(
            [](const QString& input) {
                Windows x;
                const QList<xcb_window_t> made = makeStack(x, input);
                const std::optional<Window> front = frontFileManagerWindow(OwnPid);
                return front ? QString::number(made.indexOf(front->id)) : QString("none");
            },
            {{"nemo org.gnome.Nautilus", "1"},
             {"nemo org.gnome.Nautilus|0", "0"}, // the active one first
             {"dolphin xterm|1", "0"},
             {"thunar own|1", "0"},
             {"caja nemo@DOCK caja@POPUP_MENU nemo@TOOLTIP caja@NOTIFICATION", "0"},
             {"caja@DESKTOP|0", "none"}, // the desktop a file manager draws
             {"nemo dolphin!hidden", "0"},
             {"nemo dolphin xterm@DIALOG>0|2", "0"}, // a dialog stands for its owner
             {"caja xterm>2 xterm>1", "0"},          // transients in a loop
             {"nemo!mapped caja|no window manager", "0"}});
    }

    void whatAWindowShows() {
        // A Nautilus window, "the tabs' URIs, blank-separated|its title", or another file
        // manager's title -> the folder, or "none"
        TestHome home;
        for (const char* folder : {"alpha", "Beta Folder", "a - b", "Größe"})
            QVERIFY(QDir().mkpath(home.file(folder)));
        QVERIFY(writeFile(home.file("notes.txt"), "x"));
        const QString h = home.path();
        expectEach(
            [](const QString& in) {
                const QStringList tabs = in.section('|', 0, 0).split(' ', Qt::SkipEmptyParts);
                return (in.contains('|') ? nautilusFolder(tabs, in.section('|', 1), "/home/ann/")
                                         : folderFromFullPathTitle(in))
                    .value_or("none");
            },
            {{"file:///a/Beta%20Folder file:///a/Gr%C3%B6%C3%9Fe file:///a/alpha|Größe",
              "/a/Größe"},
             {"file:///srv/x/ file:///srv/y|x", "/srv/x"},
             {"file:///srv/x file:///home/ann|Persönlicher Ordner", "/home/ann"},
             {"file:///home/ann trash:///|Home", "none"},
             {"file:///srv/x file:///srv/y trash:///|Trash", "none"},
             {"file:///srv/x sftp://host/srv/x|x", "none"},
             {"file:///srv/x file:///opt/x|x", "none"},
             {"file://elsewhere/srv/x|x", "none"},
             {h + "/Beta Folder - Thunar", h + "/Beta Folder"},
             {"a - b - " + h + "/a - b", h + "/a - b"},
             {"/ - /", "/"},
             {h + "/a - b — Dolphin", h + "/a - b"},
             {h + "/Größe – Caja", h + "/Größe"},
             {"~/alpha", h + "/alpha"},
             {"alpha", "none"},
             {h + "/missing - File Manager", "none"},
             {h + "/notes.txt", "none"}});
    }

    void throughTheFileManagers() {
        TestHome home;
        const auto stop = instanceStopper();
        const QString alpha = home.file("alpha"), beta = home.file("Beta Folder"),
                      gone = home.file("gone"), desktop = home.file("Desktop");
        for (const QString& folder : {alpha, beta, gone, desktop})
            QVERIFY(QDir().mkpath(folder));
        Windows x;

        // Nautilus: its windows' tabs, by the object path the window carries.
        FakeFileManager nautilus;
        QVERIFY(nautilus.start("nautilus",
                               {{"1", {alpha}}, {"2", {alpha, beta, "trash:///"}}, {"3", {gone}}}));
        const xcb_window_t n1 = nautilusWindow(x, nautilus, 1, "alpha"),
                           n2 = nautilusWindow(x, nautilus, 2, "Beta Folder");
        x.stack({n2, n1});
        QCOMPARE(front(), alpha);
        QCOMPARE(frontFolder(OwnPid, QDBusConnection("no bus"), QDeadlineTimer(5'000)),
                 std::nullopt);
        x.stack({n1, nautilusWindow(x, nautilus, 4, "alpha")}); // a window Nautilus does not list
        QCOMPARE(front(), std::nullopt);

        // The launcher as a keyboard shortcut runs it: each command acts on the front window's
        // folder; without one, on the Desktop.
        x.stack({n1, n2});
        writeScript(home.file("bin/xdg-open"), "exit 0");
        writeScript(home.file("bin/terminal"), "pwd >> \"$HOME/terminals\"");
        qputenv("PATH", home.file("bin").toUtf8() + ":" + qgetenv("PATH"));
        qputenv("TERMINAL", home.file("bin/terminal").toUtf8());
        QCOMPARE(QProcess::execute(BRINDLEMARK_EXECUTABLE, {"--new-file"}), 0);
        QTRY_COMPARE_WITH_TIMEOUT(entries(beta), QStringList{"New Text File.txt"}, 20'000);
        QCOMPARE(QProcess::execute(
                     BRINDLEMARK_EXECUTABLE,
                     {"--new-file=markdown", "--new-file=no such template", "--open-terminal"}),
                 0);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(home.file("terminals")), beta.toUtf8() + "\n", 20'000);
        QCOMPARE(entries(beta),
                 QStringList({"MarkdownDocument.md", "New Text File 1.txt", "New Text File.txt"}));
        x.stack({});
        QCOMPARE(QProcess::execute(BRINDLEMARK_EXECUTABLE, {"--new-file"}), 0);
        QCOMPARE(entries(desktop), QStringList{"New Text File.txt"});

        // A file manager that never answers: the query ends at its deadline.
        FakeFileManager hung;
        QVERIFY(hung.start("dolphin", {}, {{"hang", true}})); // a name of its own
        x.stack({nautilusWindow(x, hung, 1, "alpha")});
        const QDeadlineTimer soon(2'000); // not 25 s
        QCOMPARE(frontFolder(OwnPid, bus()), std::nullopt);
        QVERIFY(!soon.hasExpired());

        // Dolphin: its windows by their X ids; a title that is a full path, or a folder of the
        // home folder by its name, counts only when Dolphin confirms it is open there.
        FakeFileManager dolphin;
        const xcb_window_t d1 = x.make("dolphin", 0, alpha + " — Dolphin"),
                           d2 = x.make("dolphin", 0, "Beta Folder — Dolphin"),
                           d3 = x.make("dolphin", 0, gone + " — Dolphin");
        QVERIFY(dolphin.start("dolphin", {{QString::number(d1), {alpha}},
                                          {QString::number(d2), {alpha, beta}},
                                          {QString::number(d3), {alpha}}}));
        for (xcb_window_t w : {d1, d2, d3})
            x.setWords(w, "_NET_WM_PID", XCB_ATOM_CARDINAL, {std::uint32_t(dolphin.processId())});
        x.stack({d2, d1});
        QCOMPARE(front(), alpha);
        x.stack({d1, d2});
        QCOMPARE(front(), beta);
        x.stack({d3}); // not open there
        QCOMPARE(front(), std::nullopt);

        // The others by their titles (the folder shown in full). A folder removed meanwhile is
        // no answer, whoever names it.
        x.stack({x.make("nemo", 100, gone)});
        QCOMPARE(front(), gone);
        QVERIFY(QDir(gone).removeRecursively());
        x.stack({nautilusWindow(x, nautilus, 3, "gone")});
        QCOMPARE(front(), std::nullopt);

        // On Wayland the X windows say nothing.
        x.stack({x.make("nemo", 100, "/")});
        qputenv("XDG_SESSION_TYPE", "wayland");
        const auto x11 = qScopeGuard([] { qputenv("XDG_SESSION_TYPE", "x11"); });
        QCOMPARE(front(), std::nullopt);
    }

    void underWayland() {
        // Which window is in front, as the desktop's own parts say: "n:WINDOWS" Nautilus's windows
        // (1 alpha, 2 Beta Folder, 3 two tabs), "shell:F,L" the Shell extension's focused and
        // last used Nautilus window (0 another application's), "d:WINDOWS" Dolphin's (1 Größe,
        // 2 Beta Folder), "active:N" the one Dolphin says is active, "kwin:N" the Dolphin window
        // KWin has highest in its stack (0 none) -> the folder used.
        TestHome home;
        for (const char* name : {"alpha", "Beta Folder", "Größe"})
            QVERIFY(QDir().mkpath(home.file(name)));
        qputenv("XDG_SESSION_TYPE", "wayland");
        const auto x11 = qScopeGuard([] { qputenv("XDG_SESSION_TYPE", "x11"); });
        expectEach(
            [&](const QString& in) {
                QMap<QString, QString> part;
                for (const QString& word : in.split(' ', Qt::SkipEmptyParts))
                    part.insert(word.section(':', 0, 0), word.section(':', 1));
                const QString alpha = home.file("alpha"), beta = home.file("Beta Folder");
                const QMap<QString, QStringList> tabs{
                    {"1", {alpha}}, {"2", {beta}}, {"3", {alpha, beta}}};
                const QStringList titles{"", "Größe", "Beta Folder"};
                QMap<QString, QStringList> nautilusWindows, dolphinWindows;
                QJsonObject dolphinTitles;
                for (const QString& n : part.value("n").split(',', Qt::SkipEmptyParts))
                    nautilusWindows.insert(n, tabs[n]);
                for (const QString& d : part.value("d").split(',', Qt::SkipEmptyParts)) {
                    dolphinWindows.insert(d, {home.file(titles[d.toInt()])});
                    dolphinTitles.insert(d, titles[d.toInt()]);
                }
                const auto window = [](const QString& n) {
                    return n == "0" ? QString() : "/org/gnome/Nautilus/window/" + n;
                };
                const QStringList focus = part.value("shell").split(',');
                const int last = part.value("kwin").toInt();
                const QJsonArray shellFront{focus[0] == "0" ? "org.example.Other"
                                                            : "org.gnome.Nautilus",
                                            window(focus[0]), window(focus.value(1))};
                FakeFileManager nautilus, shell, dolphin, kwin;
                if (!((!part.contains("n") || nautilus.start("nautilus", nautilusWindows)) &&
                      (!part.contains("shell") ||
                       shell.start("shell", {}, {{"front", shellFront}})) &&
                      (!part.contains("d") || dolphin.start("dolphin", dolphinWindows,
                                                            {{"titles", dolphinTitles},
                                                             {"active", part.value("active")}})) &&
                      (!part.contains("kwin") ||
                       kwin.start(
                           "kwin", {},
                           {{"front", QJsonArray{"org.example.other", "77", "Other",
                                                 QString::number(last ? dolphin.processId() : 0),
                                                 titles.value(last) + " — Dolphin"}}}))))
                    return QString("a stand-in did not start");
                const std::optional<QString> folder = front();
                return folder ? QDir(home.path()).relativeFilePath(*folder) : QString("none");
            },
            {{"n:1,2", "none"}, // no extension: which window is not known
             {"n:1", "alpha"},
             {"n:3", "none"},                    // which tab is in front is not known
             {"n:1,2 shell:2,1", "Beta Folder"}, // the focused one, not the last used
             {"n:1,2 shell:0,1", "alpha"},       // another application in front
             {"n:1,2 shell:5,1", "none"},        // a window Nautilus does not list
             {"n:1,3 shell:3,3", "none"},
             {"d:1,2 active:2", "Beta Folder"},
             {"d:1,2 active:1 kwin:2", "Größe"}, // Dolphin's own answer first
             {"d:1,2 kwin:2", "Beta Folder"},    // another application in front
             {"d:1,2 kwin:0", "none"},
             {"d:1,2", "none"},
             {"d:1", "Größe"},
             {"n:1 d:2 active:2", "Beta Folder"},
             {"n:1 d:2", "none"}});
    }

    void newFileShownInTheWindowShowingItsFolder() {
        // A file made in a folder that a window shows is selected there by Nautilus and Dolphin
        // (their own ShowItems), and left to show itself in Nemo, Caja and Thunar, whose every
        // way to select opens another window. Only where no window shows the folder does the
        // desktop's file manager (org.freedesktop.FileManager1) open one.
        TestHome home;
        const auto stop = instanceStopper();
        Windows x;
        const auto folder = [&](const char* name) {
            return QDir().mkpath(home.file(name)) ? home.file(name) : QString();
        };
        const QString tab = folder("tab"), front = folder("front"), inDolphin = folder("dolphin"),
                      full = folder("full"), watched = folder("watched"),
                      unwatched = folder("unwatched"), minimized = folder("minimized"),
                      none = folder("none"), nested = folder("elsewhere/watched");
        const auto log = [&](const char* name) { return home.file(QString(name) + ".log"); };
        FakeFileManager nautilus, dolphin, gtk, desktop;
        QVERIFY(nautilus.start("nautilus", {{"1", {front, tab}}}, {{"log", log("nautilus")}}));
        QVERIFY(gtk.start("gtk", {}, {{"watch", QJsonArray{watched, minimized, nested}}}));
        QVERIFY(desktop.start("showitems", {}, {{"log", log("desktop")}}));
        const xcb_window_t d = x.make("dolphin", 0, "dolphin — Dolphin");
        QVERIFY(dolphin.start("dolphin", {{QString::number(d), {inDolphin}}},
                              {{"log", log("dolphin")}}));
        x.setWords(d, "_NET_WM_PID", XCB_ATOM_CARDINAL, {std::uint32_t(dolphin.processId())});
        const xcb_window_t hidden = x.make("caja", gtk.processId(), "minimized");
        x.setWords(hidden, "_NET_WM_STATE", XCB_ATOM_ATOM, {x.atom("_NET_WM_STATE_HIDDEN")});
        // A title with a folder's name alone counts only when the process watches that folder:
        // "unwatched" is not watched, and of two folders named "watched" only the one asked about
        // is certain.
        x.stack({nautilusWindow(x, nautilus, 1, "front"), d, x.make("nemo", 100, full),
                 x.make("thunar", gtk.processId(), "watched - Thunar"),
                 x.make("nemo", gtk.processId(), "unwatched"), hidden});
        writeScript(home.file("bin/xdg-open"), "echo \"$1\" >> \"$HOME/xdg-open.log\"");
        qputenv("PATH", home.file("bin").toUtf8() + ":" + qgetenv("PATH"));

        const QStringList order{tab,       front,     inDolphin, full, watched,
                                unwatched, minimized, nested,    none};
        for (const QString& folder : order)
            QCOMPARE(QProcess::execute(
                         BRINDLEMARK_EXECUTABLE,
                         {"brindlemark://create?path=" + QUrl::toPercentEncoding(folder, "/")}),
                     0);
        const auto shown = [](QStringList uris) {
            for (QString& folder : uris)
                folder =
                    QUrl::fromLocalFile(folder + "/New Text File.txt").toString(QUrl::FullyEncoded);
            uris.sort();
            return uris;
        };
        QTRY_COMPARE_WITH_TIMEOUT(sortedLines(log("desktop")), shown({nested, none, unwatched}),
                                  20'000);
        QTRY_COMPARE_WITH_TIMEOUT(sortedLines(log("nautilus")), shown({front, tab}), 20'000);
        QTRY_COMPARE_WITH_TIMEOUT(sortedLines(log("dolphin")), shown({inDolphin}), 20'000);
        QVERIFY(!QFile::exists(home.file("xdg-open.log")));
        for (const QString& folder : order)
            QCOMPARE(entries(folder), QStringList{"New Text File.txt"});
    }

    void restartKeepsTheWindows() {
        // brindlemark-killall Finder restarts the file managers that do not run the extension
        // yet and opens their windows again at their folders; one that runs it (it watches the
        // templates' folder) and one with a window whose folder is unknown keep running.
        TestHome home;
        const QString killall = QFileInfo(BRINDLEMARK_EXECUTABLE).path() + "/brindlemark-killall";
        const auto run = [&](const QStringList& arguments) {
            QProcess tool;
            tool.start(killall, arguments);
            return tool.waitForFinished(20'000)
                       ? QString::number(tool.exitCode()) + " " + tool.readAllStandardOutput()
                       : QString("hung");
        };
        for (const QStringList& wrong : {QStringList(), {"Finder", "now"}, {"finder"}})
            QCOMPARE(run(wrong), "1 usage: brindlemark-killall Finder\n");
        QCOMPARE(run({"Finder"}), "0 "); // none of them running

        const QString alpha = home.file("alpha"), beta = home.file("Beta Folder"),
                      gamma = home.file("gamma"),
                      templates =
                          home.file("data/org.brindlemark.Brindlemark.BrindlemarkFinderSync");
        for (const QString& folder : {alpha, beta, gamma, templates, home.file("bin")})
            QVERIFY(QDir().mkpath(folder));
        qputenv("PATH", home.file("bin").toUtf8() + ":" + qgetenv("PATH"));
        Windows x;
        FakeFileManager nautilus, thunar, nemo, caja;
        for (auto [manager, command] : {std::pair{&nautilus, "nautilus"},
                                        {&thunar, "thunar"},
                                        {&nemo, "nemo"},
                                        {&caja, "caja"}})
            QVERIFY(QFile::copy(FAKE_FILE_MANAGER, manager->program = home.file("bin/") + command));
        QVERIFY(
            nautilus.start("nautilus", {{"1", {alpha}}, {"2", {gamma, beta}}}) &&
            thunar.start("gtk", {}, {{"name", "org.xfce.Thunar"}, {"watch", QJsonArray{gamma}}}) &&
            nemo.start("gtk", {}, {{"name", "org.Nemo"}}) &&
            caja.start("gtk", {}, {{"name", "org.mate.Caja"}, {"watch", QJsonArray{templates}}}));
        x.stack(
            {nautilusWindow(x, nautilus, 1, "alpha"), nautilusWindow(x, nautilus, 2, "Beta Folder"),
             x.make("thunar", thunar.processId(), "gamma - Thunar"),
             x.make("nemo", nemo.processId(), "gamma"), x.make("caja", caja.processId(), alpha)});
        QCOMPARE(run({"Finder"}), "0 ");
        QVERIFY(nautilus.waitForFinished(5'000) && thunar.waitForFinished(5'000));
        QTRY_COMPARE_WITH_TIMEOUT(sortedLines(home.file("started.log")).size(), 3, 10'000);
        QCOMPARE(sortedLines(home.file("started.log")),
                 (QStringList{"nautilus --new-window " + beta, "nautilus --new-window " + alpha,
                              "thunar " + gamma}));
        QCOMPARE(nemo.state(), QProcess::Running);
        QCOMPARE(caja.state(), QProcess::Running);
    }

    void quietWithoutXOrBus() {
        // No X server where DISPLAY points: nothing.
        const auto restore = qScopeGuard(
            [display = qgetenv("DISPLAY"), address = qgetenv("DBUS_SESSION_BUS_ADDRESS")] {
                qputenv("DISPLAY", display);
                qputenv("DBUS_SESSION_BUS_ADDRESS", address);
            });
        qputenv("DISPLAY", ":4093");
        QCOMPARE(frontFileManagerWindow(OwnPid), std::nullopt);
        // No bus named and none in the runtime folder: not connected, and none started.
        TestHome home;
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        QVERIFY(!sessionBusIfRunning().isConnected());
        qputenv("XDG_RUNTIME_DIR", m_busFolder.path().toUtf8()); // the bus at its standard place
        QVERIFY(sessionBusIfRunning().isConnected());
    }
};

QTEST_GUILESS_MAIN(FrontFolderTest)
#include "tst_front_folder.moc"
