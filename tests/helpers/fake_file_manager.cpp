// A stand-in for a file manager on the session bus, for the front-folder tests. It answers what
// the real ones answer about their windows, from one JSON argument:
//   {"kind": "nautilus", "windows": {"1": ["/a", "trash:///", ...], ...}}: org.gnome.Nautilus,
//   window n's tabs at /org/gnome/Nautilus/window/n
//   {"kind": "dolphin", "windows": {"4194310": ["/a", ...], ...}}: the Dolphin windows of these
//   X ids, with the folders open in them
//   {"kind": "showitems", "log": "/path"}: org.freedesktop.FileManager1, writing each ShowItems
//   call's first URI to the log, one a line (Nautilus's object is the same, under its own name)
//   "watch": ["/path", ...]: folders it watches, as the GTK file managers watch what they show
//   Dolphin's windows under Wayland: "titles": {"4194310": "alpha", ...} and "active": "4194310"
//   {"kind": "shell", "front": [app, object path, last used path]}: the GNOME Shell extension
//   {"kind": "kwin", "front": [class, pid, caption, last pid, last caption]}: KWin running a
//   script, which calls back with these
//   "name": "org.xfce.Thunar": the bus name it takes instead of its kind's
// It quits shortly after its object is called Quit. Copied under a file manager's command name and
// run with a command line instead of JSON, it plays that command: `-q` calls Quit at the name of
// that file manager's running instance, anything else is written to $HOME/started.log, marked
// "(too early)" while that instance still runs.
// A location that is a path stands for its file: URI. With "hang": true it takes its names and then
// never answers. It prints its unique bus name once it is ready.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QThread>
#include <QTimer>
#include <QUrl>

#include <cstdio>

using Locations = QMap<QString, QStringList>;

