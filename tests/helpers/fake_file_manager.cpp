// A stand-in for a file manager on the session bus, for the front-folder tests. It answers what
// the real ones answer about their windows, from one JSON argument:
//   {"kind": "nautilus", "windows": {"/org/gnome/Nautilus/window/1": ["file:///a", ...], ...}}
//   {"kind": "dolphin",  "windows": [{"winId": 4194310, "open": ["file:///a", ...]}, ...]}
//   {"kind": "showitems", "log": "/path"}: org.freedesktop.FileManager1, writing each ShowItems
//   call's first URI to the log, one a line (Nautilus's object is the same, under its own name)
// With "hang": true it takes its names and then never answers. It prints its unique bus name
// once it is ready.
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

using Locations = QMap<QString, QStringList>;

// org.freedesktop.FileManager1, as Nautilus has it: its windows' locations, and ShowItems.
class FileManager1 : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
    Q_PROPERTY(Locations OpenWindowsWithLocations READ openWindowsWithLocations)
public:
    FileManager1(Locations windows, QString log)
        : m_windows(std::move(windows)), m_log(std::move(log)) {}
    Locations openWindowsWithLocations() const { return m_windows; }
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

class DolphinMainWindow : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.dolphin.MainWindow")
public:
    DolphinMainWindow(QObject* window, QStringList open)
        : QDBusAbstractAdaptor(window), m_open(std::move(open)) {}
public slots:
    bool isUrlOpen(const QString& url) {
        return m_open.contains(QUrl(url).adjusted(QUrl::StripTrailingSlash).toString());
    }

private:
    QStringList m_open;
};

// Takes a well-known name; one whose last owner just quit may take the bus a moment to release.
bool take(QDBusConnection& bus, const QString& name) {
    for (int attempt = 0; attempt < 250; ++attempt) {
        if (bus.registerService(name))
            return true;
        QThread::msleep(20);
    }
    return false;
}

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    qDBusRegisterMetaType<Locations>();
    const QJsonObject setup = QJsonDocument::fromJson(argc > 1 ? argv[1] : "{}").object();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return 2;

    if (setup["kind"] == "nautilus" || setup["kind"] == "showitems") {
        Locations windows;
        const QJsonObject list = setup["windows"].toObject();
        for (auto it = list.begin(); it != list.end(); ++it)
            windows.insert(it.key(), it.value().toVariant().toStringList());
        bus.registerObject("/org/freedesktop/FileManager1",
                           new FileManager1(windows, setup["log"].toString()),
                           QDBusConnection::ExportAllProperties | QDBusConnection::ExportAllSlots);
        if (!take(bus, setup["kind"] == "nautilus" ? "org.gnome.Nautilus"
                                                   : "org.freedesktop.FileManager1"))
            return 3;
    } else if (setup["kind"] == "dolphin") {
        int n = 0;
        for (const QJsonValue& value : setup["windows"].toArray()) {
            auto* window = new QObject(&application);
            QStringList open;
            for (const QJsonValue& url : value["open"].toArray())
                open << QUrl(url.toString()).adjusted(QUrl::StripTrailingSlash).toString();
            new KMainWindow(window, value["winId"].toInteger());
            new DolphinMainWindow(window, open);
            bus.registerObject(QString("/dolphin/Dolphin_%1").arg(++n), window,
                               QDBusConnection::ExportAdaptors);
        }
        if (!take(bus, QString("org.kde.dolphin-%1").arg(QCoreApplication::applicationPid())))
            return 3;
    }
    std::printf("%s\n", qPrintable(bus.baseService()));
    std::fflush(stdout);
    if (setup["hang"].toBool())
        QThread::sleep(600);
    return application.exec();
}

#include "fake_file_manager.moc"
