#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

#include "templates/TemplateSync.h"

#include <functional>
#include <memory>
#include <optional>

namespace brindlemark {

// Everything the application needs from the operating system, behind one interface.
// createPlatform() makes this system's implementation (linux/ or macos/; the macOS one is also
// built on Linux, for its own test); the other tests use a recording fake.
class Platform {
public:
    virtual ~Platform();

    // A value of the application's own settings ("user defaults").
    virtual QVariant userDefaultsValue(const QString& key) = 0;

    // Stores the templates text in all its places: the user defaults and the extension's
    // preferences under `key`, then the three files. A file that holds the text already is not
    // written again, and one that exists but cannot be read is never written over (what else it
    // holds is unknown). Nothing is shown for a failure: the outcome says whether any place was
    // written and whether every place now holds the text.
    struct StoreOutcome {
        bool written = false;
        bool complete = true;
    };
    virtual StoreOutcome storeTemplatesJSONText(const QString& key, const QString& text) = 0;

    // The stored templates text as each place holds it now: the user defaults under `key`
    // first, then the three Templates.json files in their order.
    virtual QList<StoredCopy> storedTemplatesCopies(const QString& key);

    // Every file a save writes.
    virtual QStringList templateStoreFilePaths() { return templateConfigFilePaths(); }

    // Removes what saves of ours that were killed halfway left beside the files they write (on
    // Linux also beside the plug-in registry), the content files included.
    virtual void removeInterruptedSaves();

    // The three Templates.json files in their fixed order: the extension's data folder, the
    // application's data folder, the plain configuration folder.
    virtual QStringList templateConfigFilePaths() = 0;

    // Where a copy of unreadable stored templates is kept: beside the plain Templates.json.
    virtual QString templateBackupFolder() = 0;

    // The folder the templates' content files are kept in, one per template id.
    virtual QString templateContentFolder() = 0;

    // Whether Brindlemark starts with the user's session; nothing where this system's Brindlemark
    // cannot tell, and then the application menu offers no "Start at Login".
    virtual std::optional<bool> startsAtLogin() { return std::nullopt; }
    // Turns starting with the session on or off: the reason when that failed.
    virtual std::optional<QString> setStartsAtLogin(bool on);

    // The user's own folder of document templates (on Linux `xdg-user-dir TEMPLATES`), when the
    // user has one: a folder, and not the home folder itself, which is how a desktop turns it off.
    virtual std::optional<QString> userTemplatesFolder();

    // Opens the file in the user's default application for its type. Returns at once.
    virtual void openInDefaultApplication(const QString& filePath);

    // The path of a system tool the controller runs through its tool runner.
    enum class Tool {
        Open,      // "-a APPLICATION FOLDER": starts a terminal application in a folder
        PluginKit, // the plug-in registry: "-a PATH", "-e use -i ID", "-mAD -p PROTOCOL"
        KillAll,   // "Finder": restarts the file manager
    };
    virtual QString toolPath(Tool tool) = 0;

    // The folder holding the application's built-in plug-ins (the file-manager extension).
    virtual QString builtInPlugInsPath() = 0;

    // Opens the desktop's settings for file-manager extensions, or else its settings at all.
    virtual void openSettings() = 0;

    // The folder the file manager's front window shows, when the file manager can say; else
    // nothing.
    virtual std::optional<QString> frontFileManagerFolder() = 0;

    // The user's desktop folder: where commands act when the file manager gives no folder.
    virtual QString desktopFolder() = 0;

    // Tells the installed file-manager integration that the templates changed, for the file
    // managers whose menus are written ahead rather than read at every right-click. Returns
    // at once.
    virtual void templatesChanged(const QString& extensionBundlePath) = 0;

    // Shows the file selected in the file manager, bringing it to the front. Returns at once.
    virtual void showFileInFileManager(const QString& filePath) = 0;

    // A modal alert with one "OK" button; returns when the user has closed it.
    virtual void runAlert(const QString& messageText, const QString& informativeText) = 0;

    // One running instance per user. Called before the application object exists: hands the
    // launch's URLs and keyboard-shortcut commands (none: show the window) to the instance
    // already running and gives this launch's exit code; nothing when this process is to become
    // the running instance.
    virtual std::optional<int> handOffToRunningInstance(const QStringList& urls) = 0;

    // Called once, when the application runs: the URLs and keyboard-shortcut commands of every
    // later launch arrive through `deliver`, in order, each launch's list once or, when long, in
    // parts one after another (an empty list: started again without any).
    virtual void receiveLaterLaunches(std::function<void(const QStringList&)> deliver) = 0;

    // True while a launch's URLs are delivered in parts and some are still to come: the
    // controller keeps such a launch's files together, as one burst.
    virtual bool isReceivingLaunch() { return false; }
};

std::unique_ptr<Platform> createPlatform();

// How an alert shows a text: as it is up to `limit` characters, else its start and its end with
// "…" between them, so that a path megabytes long neither freezes the alert nor hides how it
// ends. The alert still copies the whole text.
QString shortenedInTheMiddle(const QString& text, qsizetype limit = 600);

// The alert of both systems: a message box with one "OK" button showing the texts shortened in
// the middle, its copy command copying them whole. Returns when the user has closed it.
void runMessageBox(const QString& messageText, const QString& informativeText);

} // namespace brindlemark