// Every object of the file manager, answering the few calls the real ones are asked: Nautilus's
// OpenWindowsWithLocations property and ShowItems, and each Dolphin window's X id and whether a
// folder is open in it.
class FileManager : public QDBusVirtualObject {
public:
    Locations windows;
    QString log, active;
    QMap<QString, QString> titles;
    QStringList front;
    QString callback[2]; // the bus name and object a loaded KWin script calls

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& bus) override {
        const QString member = call.member();
        // Dolphin's windows are /dolphin/Dolphin_0, _1, ..., in the order of their X ids (the bus
        // lists them as the children of /dolphin).
        const QString id = windows.keys().value(call.path().section('_', -1).toInt());
        QVariant answer;
        if (member == "Get" && call.interface() != "org.brindlemark.FrontWindow") {
            answer = QVariant::fromValue(QDBusVariant(QVariant::fromValue(windows)));
        } else if (member == "ShowItems") {
            QFile file(log);
            if (file.open(QIODevice::Append))
                file.write(call.arguments().value(0).toStringList().value(0).toUtf8() + '\n');
        } else if (member == "Quit") { // as a real one, it takes a moment to close its windows
            QTimer::singleShot(300, QCoreApplication::instance(), &QCoreApplication::quit);
        } else if (member == "winId") {
            answer = id.toLongLong();
        } else if (member == "isUrlOpen") {
            answer = windows.value(id).contains(call.arguments().value(0).toString());
        } else if (member == "GetAll") {
            answer = QVariant::fromValue(
                QVariantMap{{"isActiveWindow", id == active}, {"windowTitle", titles.value(id)}});
        } else if (member == "Get" && call.interface() == "org.brindlemark.FrontWindow") {
            QDBusMessage reply = call.createReply();
            for (const QString& value : front)
                reply << value;
            return bus.send(reply);
        } else if (member == "loadScript") {
            QFile script(call.arguments().value(0).toString());
            static const QRegularExpression target(R"re(callDBus\("([^"]+)", "([^"]+)")re");
            const QRegularExpressionMatch m =
                target.match(script.open(QIODevice::ReadOnly) ? script.readAll() : "");
            callback[0] = m.captured(1);
            callback[1] = m.captured(2);
            answer = m.hasMatch() ? 0 : -1;
        } else if (member == "run") {
            QDBusMessage answerCall = QDBusMessage::createMethodCall(
                callback[0], callback[1], "org.brindlemark.KWinAnswer", "Answer");
            for (const QString& value : front)
                answerCall << value;
            bus.send(call.createReply());
            return bus.send(answerCall);
        } else if (member == "unloadScript") {
            answer = true;
        } else {
            return false;
        }
        return bus.send(answer.isValid() ? call.createReply(answer) : call.createReply());
    }
};

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments().mid(1);
    if (!arguments.value(0).startsWith('{')) {
        const QString command = QFileInfo(application.arguments().first()).fileName();
        static const QMap<QString, QString> instances{{"nautilus", "org.gnome.Nautilus"},
                                                      {"nemo", "org.Nemo"},
                                                      {"caja", "org.mate.Caja"},
                                                      {"thunar", "org.xfce.Thunar"}};
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (arguments == QStringList{"-q"}) {
            bus.call(QDBusMessage::createMethodCall(instances.value(command),
                                                    "/org/freedesktop/FileManager1", "", "Quit"));
            return 0;
        }
        const QStringList line =
            QStringList{command} + arguments +
            (bus.interface()->isServiceRegistered(instances.value(command)).value()
                 ? QStringList{"(too early)"}
                 : QStringList{});
        QFile log(qEnvironmentVariable("HOME") + "/started.log");
        return log.open(QIODevice::Append) && log.write(line.join(' ').toUtf8() + '\n') > 0 ? 0 : 1;
    }
    qDBusRegisterMetaType<Locations>();
    const QJsonObject setup = QJsonDocument::fromJson(argc > 1 ? argv[1] : "{}").object();
    const QString kind = setup["kind"].toString();
    FileManager manager;
    manager.log = setup["log"].toString();
    manager.active = setup["active"].toString();
    for (const QString& key : setup["titles"].toObject().keys())
        manager.titles.insert(key, setup["titles"].toObject()[key].toString());
    manager.front = setup["front"].toVariant().toStringList();
    const QJsonObject windows = setup["windows"].toObject();
    for (auto it = windows.begin(); it != windows.end(); ++it)
        for (const QString& place : it.value().toVariant().toStringList())
            manager.windows[(kind == "dolphin" ? "" : "/org/gnome/Nautilus/window/") + it.key()]
                << (place.startsWith('/') ? QUrl::fromLocalFile(place).toString(QUrl::FullyEncoded)
                                          : place);
    QFileSystemWatcher watcher(setup["watch"].toVariant().toStringList());
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.registerVirtualObject("/org/freedesktop/FileManager1", &manager);
    for (const char* path : {"/org/brindlemark/FrontWindow", "/Scripting", "/0"})
        bus.registerVirtualObject(path, &manager);
    for (int n = 0; kind == "dolphin" && n < manager.windows.size(); ++n)
        bus.registerVirtualObject(QString("/dolphin/Dolphin_%1").arg(n), &manager);
    // A name whose last owner just quit may take the bus a moment to release.
    const QString name =
        setup.contains("name") ? setup["name"].toString()
        : kind == "nautilus"   ? "org.gnome.Nautilus"
        : kind == "gtk"     ? QString("org.example.gtk-%1").arg(QCoreApplication::applicationPid())
        : kind == "dolphin" ? QString("org.kde.dolphin-%1").arg(QCoreApplication::applicationPid())
        : kind == "shell"   ? "org.brindlemark.FrontWindow"
        : kind == "kwin"    ? "org.kde.KWin"
                            : "org.freedesktop.FileManager1";
    for (int attempt = 0; !bus.registerService(name); ++attempt) {
        if (attempt == 250)
            return 3;
        QThread::msleep(20);
    }
    std::printf("%s\n", qPrintable(bus.baseService()));
    std::fflush(stdout);
    if (setup["hang"].toBool())
        QThread::sleep(600);
    return application.exec();
}
