#pragma once

#include "platform/Platform.h"

namespace brindlemark {

// Linux: settings are INI files named after the bundle identifiers in $XDG_CONFIG_HOME, the
// Templates.json files live in $XDG_DATA_HOME and $XDG_CONFIG_HOME. Every path is computed at
// call time from the environment, so a changed HOME or XDG variable takes effect at once.
class LinuxPlatform : public Platform {
public:
    QVariant userDefaultsValue(const QString& key) override;
    void setUserDefaultsValue(const QString& key, const QString& value) override;
    void setExtensionPreferenceValue(const QString& key, const QString& value) override;
    QStringList templateConfigFilePaths() override;
    QString templateBackupFolder() override;
    QString toolPath(Tool tool) override;
    QString builtInPlugInsPath() override;
    void openSettings() override;
    std::optional<QString> frontFileManagerFolder() override;
    QString desktopFolder() override;
    void templatesChanged(const QString& extensionBundlePath) override;
    void showFileInFileManager(const QString& filePath) override;
    void runAlert(const QString& messageText, const QString& informativeText) override;
    QString instanceSocketPath() override;

    static QString configHome(); // $XDG_CONFIG_HOME, else ~/.config
    static QString dataHome();   // $XDG_DATA_HOME, else ~/.local/share
    static QString userDefaultsFilePath();
    static QString extensionPreferencesFilePath();
};

} // namespace brindlemark
