// A stand-in for a file manager on the session bus, for the front-folder tests. It answers what
// the real ones answer about their windows, from one JSON argument:
//   {"kind": "nautilus", "windows": {"1": ["file:///a", "trash:///", ...], ...}}:
//   org.gnome.Nautilus, window n's tabs at /org/gnome/Nautilus/window/n
//   {"kind": "dolphin", "windows": {"4194310": ["file:///a", ...], ...}}: the Dolphin windows of
//   these X ids, with the folders open in them
//   {"kind": "showitems", "log": "/path"}: org.freedesktop.FileManager1, writing each ShowItems
//   call's first URI to the log, one a line (Nautilus's object is the same, under its own name)
// With "hang": true it takes its names and then never answers. It prints its unique bus name once
// it is ready.
#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <QUrl>

#include <cstdio>
#include <cstdlib>

using Locations = QMap<QString, QStringList>;

// org.freedesktop.FileManager1, as Nautilus has it: its windows' locations, and ShowItems.
class FileManager1 : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
    Q_PROPERTY(Locations OpenWindowsWithLocations MEMBER m_windows)
public:
    FileManager1(Locations windows, QString log)
        : m_windows(std::move(windows)), m_log(std::move(log)) {}
public slots:
    void ShowItems(const QStringList& uris, const QString&) {
        QFile log(m_log);
        if (log.open(QIODevice::Append))
            log.write(uris.value(0).toUtf8() + '\n');
    }

private:
    Locations m_windows;
    QString m_log;
};

class KMainWindow : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.KMainWindow")
public:
    KMainWindow(QObject* window, qlonglong id) : QDBusAbstractAdaptor(window), m_id(id) {}
public slots:
    qlonglong winId() { return m_id; }

private:
    qlonglong m_id;
};

// A Dolphin window: its X id through KMainWindow, and whether a folder is open in it.
class DolphinWindow : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.dolphin.MainWindow")
public:
    DolphinWindow(qlonglong id, const QStringList& open) {
        new KMainWindow(this, id);
        for (const QString& url : open)
            m_open << QUrl(url).adjusted(QUrl::StripTrailingSlash);
    }
public slots:
    bool isUrlOpen(const QString& url) {
        return m_open.contains(QUrl(url).adjusted(QUrl::StripTrailingSlash));
    }

private:
    QList<QUrl> m_open;
};

// Takes a well-known name, else ends the program; a name whose last owner just quit may take the
// bus a moment to release.
void take(QDBusConnection& bus, const QString& name) {
    for (int attempt = 0; !bus.registerService(name); ++attempt) {
        if (attempt == 250)
            std::exit(3);
        QThread::msleep(20);
    }
}

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    qDBusRegisterMetaType<Locations>();
    const QJsonObject setup = QJsonDocument::fromJson(argc > 1 ? argv[1] : "{}").object();
    const QString kind = setup["kind"].toString();
    QDBusConnection bus = QDBusConnection::sessionBus();
    // Each window's locations: Nautilus's under its window's object path, Dolphin's by X id.
    Locations windows;
    const QJsonObject list = setup["windows"].toObject();
    for (auto it = list.begin(); it != list.end(); ++it)
        windows[(kind == "dolphin" ? "" : "/org/gnome/Nautilus/window/") + it.key()] =
            it.value().toVariant().toStringList();

    if (kind == "nautilus" || kind == "showitems") {
        bus.registerObject("/org/freedesktop/FileManager1",
                           new FileManager1(windows, setup["log"].toString()),
                           QDBusConnection::ExportAllContents);
        take(bus, kind == "nautilus" ? "org.gnome.Nautilus" : "org.freedesktop.FileManager1");
    } else if (kind == "dolphin") {
        int n = 0;
        for (auto it = windows.begin(); it != windows.end(); ++it)
            bus.registerObject(QString("/dolphin/Dolphin_%1").arg(++n),
                               new DolphinWindow(it.key().toLongLong(), it.value()),
                               QDBusConnection::ExportAdaptors | QDBusConnection::ExportAllSlots);
        take(bus, QString("org.kde.dolphin-%1").arg(QCoreApplication::applicationPid()));
    }
    std::printf("%s\n", qPrintable(bus.baseService()));
    std::fflush(stdout);
    if (setup["hang"].toBool())
        QThread::sleep(600);
    return application.exec();
}

#include "fake_file_manager.moc"
