#include "platform/linux/LinuxPlatform.h"

#include "Identifiers.h"
#include "platform/linux/FrontFolder.h"
#include "platform/linux/IniFile.h"
#include "platform/linux/InstanceChannel.h"
#include "platform/linux/InstanceServer.h"
#include "platform/linux/PluginRegistry.h"
#include "platform/linux/XdgFolders.h"
#include "templates/AtomicFile.h"
#include "templates/AtomicWrite.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QThread>
#include <QUrl>

#include <algorithm>
#include <cstdio>
#include <functional>

namespace brindlemark {

namespace {

QString configHome() {
    return QString::fromStdString(xdg::configHome());
}

QString dataHome() {
    return QString::fromStdString(xdg::dataHome());
}

} // namespace

LinuxPlatform::LinuxPlatform() = default;

LinuxPlatform::~LinuxPlatform() = default;

QString LinuxPlatform::userDefaultsFilePath() {
    return configHome() + QLatin1Char('/') + QLatin1String(ApplicationBundleIdentifier) + ".conf";
}

QString LinuxPlatform::extensionPreferencesFilePath() {
    return configHome() + QLatin1Char('/') + QLatin1String(ExtensionBundleIdentifier) + ".conf";
}

QVariant LinuxPlatform::userDefaultsValue(const QString& key) {
    return QSettings(userDefaultsFilePath(), QSettings::IniFormat).value(key);
}

Platform::StoreOutcome LinuxPlatform::storeTemplatesJSONText(const QString& key,
                                                             const QString& text) {
    // All five places are files here: they go to the disk in one batch, and those that hold the
    // text already are left alone. A settings file that cannot be read keeps what it holds.
    QList<std::pair<QString, QByteArray>> files;
    bool complete = true;
    for (const QString& settings : {userDefaultsFilePath(), extensionPreferencesFilePath()}) {
        if (const std::optional<QByteArray> contents = ini::fileWithValue(settings, key, text))
            files.append({settings, *contents});
        else
            complete = false;
    }
    const QByteArray bytes = text.toUtf8();
    for (const QString& path : templateConfigFilePaths())
        files.append({path, bytes});
    const FileWrites outcome = writeChangedFilesAtomically(files);
    return {!outcome.written.isEmpty(), complete && outcome.failed.isEmpty()};
}

QList<StoredCopy> LinuxPlatform::storedTemplatesCopies(const QString& key) {
    // The settings file's own state, time and text: QSettings cannot tell a file it could not
    // read from one without the key, and may answer from what it read before.
    StoredCopy defaults = storedCopyInFile(userDefaultsFilePath());
    if (defaults.state == StoredCopy::State::Read) {
        const ini::ReadValue read = ini::readValue(defaults.text.toUtf8(), key);
        const QVariant value = read.understood ? QVariant() : userDefaultsValue(key);
        defaults.text = read.understood ? read.value.value_or(QString()) : value.toString();
        if (read.understood ? !read.value : value.typeId() != QMetaType::QString)
            defaults.state = StoredCopy::State::Missing;
    }
    QList<StoredCopy> copies{defaults};
    for (const QString& path : templateConfigFilePaths())
        copies.append(storedCopyInFile(path));
    return copies;
}

QStringList LinuxPlatform::templateStoreFilePaths() {
    return QStringList{userDefaultsFilePath(), extensionPreferencesFilePath()} +
           templateConfigFilePaths();
}

void LinuxPlatform::removeInterruptedSaves() {
    Platform::removeInterruptedSaves();
    removeLeftoverTemporaries(pluginRegistryFilePath());
}

QStringList LinuxPlatform::templateConfigFilePaths() {
    const QString file = QStringLiteral("/Templates.json");
    return {
        dataHome() + QLatin1Char('/') + QLatin1String(ExtensionBundleIdentifier) + file,
        dataHome() + QLatin1Char('/') + QLatin1String(ApplicationBundleIdentifier) + file,
        configHome() + QStringLiteral("/Brindlemark") + file,
    };
}

QString LinuxPlatform::templateBackupFolder() {
    return QFileInfo(templateConfigFilePaths().constLast()).absolutePath();
}

QString LinuxPlatform::templateContentFolder() {
    return dataHome() + QStringLiteral("/brindlemark/content");
}

QString LinuxPlatform::toolPath(Tool tool) {
    // The tools live beside brindlemark-app: in the build tree and in libexec/brindlemark.
    const QString folder = QCoreApplication::applicationDirPath() + u'/';
    switch (tool) {
    case Tool::Open:
        return folder + QStringLiteral("brindlemark-open");
    case Tool::PluginKit:
        return folder + QStringLiteral("brindlemark-pluginkit");
    case Tool::KillAll:
        return folder + QStringLiteral("brindlemark-killall");
    }
    return QString();
}

QString LinuxPlatform::builtInPlugInsPath() {
    return QCoreApplication::applicationDirPath() + QStringLiteral("/PlugIns");
}

void LinuxPlatform::openSettings() {
    // No desktop has a settings page for file-manager extensions: open its settings instead.
    for (const char* settings : {"gnome-control-center", "systemsettings", "xfce4-settings-manager",
                                 "mate-control-center", "cinnamon-settings", "lxqt-config"}) {
        const QString program = QStandardPaths::findExecutable(QLatin1String(settings));
        if (!program.isEmpty() && QProcess::startDetached(program, {}))
            return;
    }
}

std::optional<QString> LinuxPlatform::frontFileManagerFolder() {
    // Asked at every command, never remembered: the user may have moved to another window since.
    return frontfolder::frontFolder(QCoreApplication::applicationPid(),
                                    frontfolder::sessionBusIfRunning());
}

QString LinuxPlatform::desktopFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
}

