#include "platform/macos/MacPlatform.h"

#include "Identifiers.h"
#include "bridge/TextRules.h"
#include "bridge/ToolRunner.h"
#include "platform/macos/UrlReceiver.h"
#include "templates/TemplateStore.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>

namespace brindlemark {

namespace {

// Asks the Finder for the folder of its front window, else for its desktop.
const QString FrontFinderFolderScript =
    QStringLiteral("tell application \"Finder\"\n"
                   "if (count of Finder windows) > 0 then\n"
                   "return POSIX path of ((target of front Finder window) as alias)\n"
                   "else\n"
                   "return POSIX path of (desktop as alias)\n"
                   "end if\n"
                   "end tell");

// How long the Finder may take to answer: the system's default Apple-event time-out. The first
// question also waits for the user to allow Brindlemark to control the Finder.
constexpr int AppleEventTimeoutMilliseconds = 120'000;

// The extensions pane of System Settings.
const QString ExtensionSettingsLink =
    QStringLiteral("x-apple.systempreferences:com.apple.LoginItems-Settings.extension");
const QString SystemSettingsApplication =
    QStringLiteral("/System/Applications/System Settings.app");

// Where the Templates.json files go, below the home folder: the two sandbox containers' data
// folders, then the plain place.
const QString ContainersFolder = QStringLiteral("/Library/Containers/");
const QString TemplatesFile =
    QStringLiteral("/Library/Application Support/Brindlemark/Templates.json");

QVariant valueInDomain(const char* bundleIdentifier, const QString& key) {
    const PreferencesDomainNames names = preferencesDomainNames(QLatin1String(bundleIdentifier));
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, names.organization,
                     names.application)
        .value(key);
}

// Written through the preferences system (CFPreferencesSetValue) and flushed at once, never to
// the property-list file itself: the preferences daemon holds the domain and would not see it.
void storeInDomain(const char* bundleIdentifier, const QString& key, const QString& value) {
    const PreferencesDomainNames names = preferencesDomainNames(QLatin1String(bundleIdentifier));
    QSettings settings(QSettings::NativeFormat, QSettings::UserScope, names.organization,
                       names.application);
    settings.setValue(key, value);
    settings.sync();
}

} // namespace

PreferencesDomainNames preferencesDomainNames(const QString& bundleIdentifier) {
    return {bundleIdentifier.section(u'.', 1, 1) + u'.' + bundleIdentifier.section(u'.', 0, 0),
            bundleIdentifier.section(u'.', 2)};
}

MacPlatform::MacPlatform(QString toolFolder, std::function<bool(const QUrl&)> openUrl)
    : m_toolFolder(std::move(toolFolder)), m_openUrl(std::move(openUrl)) {
    if (!m_openUrl)
        m_openUrl = [](const QUrl& url) { return QDesktopServices::openUrl(url); };
}

MacPlatform::~MacPlatform() = default;

QVariant MacPlatform::userDefaultsValue(const QString& key) {
    return valueInDomain(ApplicationBundleIdentifier, key);
}

void MacPlatform::setUserDefaultsValue(const QString& key, const QString& value) {
    storeInDomain(ApplicationBundleIdentifier, key, value);
}

void MacPlatform::setExtensionPreferenceValue(const QString& key, const QString& value) {
    storeInDomain(ExtensionBundleIdentifier, key, value);
}

Platform::StoreOutcome MacPlatform::storeTemplatesJSONText(const QString& key,
                                                           const QString& text) {
    // The preferences system keeps the values itself and says nothing of failures; only the
    // files are compared, so a change cannot be ruled out.
    setUserDefaultsValue(key, text);
    setExtensionPreferenceValue(key, text);
    return {true, writeTemplatesJSONFiles(text, templateConfigFilePaths()).isEmpty()};
}

