#pragma once

#include "platform/Platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QMap>

// A recording stand-in for the operating system: settings in memory, files under the test's
// home, alerts and file-manager requests written down instead of shown.
class FakePlatform final : public brindlemark::Platform {
public:
    explicit FakePlatform(QString home) : m_home(std::move(home)) {}

    QVariant userDefaultsValue(const QString& key) override { return userDefaults.value(key); }
    void setUserDefaultsValue(const QString& key, const QString& value) override
    {
        userDefaults[key] = value;
        ++saves;
    }
    void setExtensionPreferenceValue(const QString& key, const QString& value) override
    {
        extensionPreferences[key] = value;
    }
    QStringList templateConfigFilePaths() override
    {
        return {m_home + "/ext/Templates.json", m_home + "/app/Templates.json", m_home + "/plain/Templates.json"};
    }
    QString templateBackupFolder() override { return m_home + "/plain"; }
    QString toolPath(Tool tool) override
    {
        return tool == Tool::Open ? openTool : tool == Tool::PluginKit ? pluginKitTool : killAllTool;
    }
    QString builtInPlugInsPath() override { return plugInsFolder.isEmpty() ? m_home + "/PlugIns" : plugInsFolder; }
    void openSettings() override { ++settingsOpened; }
    std::optional<QString> frontFileManagerFolder() override { return frontFolder; }
    QString desktopFolder() override { return m_home + "/Desktop"; }
    void templatesChanged(const QString&) override { ++changeNotices; }
    void showFileInFileManager(const QString& filePath) override { shownFiles << filePath; }
    void runAlert(const QString& messageText, const QString& informativeText) override
    {
        // A real alert runs a nested event loop: run one too, so that queued work arrives here.
        ++m_openAlerts;
        deepestAlerts = std::max(deepestAlerts, m_openAlerts);
        alerts << messageText + ": " + informativeText;
        QCoreApplication::processEvents();
        --m_openAlerts;
    }
    QString instanceSocketPath() override { return m_home + "/run/instance.socket"; }

    QMap<QString, QVariant> userDefaults;
    QMap<QString, QString> extensionPreferences;
    QString openTool = "/nonexistent/brindlemark-open";
    QString pluginKitTool = "/nonexistent/brindlemark-pluginkit";
    QString killAllTool = "/nonexistent/brindlemark-killall";
    std::optional<QString> frontFolder;
    QString plugInsFolder;
    int settingsOpened = 0;
    int saves = 0;
    int changeNotices = 0;
    QStringList shownFiles;
    QStringList alerts;
    int deepestAlerts = 0;

private:
    QString m_home;
    int m_openAlerts = 0;
};
