#pragma once

#include "platform/Platform.h"

#include <QUrl>

#include <functional>
#include <memory>

namespace brindlemark {

class UrlReceiver;

// The names under which Qt's native settings on macOS reach the preferences domain of a bundle
// identifier. Qt names the domain after the organization, a web domain whose parts it reverses
// and lower-cases, followed by "." and the application name as it is: "org.brindlemark.Brindlemark"
// is organization "brindlemark.org" and application "Brindlemark". The identifier's first two
// parts must therefore be lower case, its first a top-level domain that Qt recognises.
struct PreferencesDomainNames {
    QString organization;
    QString application;
};
PreferencesDomainNames preferencesDomainNames(const QString& bundleIdentifier);

// macOS, in portable Qt and the system's own tools: the user defaults and the extension's
// preferences through QSettings (CFPreferences), the Templates.json files under ~/Library,
// open, osascript, pluginkit and killall from one tool folder, and the brindlemark URLs as Qt
// delivers them. The system itself keeps one instance per user.
class MacPlatform : public Platform {
public:
    // `toolFolder` holds open, osascript, pluginkit and killall; `openUrl` asks the system to
    // open a URL and says whether it could (QDesktopServices::openUrl when not given).
    explicit MacPlatform(QString toolFolder = QStringLiteral("/usr/bin"),
                         std::function<bool(const QUrl&)> openUrl = {});
    ~MacPlatform() override;

    QVariant userDefaultsValue(const QString& key) override;
    // Each flushed to disk at once.
    void setUserDefaultsValue(const QString& key, const QString& value);
    void setExtensionPreferenceValue(const QString& key, const QString& value);
    StoreOutcome storeTemplatesJSONText(const QString& key, const QString& text) override;
    QStringList templateConfigFilePaths() override;
    QString templateBackupFolder() override;
    QString templateContentFolder() override;
    QString toolPath(Tool tool) override;
    QString builtInPlugInsPath() override;
    void openSettings() override;
    std::optional<QString> frontFileManagerFolder() override;
    QString desktopFolder() override;
    void templatesChanged(const QString& extensionBundlePath) override;
    void showFileInFileManager(const QString& filePath) override;
    void runAlert(const QString& messageText, const QString& informativeText) override;
    std::optional<int> handOffToRunningInstance(const QStringList& urls) override;
    void receiveLaterLaunches(std::function<void(const QStringList&)> deliver) override;

    // The bundle's built-in plug-ins folder, for the folder of its executable (Contents/MacOS).
    static QString plugInsFolderOfBundle(const QString& executableFolder);

private:
    QString m_toolFolder;
    std::function<bool(const QUrl&)> m_openUrl;
    std::unique_ptr<UrlReceiver> m_urlReceiver;
};

} // namespace brindlemark
