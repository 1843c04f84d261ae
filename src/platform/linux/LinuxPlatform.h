#pragma once

#include "platform/Platform.h"

#include <memory>
#include <string>

class QLockFile;

namespace brindlemark {

class InstanceServer;

// Linux: the settings are INI files named after the bundle identifiers in $XDG_CONFIG_HOME,
// written and read here (QSettings reads what is in another form), and every save writes them and
// the three Templates.json files ($XDG_DATA_HOME and $XDG_CONFIG_HOME) in one batch. Those paths
// are worked out at every call, so a changed HOME or XDG variable takes effect at once. The tools
// (brindlemark-open, -pluginkit, -killall) and the extension bundle live beside the application.
// The front folder comes from the X server and the file managers' D-Bus interfaces; new files are
// shown through org.freedesktop.FileManager1, else xdg-open; Dolphin's menus are written again
// when the templates change. The running instance holds a lock beside its socket, where later
// launches hand it their URLs.
class LinuxPlatform : public Platform {
public:
    LinuxPlatform();
    ~LinuxPlatform() override;

    QVariant userDefaultsValue(const QString& key) override;
    StoreOutcome storeTemplatesJSONText(const QString& key, const QString& text) override;
    QList<StoredCopy> storedTemplatesCopies(const QString& key) override;
    QStringList templateStoreFilePaths() override;
    void removeInterruptedSaves() override;
    QStringList templateConfigFilePaths() override;
    QString templateBackupFolder() override;
    QString templateContentFolder() override;
    QString toolPath(Tool tool) override;
    QString builtInPlugInsPath() override;
    void openSettings() override;
    std::optional<QString> frontFileManagerFolder() override;
    QString desktopFolder() override;
    void templatesChanged(const QString& extensionBundlePath) override;
    std::optional<bool> startsAtLogin() override;
    std::optional<QString> setStartsAtLogin(bool on) override;
    void showFileInFileManager(const QString& filePath) override;
    void runAlert(const QString& messageText, const QString& informativeText) override;
    std::optional<int> handOffToRunningInstance(const QStringList& urls) override;
    void receiveLaterLaunches(std::function<void(const QStringList&)> deliver) override;
    bool isReceivingLaunch() override;

    static QString userDefaultsFilePath();
    static QString extensionPreferencesFilePath();

private:
    std::string m_socketPath;
    std::unique_ptr<QLockFile> m_instanceLock; // held for the life of the running instance
    std::unique_ptr<InstanceServer> m_server;
};

} // namespace brindlemark