QStringList MacPlatform::templateConfigFilePaths() {
    const QString home = QDir::homePath();
    return {
        home + ContainersFolder + QLatin1String(ExtensionBundleIdentifier) +
            QStringLiteral("/Data") + TemplatesFile,
        home + ContainersFolder + QLatin1String(ApplicationBundleIdentifier) +
            QStringLiteral("/Data") + TemplatesFile,
        home + TemplatesFile,
    };
}

QString MacPlatform::templateBackupFolder() {
    return QFileInfo(templateConfigFilePaths().constLast()).path();
}

QString MacPlatform::templateContentFolder() {
    return templateBackupFolder() + QStringLiteral("/content");
}

QString MacPlatform::toolPath(Tool tool) {
    switch (tool) {
    case Tool::Open:
        return m_toolFolder + QStringLiteral("/open");
    case Tool::PluginKit:
        return m_toolFolder + QStringLiteral("/pluginkit");
    case Tool::KillAll:
        return m_toolFolder + QStringLiteral("/killall");
    }
    return QString();
}

QString MacPlatform::plugInsFolderOfBundle(const QString& executableFolder) {
    return QDir::cleanPath(executableFolder + QStringLiteral("/../PlugIns"));
}

QString MacPlatform::builtInPlugInsPath() {
    return plugInsFolderOfBundle(QCoreApplication::applicationDirPath());
}

void MacPlatform::openSettings() {
    if (m_openUrl(QUrl(ExtensionSettingsLink)))
        return;
    runTool(toolPath(Tool::Open), {SystemSettingsApplication}); // not checked: nothing else to try
}

std::optional<QString> MacPlatform::frontFileManagerFolder() {
    QProcess osascript;
    osascript.setStandardErrorFile(QProcess::nullDevice()); // the reason of a failure is not shown
    osascript.start(m_toolFolder + QStringLiteral("/osascript"),
                    {QStringLiteral("-e"), FrontFinderFolderScript});
    osascript.closeWriteChannel();
    if (!osascript.waitForFinished(AppleEventTimeoutMilliseconds)) {
        osascript.kill();
        osascript.waitForFinished(-1);
        return std::nullopt;
    }
    if (osascript.exitStatus() != QProcess::NormalExit || osascript.exitCode() != 0)
        return std::nullopt;
    // osascript ends the string with a line break; the Finder ends the folder's path with "/".
    QString folder = QString::fromUtf8(osascript.readAllStandardOutput());
    if (folder.endsWith(u'\n'))
        folder.chop(1);
    folder = withoutTrailingSlashes(folder);
    if (folder.isEmpty())
        return std::nullopt;
    return folder;
}

QString MacPlatform::desktopFolder() {
    return QDir::homePath() + QStringLiteral("/Desktop");
}

void MacPlatform::templatesChanged(const QString&) {
    // Nothing to do: the Finder extension reads the templates itself whenever it builds a menu.
}

void MacPlatform::showFileInFileManager(const QString& filePath) {
    // Not waited for: the Finder shows the file when it gets to it.
    QProcess::startDetached(toolPath(Tool::Open), {QStringLiteral("-R"), filePath});
}

void MacPlatform::runAlert(const QString& messageText, const QString& informativeText) {
    runMessageBox(messageText, informativeText);
}

std::optional<int> MacPlatform::handOffToRunningInstance(const QStringList&) {
    // The system starts one instance per user and sends the running one every later URL: this
    // process always runs.
    return std::nullopt;
}

void MacPlatform::receiveLaterLaunches(std::function<void(const QStringList&)> deliver) {
    m_urlReceiver.reset(); // the scheme has one handler: the old one goes before the new one comes
    m_urlReceiver = std::make_unique<UrlReceiver>(std::move(deliver));
    // Cocoa finishes launching on the event loop's first pass, and hands over the URL that
    // launched the application during it. Run that pass now, before the start-up sequence is
    // queued, so that such a URL is handled first and keeps the window hidden; the second pass
    // sends on what the first may have queued.
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
}

} // namespace brindlemark
