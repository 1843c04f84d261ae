#pragma once

#include "templates/Template.h"

#include <QObject>
#include <QQueue>

#include <optional>

#include <memory>

class QAction;
class QLabel;
class QMenu;
class QSystemTrayIcon;
class QTableView;

namespace brindlemark {

class MainWindow;
class Platform;
class TemplateTableModel;

// The one controller: it owns the application's state and every operation is one of its
// methods. The rules themselves live in small UI-free units that it calls.
class AppDelegate final : public QObject {
    Q_OBJECT
public:
    explicit AppDelegate(Platform& platform, QObject* parent = nullptr);
    ~AppDelegate() override;

    // Lifecycle, in the order the platform calls them.
    void applicationWillFinishLaunching();
    void applicationDidFinishLaunching();
    bool applicationShouldTerminateAfterLastWindowClosed() const { return false; }

    // State.
    QWidget* window() const;
    QLabel* statusLabel() const { return m_statusLabel; }
    QLabel* extensionStateLabel() const { return m_extensionStateLabel; }
    QSystemTrayIcon* statusItem() const { return m_statusItem; }
    QAction* extensionMenuItem() const { return m_extensionMenuItem; }
    QAction* templateMenuItem() const { return m_templateMenuItem; }
    QTableView* templatesTableView() const { return m_templatesTableView; }
    const TemplateList& templates() const { return m_templates; }
    void setTemplates(const TemplateList& templates) { m_templates = templates; }
    bool handledURLLaunch() const { return m_handledURLLaunch; }
    void setHandledURLLaunch(bool handled) { m_handledURLLaunch = handled; }

    // Template records and the template store.
    static QString cleanedString(const QJsonValue& value);
    static bool boolFromValue(const QJsonValue& value, bool defaultValue);
    static Template normalizedTemplate(const Template& record);
    static const TemplateList& defaultTemplates();
    void loadTemplates();
    void saveTemplates();
    void writeTemplatesJSONToExtensionContainer(const QString& text);
    QStringList templateConfigFileURLs() const;
    TemplateList enabledTemplates() const;
    Template templateWithIdentifier(const QString& identifier) const;

    // Reopening the running application (starting it again without a URL).
    bool applicationShouldHandleReopen(bool hasVisibleWindows);

    // URL commands. A get-URL event marks the launch as one for a URL; openURLs() does not.
    void handleGetURLEvent(const QString& urlText);
    void openURLs(const QStringList& urls);
    void handleURL(const QString& urlText);

    // File actions. A folder is a file-system path; the actions check it themselves.
    void createTemplate(const std::optional<Template>& record, const QString& inFolder);
    void createTemplateWithIdentifier(const QString& identifier, const QString& inFolder);
    bool validateFolderURL(const QString& folder);
    void openTerminalInFolder(const QString& folder);
    void openITermInFolder(const QString& folder);
    // Queues the error alert; it shows after the current action, one alert after another.
    void showError(const std::optional<QString>& message);
    QString runTool(const QString& path, const QStringList& arguments);

    // The file-manager extension and the file manager.
    QString extensionBundlePath() const;
    void registerExtension(QObject* sender = nullptr);
    void enableExtension(QObject* sender = nullptr);
    void restartFinder(QObject* sender = nullptr);
    void openSettings(QObject* sender = nullptr);
    void refreshExtensionStatus();

    // Commands for the folder the file manager shows (else the Desktop). A sender carrying a
    // template (a menu item's data, or a "representedObject" property) creates from it.
    std::optional<QString> frontFinderFolderURL();
    void createInFinderFolder(QObject* sender = nullptr);
    void createTemplateInFinderFolder(QObject* sender = nullptr);
    void openTerminalInFinderFolder(QObject* sender = nullptr);
    void openITermInFinderFolder(QObject* sender = nullptr);

    // The template table.
    void addTemplateColumn(const QString& identifier, const QString& title, int width, bool checkbox);
    void addTemplate(QObject* sender = nullptr);
    void removeTemplate(QObject* sender = nullptr);
    TemplateTableModel* templateTableModel() const { return m_templateTableModel; }

    // Menus, built with the start-up sequence.
    void buildApplicationMenu();
    void buildStatusItem();
    void rebuildNewFileStatusMenu();
    void menuWillOpen();
    QAction* menuItemWithTitle(const QString& title, const QString& symbol, void (AppDelegate::*action)(QObject*));
    QMenu* applicationMenu() const { return m_applicationMenu.get(); }
    QMenu* statusMenu() const { return m_statusMenu.get(); }

public slots:
    void showWindow(QObject* sender = nullptr);
    void hideWindow(QObject* sender = nullptr);

private:
    void buildWindow();
    void setStatusText(const QString& text);
    void showQueuedErrors();
    void openApplicationInFolder(const QString& application, const QString& folder);
    QString folderForCommand();
    void keepColumnAtItsMinimumWidth(int column, int newWidth);

    // Menus outlive the window that shows them in its menu bar.
    std::unique_ptr<QMenu> m_applicationMenu;
    std::unique_ptr<QMenu> m_statusMenu;
    QQueue<QString> m_pendingErrors;
    bool m_showingErrors = false;

    Platform& m_platform;
    std::unique_ptr<MainWindow> m_window;
    QLabel* m_statusLabel = nullptr;
    QLabel* m_extensionStateLabel = nullptr;
    QSystemTrayIcon* m_statusItem = nullptr;
    QAction* m_extensionMenuItem = nullptr;
    QAction* m_templateMenuItem = nullptr;
    QTableView* m_templatesTableView = nullptr;
    TemplateList m_templates;
    bool m_handledURLLaunch = false;
    TemplateTableModel* m_templateTableModel; // over m_templates, made in the constructor
};

} // namespace brindlemark