void LinuxPlatform::templatesChanged(const QString& extensionBundlePath) {
    // Dolphin's service menus name every template: they are written again when the install step
    // put them there (its list of written files names them), and nothing is started otherwise.
    QFile installed(dataHome() + QStringLiteral("/brindlemark/installed-integration"));
    if (!installed.open(QIODevice::ReadOnly))
        return;
    bool dolphinMenus = false;
    while (!installed.atEnd() && !dolphinMenus)
        dolphinMenus = installed.readLine().trimmed().endsWith("/brindlemark-new-file.desktop");
    const QString writer = extensionBundlePath + QStringLiteral("/brindlemark-menu-action");
    if (!dolphinMenus || !QFileInfo(writer).isExecutable())
        return;
    QProcess process;
    process.setProgram(writer);
    process.setArguments({QStringLiteral("write-service-menu")});
    process.setStandardOutputFile(QProcess::nullDevice()); // the paths it wrote: not needed here
    process.startDetached();
}

namespace {

// The desktop's opener shows the folder in whatever file manager the user chose.
void openFolder(const QString& folder) {
    QProcess::startDetached(QStringLiteral("xdg-open"), {folder});
}

} // namespace

namespace {

// FileManager1.ShowItems of the file manager at `service`, not waited for; `otherwise` runs when
// no file manager answers it.
void showItems(const QDBusConnection& bus, const QString& service, const QString& filePath,
               std::function<void()> otherwise = {}) {
    QDBusMessage call = QDBusMessage::createMethodCall(
        service, QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(filePath).toString(QUrl::FullyEncoded)} << QString();
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection(bus).asyncCall(call, 5000), qApp);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [otherwise](QDBusPendingCallWatcher* finished) {
                         if (finished->isError() && otherwise)
                             otherwise();
                         finished->deleteLater();
                     });
}

bool sameFolder(const QString& a, const QString& b) {
    if (a == b)
        return true;
    const QString canonical = QFileInfo(a).canonicalFilePath();
    return !canonical.isEmpty() && canonical == QFileInfo(b).canonicalFilePath();
}

} // namespace

