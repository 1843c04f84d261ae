#pragma once

#include "actions/FileCreation.h"
#include "actions/PendingShows.h"
#include "templates/Template.h"
#include "templates/TemplateContent.h"

#include <QObject>
#include <QQueue>

#include <memory>
#include <optional>

class QAction;
class QFileSystemWatcher;
class QLabel;
class QMenu;
class QPoint;
class QSystemTrayIcon;
class QTableView;
class QTimer;

namespace brindlemark {

struct Command;
class MainWindow;
class Platform;
class TemplateTableModel;
class ToolSequence;

// The one controller: it owns the application's state, and every operation the user or the
// desktop can ask for is one of its methods. The rules themselves live in the UI-free core
// (templates/, actions/, bridge/) and the outside world behind the Platform; this class reads
// as the start-up sequence and the dispatch to them.
class AppDelegate final : public QObject {
    Q_OBJECT
public:
    explicit AppDelegate(Platform& platform, QObject* parent = nullptr);
    ~AppDelegate() override;

    // Lifecycle, in the order the platform calls them. A URL that arrives before launching has
    // finished (handleGetURLEvent) keeps the window hidden.
    void applicationWillFinishLaunching();
    void applicationDidFinishLaunching();
    bool applicationShouldTerminateAfterLastWindowClosed() const { return false; }
    bool applicationShouldHandleReopen(bool hasVisibleWindows);
    void terminate(QObject* sender = nullptr);

    // State.
    QWidget* window() const;
    QLabel* statusLabel() const { return m_statusLabel; }
    QLabel* extensionStateLabel() const { return m_extensionStateLabel; }
    QAction* extensionMenuItem() const { return m_extensionMenuItem; }
    QAction* templateMenuItem() const { return m_templateMenuItem; }
    QTableView* templatesTableView() const { return m_templatesTableView; }
    TemplateTableModel* templateTableModel() const { return m_templateTableModel; }
    QMenu* applicationMenu() const { return m_applicationMenu.get(); }
    QMenu* statusMenu() const { return m_statusMenu.get(); }
    const TemplateList& templates() const { return m_templates; }
    void setTemplates(const TemplateList& templates) { m_templates = templates; }
    bool handledURLLaunch() const { return m_handledURLLaunch; }
    void setHandledURLLaunch(bool handled) { m_handledURLLaunch = handled; }

    // The template list: loaded once, saved to every place after each change, on top of what
    // other instances of the same user stored meanwhile, whose saves it also follows.
    void loadTemplates();
    void saveTemplates();
    // Takes what another instance stored since this one last read or wrote the list, with this
    // one's changes on top; writes the list when it changed here or a save is still pending.
    void synchronizeTemplates(bool changedHere);
    // True while some place could not be written yet; it is tried again every few seconds.
    bool isSavePending() const { return m_savePending; }
    TemplateList enabledTemplates() const;
    Template templateWithIdentifier(const QString& identifier) const;

    // URL commands. A get-URL event marks the launch as one for a URL; handleURL() does not.
    void handleGetURLEvent(const QString& urlText);
    void handleURL(const QString& urlText);

    // File actions. A folder is a file-system path; the actions check it themselves.
    void createTemplate(const std::optional<Template>& record, const QString& inFolder);
    void createTemplateWithIdentifier(const QString& identifier, const QString& inFolder);
    bool validateFolderURL(const QString& folder);
    void openTerminalInFolder(const QString& folder);
    void openITermInFolder(const QString& folder);
    // Queues the error alert; it shows after the current action, one alert after another.
    void showError(const std::optional<QString>& message);

    // Commands for the folder the file manager shows (else the Desktop). A menu item carrying a
    // template as its data creates from it.
    std::optional<QString> frontFinderFolderURL();
    void createInFinderFolder(QObject* sender = nullptr);
    void createTemplateInFinderFolder(QObject* sender = nullptr);
    void openTerminalInFinderFolder(QObject* sender = nullptr);
    void openITermInFinderFolder(QObject* sender = nullptr);
    // A keyboard shortcut's command ("--new-file", "--new-file=ID", "--open-terminal"): the
    // same commands, for the same folder; and "--import-templates" from a shell.
    void handleFolderCommand(const QString& command);

    // The file-manager extension and the file manager.
    QString extensionBundlePath() const;
    void registerExtension(QObject* sender = nullptr);
    void enableExtension(QObject* sender = nullptr);
    void restartFinder(QObject* sender = nullptr);
    void openSettings(QObject* sender = nullptr);
    void refreshExtensionStatus();
    // True from an "Enable Extension" until its last tool has run.
    bool isEnablingExtension() const;

