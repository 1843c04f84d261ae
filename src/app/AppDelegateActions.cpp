// The controller's actions: files from templates, terminals, the commands for the file manager's
// folder, and the management of the file-manager extension.
#include "app/AppDelegate.h"

#include "Identifiers.h"
#include "actions/FileCreation.h"
#include "app/MainWindow.h"
#include "bridge/ExtensionManagement.h"
#include "bridge/ToolRunner.h"
#include "platform/Platform.h"

#include <QAction>
#include <QFileInfo>
#include <QTimer>

namespace brindlemark {

// ---- file actions ------------------------------------------------------------------------

void AppDelegate::createTemplate(const std::optional<Template>& record, const QString& inFolder) {
    const Template chosen = record ? *record : templateWithIdentifier(FallbackTemplateIdentifier);
    // The burst ends once the event loop comes back, after the command (and after the last part
    // of a launch that arrives in parts): a launch is answered as soon as its files exist, and the
    // files of a launch's URLs, or of the launches that came in together, are shown once per
    // folder.
    if (!m_burstEnding) {
        m_burstEnding = true;
        QTimer::singleShot(0, this, &AppDelegate::endBurst);
    }
    // A template's content is read once the folder is known to be one: a missing folder is
    // reported as such, whatever the content.
    std::optional<QByteArray> content;
    if (isExistingFolder(inFolder)) {
        content = contentForNewFile(normalizedTemplate(chosen));
        if (!content)
            return;
    }
    const FileCreation creation = createFileFromTemplate(
        chosen, inFolder, &m_burstFolder, content && !content->isNull() ? &*content : nullptr);
    switch (creation.status) {
    case FileCreation::NotAFolder:
        showError(QStringLiteral("Not a folder: %1").arg(inFolder));
        return;
    case FileCreation::CouldNotCreate:
        showError(QStringLiteral("Could not create file in %1").arg(inFolder));
        return;
    case FileCreation::Created:
        setStatusText(QStringLiteral("Created %1").arg(QFileInfo(creation.filePath).fileName()));
        m_pendingShows.add(creation.filePath);
        return;
    }
}

void AppDelegate::endBurst() {
    // A launch that arrives in parts is one burst: it ends after the last part.
    if (m_platform.isReceivingLaunch()) {
        QTimer::singleShot(0, this, &AppDelegate::endBurst);
        return;
    }
    m_burstEnding = false;
    m_burstFolder.forget();
    for (const QString& file : m_pendingShows.take())
        m_platform.showFileInFileManager(file);
}

void AppDelegate::createTemplateWithIdentifier(const QString& identifier, const QString& inFolder) {
    createTemplate(templateWithIdentifier(identifier), inFolder);
}

bool AppDelegate::validateFolderURL(const QString& folder) {
    if (isExistingFolder(folder))
        return true;
    showError(QStringLiteral("Not a folder: %1").arg(folder));
    return false;
}

void AppDelegate::openTerminalInFolder(const QString& folder) {
    openApplicationInFolder(QStringLiteral("Terminal"), folder);
}

void AppDelegate::openITermInFolder(const QString& folder) {
    const bool iTerm = QFileInfo::exists(QStringLiteral("/Applications/iTerm.app"));
    openApplicationInFolder(iTerm ? QStringLiteral("iTerm") : QStringLiteral("iTerm2"), folder);
}

void AppDelegate::openApplicationInFolder(const QString& application, const QString& folder) {
    if (!validateFolderURL(folder))
        return;
    // The tool prints nothing when the terminal started, and the reason when it did not.
    const QString output = runTool(m_platform.toolPath(Platform::Tool::Open),
                                   {QStringLiteral("-a"), application, folder});
    if (!output.isEmpty()) {
        showError(output);
        return;
    }
    setStatusText(QStringLiteral("Opened %1 at %2").arg(application, folder));
}

// ---- commands for the file manager's folder ---------------------------------------------

std::optional<QString> AppDelegate::frontFinderFolderURL() {
    return m_platform.frontFileManagerFolder();
}

QString AppDelegate::folderForCommand() {
    const std::optional<QString> front = frontFinderFolderURL();
    return front && !front->isEmpty() ? *front : m_platform.desktopFolder();
}

void AppDelegate::createInFinderFolder(QObject*) {
    createTemplateWithIdentifier(FallbackTemplateIdentifier, folderForCommand());
}

void AppDelegate::createTemplateInFinderFolder(QObject* sender) {
    // A New File menu item carries its template; without one, the fallback template.
    const auto* item = qobject_cast<QAction*>(sender);
    const QVariant carried = item ? item->data() : QVariant();
    createTemplate(carried.typeId() == QMetaType::QJsonObject
                       ? std::optional<Template>(carried.toJsonObject())
                       : std::nullopt,
                   folderForCommand());
}

void AppDelegate::openTerminalInFinderFolder(QObject*) {
    openTerminalInFolder(folderForCommand());
}

void AppDelegate::openITermInFinderFolder(QObject*) {
    openITermInFolder(folderForCommand());
}

void AppDelegate::handleFolderCommand(const QString& command) {
    m_handledURLLaunch = true;
    static const QString newFileWith = QStringLiteral("--new-file=");
    if (command == QLatin1String("--import-templates"))
        importTemplatesFolder();
    else if (command == QLatin1String("--open-terminal"))
        openTerminalInFinderFolder();
    else if (command.startsWith(newFileWith) && command.size() > newFileWith.size())
        createTemplate(templateWithIdentifier(command.mid(newFileWith.size())), folderForCommand());
    else if (command.startsWith(QLatin1String("--new-file")))
        createInFinderFolder();
}

// ---- the file-manager extension ----------------------------------------------------------

QString AppDelegate::extensionBundlePath() const {
    return m_platform.builtInPlugInsPath() + u'/' + ExtensionBundleName;
}

// The registry tool's and the restart tool's command lines, shared by the single operations and
// by the enabling, which runs them in a row without blocking.
QStringList AppDelegate::registrationArguments() const {
    return {QStringLiteral("-a"), extensionBundlePath()};
}

QStringList AppDelegate::listingArguments() {
    return {QStringLiteral("-mAD"), QStringLiteral("-p"), FileManagerExtensionProtocol};
}

void AppDelegate::showRegistration(const QString& output) {
    setStatusText(output.isEmpty() ? QStringLiteral("Extension registered.") : output);
}

void AppDelegate::registerExtension(QObject*) {
    showRegistration(
        runTool(m_platform.toolPath(Platform::Tool::PluginKit), registrationArguments()));
    refreshExtensionStatus();
}

void AppDelegate::enableExtension(QObject*) {
    // The five tools in their order, the status line following them, while the window goes on
    // answering: electing the extension installs the file managers' menus, which takes a while.
    // A second request while one runs is the same request: it is not queued.
    if (m_enabling)
        return;
    const QString pluginKit = m_platform.toolPath(Platform::Tool::PluginKit);
    const auto showState = [this](const QString& listing) { showExtensionState(listing); };
    m_enabling = std::make_unique<ToolSequence>([this] {
        setStatusText(QStringLiteral("Finder extension enabled."));
        QTimer::singleShot(0, this, [this] { m_enabling.reset(); });
    });
    m_enabling->append(pluginKit, registrationArguments(),
                       [this](const QString& output) { showRegistration(output); });
    m_enabling->append(pluginKit, listingArguments(), showState);
    m_enabling->append(pluginKit, {QStringLiteral("-e"), QStringLiteral("use"),
                                   QStringLiteral("-i"), QLatin1String(ExtensionBundleIdentifier)});
    m_enabling->append(
        m_platform.toolPath(Platform::Tool::KillAll), {QStringLiteral("Finder")},
        [this](const QString&) { setStatusText(QStringLiteral("Finder restarted.")); });
    m_enabling->append(pluginKit, listingArguments(), showState);
    m_enabling->start();
}

bool AppDelegate::isEnablingExtension() const {
    return m_enabling != nullptr;
}

void AppDelegate::restartFinder(QObject*) {
    runTool(m_platform.toolPath(Platform::Tool::KillAll), {QStringLiteral("Finder")});
    setStatusText(QStringLiteral("Finder restarted."));
}

void AppDelegate::openSettings(QObject*) {
    m_platform.openSettings();
}

void AppDelegate::refreshExtensionStatus() {
    showExtensionState(runTool(m_platform.toolPath(Platform::Tool::PluginKit), listingArguments()));
}

void AppDelegate::showExtensionState(const QString& listing) {
    const ExtensionState state =
        extensionStateFromListing(listing, QLatin1String(ExtensionBundleIdentifier));
    if (m_extensionMenuItem)
        m_extensionMenuItem->setText(extensionMenuTitle(state));
    if (m_extensionStateLabel)
        MainWindow::setColouredText(m_extensionStateLabel, extensionStateText(state),
                                    state == ExtensionState::Enabled ? SystemGreen : SystemOrange);
}

} // namespace brindlemark