void LinuxPlatform::showFileInFileManager(const QString& filePath) {
    const QString folder = QFileInfo(filePath).absolutePath();
    QDBusConnection bus = frontfolder::sessionBusIfRunning();

    // A window that shows the folder already shows the new file; no other window opens for it.
    // Nautilus and Dolphin select it there through their own FileManager1 object (each picks
    // its window that shows the folder). Nemo, Caja and Thunar cannot: their ShowItems, their
    // other commands (Thunar's DisplayFolderAndSelect, Caja's --select) all open a second
    // window, and Nemo's --existing-window takes over whichever window was last active.
    QList<frontfolder::OpenWindow> windows =
        frontfolder::openWindows(QCoreApplication::applicationPid(), bus,
                                 QDeadlineTimer(frontfolder::ShowPatience), {folder});
    std::reverse(windows.begin(), windows.end()); // the top of the stack first
    for (const frontfolder::OpenWindow& open : windows) {
        if (std::none_of(open.folders.begin(), open.folders.end(),
                         [&](const QString& shown) { return sameFolder(shown, folder); }))
            continue;
        if (open.window.fileManager == frontfolder::FileManager::Nautilus)
            showItems(bus,
                      open.window.gtkBusName.isEmpty() ? QStringLiteral("org.gnome.Nautilus")
                                                       : open.window.gtkBusName,
                      filePath);
        else if (open.window.fileManager == frontfolder::FileManager::Dolphin)
            showItems(bus, QStringLiteral("org.kde.dolphin-%1").arg(open.window.pid), filePath);
        return;
    }

    // No window shows it: the desktop's file manager opens one with the file selected, or,
    // without one that offers that, the desktop's opener opens the folder.
    if (!bus.isConnected()) {
        openFolder(folder);
        return;
    }
    showItems(bus, QStringLiteral("org.freedesktop.FileManager1"), filePath,
              [folder] { openFolder(folder); });
}

void LinuxPlatform::runAlert(const QString& messageText, const QString& informativeText) {
    runMessageBox(messageText, informativeText);
}

std::optional<int> LinuxPlatform::handOffToRunningInstance(const QStringList& urls) {
    std::string problem;
    const std::string socketPath = m_socketPath =
        channel::socketPath(ApplicationBundleIdentifier, problem);
    if (socketPath.empty()) {
        std::fprintf(stderr, "brindlemark: %s.\n", problem.c_str());
        return 1;
    }
    std::vector<std::string> message;
    for (const QString& url : urls)
        message.push_back(url.toStdString());

    // Whoever holds the lock is the running instance; everyone else forwards to it. An
    // instance that is still starting holds the lock before it listens: wait for it briefly.
    m_instanceLock =
        std::make_unique<QLockFile>(QString::fromStdString(socketPath) + QStringLiteral(".lock"));
    const QDeadlineTimer patience(20'000);
    while (!m_instanceLock->tryLock(0)) {
        if (const std::optional<int> handedOff = channel::handOff(socketPath, message))
            return handedOff;
        if (patience.hasExpired()) {
            std::fprintf(stderr, "brindlemark: another Brindlemark holds %s but does not answer.\n",
                         qPrintable(m_instanceLock->fileName()));
            return 1;
        }
        QThread::msleep(20);
    }
    return std::nullopt;
}

void LinuxPlatform::receiveLaterLaunches(std::function<void(const QStringList&)> deliver) {
    if (m_socketPath.empty()) { // not through the hand-off (started in-process, as in tests)
        std::string problem;
        m_socketPath = channel::socketPath(ApplicationBundleIdentifier, problem);
    }
    const QString socketPath = QString::fromStdString(m_socketPath);
    m_server = std::make_unique<InstanceServer>();
    QObject::connect(m_server.get(), &InstanceServer::urlsReceived, m_server.get(),
                     std::move(deliver));
    if (!m_server->listen(socketPath))
        std::fprintf(stderr,
                     "brindlemark: cannot listen on %s; later launches will not reach this one.\n",
                     qPrintable(socketPath));
}

bool LinuxPlatform::isReceivingLaunch() {
    return m_server && m_server->isHandingOn();
}

std::unique_ptr<Platform> createPlatform() {
    return std::make_unique<LinuxPlatform>();
}

} // namespace brindlemark