    // Menus, built with the start-up sequence.
    void buildApplicationMenu();
    void buildStatusItem();
    void rebuildNewFileStatusMenu();
    // "Start at Login" in the application menu, where the platform can start with the session.
    void addStartAtLoginItem();
    // Colours the tray mark for the panel it shows on; false while it has no place there yet.
    bool matchStatusItemToPanel();
    void menuWillOpen();
    QAction* menuItemWithTitle(const QString& title, const QString& symbol,
                               void (AppDelegate::*action)(QObject*));

    // The window and its template table.
    void showWindow(QObject* sender = nullptr);
    void hideWindow(QObject* sender = nullptr);
    void addTemplate(QObject* sender = nullptr);
    void removeTemplate(QObject* sender = nullptr);
    // The selected row of the table, or -1.
    int selectedTemplateRow() const;

    // Template content: the bytes a template's new files start with, kept per template id.
    TemplateContent templateContent() const;
    bool hasContent(const Template& record) const;
    // The table's context menu for a row (-1: none), and that menu shown at a place on the screen.
    std::unique_ptr<QMenu> templateContextMenu(int row);
    void showTemplateContextMenu(int row, const QPoint& globalPosition);
    // A file chosen in a dialog, or the one given, becomes the row's content; refused (said on
    // the status line) when it is not a regular file of at most ContentSizeLimit bytes.
    void chooseContentFile(int row);
    bool setContentFromFile(int row, const QString& path);
    // Opens a copy of the row's content (made empty first if there is none) in the desktop's
    // application for the template's suffix; what is saved there becomes the content.
    void editContent(int row);
    void removeContent(int row);
    // One template from each file, the file's bytes its content (files dropped on the table).
    void addTemplatesFromFiles(const QStringList& paths);
    // The same for every file in the user's Templates folder and its subfolders, leaving out those
    // already added: a template of the same name with the same bytes.
    void importTemplatesFolder(QObject* sender = nullptr);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::optional<QByteArray> contentForNewFile(const Template& record);
    void watchTableForContextMenus();
    void removeContentOfRemovedTemplate(const Template& removed);
    QStringList addTemplatesMadeFromFiles(const QStringList& paths, bool skipKnown,
                                          qsizetype& added);
    bool isKnownTemplateFile(const Template& made, const QByteArray& bytes) const;
    void buildWindow();
    void addTemplateColumn(const QString& identifier, const QString& title, int width,
                           bool checkbox);
    void keepColumnAtItsMinimumWidth(int column, int newWidth);
    void setStatusText(const QString& text);
    void showTemplates(const TemplateList& templates);
    void watchTemplateStore();
    void retrySoonWhilePending();
    void showQueuedErrors();
    void endBurst();
    void openApplicationInFolder(const QString& application, const QString& folder);
    QString folderForCommand();
    QStringList registrationArguments() const;
    static QStringList listingArguments();
    void showRegistration(const QString& output);
    void showExtensionState(const QString& listing);

    Platform& m_platform;
    TemplateList m_templates;
    bool m_handledURLLaunch = false;
    TemplateTableModel* m_templateTableModel; // over m_templates, made in the constructor
    // Menus outlive the window that shows them in its menu bar.
    std::unique_ptr<QMenu> m_applicationMenu;
    std::unique_ptr<QMenu> m_statusMenu;
    std::unique_ptr<MainWindow> m_window;
    QLabel* m_statusLabel = nullptr;
    QLabel* m_extensionStateLabel = nullptr;
    QSystemTrayIcon* m_statusItem = nullptr;
    unsigned m_statusItemColour = 0; // the mark's colour (RGBA) once matched to the panel
    QAction* m_extensionMenuItem = nullptr;
    QAction* m_templateMenuItem = nullptr;
    QTableView* m_templatesTableView = nullptr;
    QQueue<QString> m_pendingErrors;
    // A burst: the files made before the event loop comes back, or before the last part of a
    // launch that arrives in parts. Its folder is read once, its files are shown once per folder
    // when it ends.
    bool m_burstEnding = false;
    FolderNames m_burstFolder;
    PendingShows m_pendingShows;
    bool m_showingErrors = false;
    std::unique_ptr<ToolSequence> m_enabling;
    QString m_storedText; // the stored list as this instance last read or wrote it
    bool m_savePending = false;
    std::unique_ptr<QTimer> m_saveRetry, m_storeSettle;
    std::unique_ptr<QFileSystemWatcher> m_storeWatcher;
};

} // namespace brindlemark
