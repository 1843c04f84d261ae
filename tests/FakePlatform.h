#pragma once

#include "TestSupport.h"
#include "platform/Platform.h"
#include "templates/TemplateStore.h"

// A recording stand-in for the operating system: settings in memory, files under the test's
// home, alerts and file-manager requests written down instead of shown.
class FakePlatform final : public brindlemark::Platform {
public:
    explicit FakePlatform(QString home) : m_home(std::move(home)) {}

    QVariant userDefaultsValue(const QString& key) override { return userDefaults.value(key); }
    StoreOutcome storeTemplatesJSONText(const QString& key, const QString& text) override {
        userDefaults[key] = extensionPreferences[key] = text;
        return {true,
                brindlemark::writeTemplatesJSONFiles(text, templateConfigFilePaths()).isEmpty()};
    }
    QStringList templateConfigFilePaths() override {
        return {m_home + "/ext/T.json", m_home + "/app/T.json", m_home + "/plain/T.json"};
    }
    QString templateBackupFolder() override { return m_home + "/plain"; }
    QString templateContentFolder() override { return m_home + "/data/content"; }
    std::optional<QString> userTemplatesFolder() override { return templatesFolder; }
    void openInDefaultApplication(const QString& path) override { openedFiles << path; }
    QString toolPath(Tool tool) override { return tools.value(int(tool), "/nonexistent/tool"); }
    QString builtInPlugInsPath() override { return m_home + "/PlugIns"; }
    void openSettings() override { ++settingsOpened; }
    std::optional<bool> startsAtLogin() override { return login; }
    std::optional<QString> setStartsAtLogin(bool on) override {
        if (!loginProblem)
            login = on;
        return loginProblem;
    }
    std::optional<QString> frontFileManagerFolder() override { return frontFolder; }
    QString desktopFolder() override { return m_home + "/Desktop"; }
    void templatesChanged(const QString& bundle) override { changeNotices << bundle; }
    void showFileInFileManager(const QString& filePath) override { shownFiles << filePath; }
    void runAlert(const QString& messageText, const QString& informativeText) override {
        // A modal alert runs a nested event loop, where queued work arrives: so does this one,
        // until the work queued so far is done.
        deepestAlerts = std::max(deepestAlerts, ++m_openAlerts);
        alerts << messageText + ": " + informativeText;
        QEventLoop modal;
        QTimer::singleShot(0, &modal, &QEventLoop::quit);
        modal.exec();
        --m_openAlerts;
    }
    std::optional<int> handOffToRunningInstance(const QStringList&) override { return {}; }
    void receiveLaterLaunches(std::function<void(const QStringList&)> deliver) override {
        laterLaunch = deliver;
    }

    QMap<QString, QVariant> userDefaults;
    QMap<QString, QString> extensionPreferences;
    QMap<int, QString> tools;
    std::optional<QString> frontFolder, templatesFolder, loginProblem;
    std::optional<bool> login; // none: the menu has no "Start at Login"
    int settingsOpened = 0, deepestAlerts = 0;
    QStringList changeNotices, shownFiles, alerts, openedFiles;
    std::function<void(const QStringList&)> laterLaunch; // the controller's handler

private:
    QString m_home;
    int m_openAlerts = 0;
};
