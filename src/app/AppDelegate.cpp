#include "app/AppDelegate.h"

#include "actions/FileCreation.h"
#include "app/MainWindow.h"
#include "Identifiers.h"
#include "bridge/ExtensionManagement.h"
#include "bridge/ToolRunner.h"
#include "bridge/UrlCommands.h"
#include "platform/Platform.h"
#include "templates/TemplateStore.h"
#include "templates/TemplateTableModel.h"

#include <QAction>
#include <QApplication>
#include <QFileInfo>
#include <QLabel>
#include <QMenu>

namespace brindlemark {

AppDelegate::AppDelegate(Platform& platform, QObject* parent)
    : QObject(parent), m_platform(platform),
      m_templateTableModel(new TemplateTableModel(m_templates, [this] { saveTemplates(); }, this))
{
}

AppDelegate::~AppDelegate()
{
    // The window's table reads the template list until it is gone: close it down first.
    m_window.reset();
}

QWidget* AppDelegate::window() const { return m_window.get(); }

void AppDelegate::applicationWillFinishLaunching()
{
    // URL delivery is installed here, so that a URL given at launch is handled before the
    // start-up sequence; the command-line and socket delivery arrive with the URL commands.
}

void AppDelegate::applicationDidFinishLaunching()
{
    loadTemplates();
    saveTemplates();
    buildApplicationMenu();
    buildStatusItem();
    registerExtension();
    if (!m_handledURLLaunch)
        showWindow();
}

bool AppDelegate::applicationShouldHandleReopen(bool)
{
    showWindow();
    return true;
}

// ---- URL commands ----------------------------------------------------------------------

void AppDelegate::handleGetURLEvent(const QString& urlText)
{
    m_handledURLLaunch = true;
    handleURL(urlText);
}

void AppDelegate::openURLs(const QStringList& urls)
{
    for (const QString& url : urls)
        handleURL(url);
}

void AppDelegate::handleURL(const QString& urlText)
{
    const UrlRequest request = interpretCommandUrl(urlText, m_templates);
    // The folder as a file-system path: trailing separators go, as in a file URL's path.
    QString folder = request.folder;
    while (folder.size() > 1 && folder.endsWith(u'/'))
        folder.chop(1);

    switch (request.kind) {
    case UrlRequest::Ignore:
        return;
    case UrlRequest::MissingFolder:
        showError(QStringLiteral("Finder did not provide a target folder."));
        return;
    case UrlRequest::Create:
        createTemplateWithIdentifier(QStringLiteral("text"), folder);
        return;
    case UrlRequest::CreateFromTemplate:
        createTemplate(request.record, folder);
        return;
    case UrlRequest::OpenTerminal:
        openTerminalInFolder(folder);
        return;
    case UrlRequest::OpenITerm:
        openITermInFolder(folder);
        return;
    }
}

// ---- file actions ------------------------------------------------------------------------

void AppDelegate::createTemplate(const std::optional<Template>& record, const QString& inFolder)
{
    const Template chosen = record ? *record : templateWithIdentifier(QStringLiteral("text"));
    const FileCreation creation = createFileFromTemplate(chosen, inFolder);
    switch (creation.status) {
    case FileCreation::NotAFolder:
        showError(QStringLiteral("Not a folder: %1").arg(inFolder));
        return;
    case FileCreation::CouldNotCreate:
        showError(QStringLiteral("Could not create file in %1").arg(inFolder));
        return;
    case FileCreation::Created:
        setStatusText(QStringLiteral("Created %1").arg(QFileInfo(creation.filePath).fileName()));
        m_platform.showFileInFileManager(creation.filePath);
        return;
    }
}

void AppDelegate::createTemplateWithIdentifier(const QString& identifier, const QString& inFolder)
{
    createTemplate(templateWithIdentifier(identifier), inFolder);
}

bool AppDelegate::validateFolderURL(const QString& folder)
{
    if (isExistingFolder(folder))
        return true;
    showError(QStringLiteral("Not a folder: %1").arg(folder));
    return false;
}

void AppDelegate::openTerminalInFolder(const QString& folder)
{
    openApplicationInFolder(QStringLiteral("Terminal"), folder);
}

void AppDelegate::openITermInFolder(const QString& folder)
{
    openApplicationInFolder(QFileInfo::exists(QStringLiteral("/Applications/iTerm.app")) ? QStringLiteral("iTerm")
                                                                                         : QStringLiteral("iTerm2"),
                            folder);
}

void AppDelegate::openApplicationInFolder(const QString& application, const QString& folder)
{
    if (!validateFolderURL(folder))
        return;
    // The tool prints nothing when the terminal started, and the reason when it did not.
    const QString output = runTool(m_platform.toolPath(Platform::Tool::Open), {QStringLiteral("-a"), application, folder});
    if (!output.isEmpty()) {
        showError(output);
        return;
    }
    setStatusText(QStringLiteral("Opened %1 at %2").arg(application, folder));
}

void AppDelegate::showError(const std::optional<QString>& message)
{
    m_pendingErrors.enqueue(message.value_or(QStringLiteral("Unknown error.")));
    QMetaObject::invokeMethod(this, &AppDelegate::showQueuedErrors, Qt::QueuedConnection);
}

void AppDelegate::showQueuedErrors()
{
    // An alert runs its own event loop, where the next queued call arrives: that call returns
    // at once and this loop shows its message after the current alert is closed.
    if (m_showingErrors)
        return;
    m_showingErrors = true;
    while (!m_pendingErrors.isEmpty())
        m_platform.runAlert(QStringLiteral("New Text File failed"), m_pendingErrors.dequeue());
    m_showingErrors = false;
}

QString AppDelegate::runTool(const QString& path, const QStringList& arguments)
{
    return brindlemark::runTool(path, arguments);
}

// ---- templates -------------------------------------------------------------------------

QString AppDelegate::cleanedString(const QJsonValue& value) { return brindlemark::cleanedString(value); }

bool AppDelegate::boolFromValue(const QJsonValue& value, bool defaultValue)
{
    return brindlemark::boolFromValue(value, defaultValue);
}

Template AppDelegate::normalizedTemplate(const Template& record)
{
    return brindlemark::normalizedTemplate(record);
}

const TemplateList& AppDelegate::defaultTemplates() { return brindlemark::defaultTemplates(); }

void AppDelegate::loadTemplates()
{
    const QVariant stored = m_platform.userDefaultsValue(TemplatesJSONKey);
    const QString text = stored.typeId() == QMetaType::QString ? stored.toString() : QString();
    LoadedTemplates loaded = loadedTemplates(text);
    // The start-up save that follows replaces the stored text: keep what could not be read.
    if (loaded.storedTextUnreadable)
        keepUnreadableTemplatesText(text, m_platform.templateBackupFolder());
    m_templates = std::move(loaded.templates);
}

void AppDelegate::saveTemplates()
{
    const QString text = templatesJSONText(m_templates);
    m_platform.setUserDefaultsValue(TemplatesJSONKey, text);
    m_platform.setExtensionPreferenceValue(TemplatesJSONKey, text);
    writeTemplatesJSONToExtensionContainer(text);
    m_platform.templatesChanged(extensionBundlePath());
    rebuildNewFileStatusMenu();
    setStatusText(QStringLiteral("Templates saved. Finder menu updates on the next right-click."));
}

void AppDelegate::writeTemplatesJSONToExtensionContainer(const QString& text)
{
    writeTemplatesJSONFiles(text, templateConfigFileURLs());
}

QStringList AppDelegate::templateConfigFileURLs() const { return m_platform.templateConfigFilePaths(); }

TemplateList AppDelegate::enabledTemplates() const { return brindlemark::enabledTemplates(m_templates); }

Template AppDelegate::templateWithIdentifier(const QString& identifier) const
{
    return brindlemark::templateWithIdentifier(m_templates, identifier);
}

// ---- extension management ----------------------------------------------------------------

QString AppDelegate::extensionBundlePath() const
{
    return m_platform.builtInPlugInsPath() + u'/' + ExtensionBundleName;
}

void AppDelegate::registerExtension(QObject*)
{
    const QString output = runTool(m_platform.toolPath(Platform::Tool::PluginKit),
                                   {QStringLiteral("-a"), extensionBundlePath()});
    setStatusText(output.isEmpty() ? QStringLiteral("Extension registered.") : output);
    refreshExtensionStatus();
}

void AppDelegate::enableExtension(QObject*)
{
    registerExtension();
    runTool(m_platform.toolPath(Platform::Tool::PluginKit),
            {QStringLiteral("-e"), QStringLiteral("use"), QStringLiteral("-i"),
             QLatin1String(ExtensionBundleIdentifier)});
    restartFinder();
    refreshExtensionStatus();
    setStatusText(QStringLiteral("Finder extension enabled."));
}

void AppDelegate::restartFinder(QObject*)
{
    runTool(m_platform.toolPath(Platform::Tool::KillAll), {QStringLiteral("Finder")});
    setStatusText(QStringLiteral("Finder restarted."));
}

void AppDelegate::openSettings(QObject*) { m_platform.openSettings(); }

void AppDelegate::refreshExtensionStatus()
{
    const QString listing = runTool(m_platform.toolPath(Platform::Tool::PluginKit),
                                    {QStringLiteral("-mAD"), QStringLiteral("-p"), FileManagerExtensionProtocol});
    const ExtensionState state = extensionStateFromListing(listing, QLatin1String(ExtensionBundleIdentifier));
    if (m_extensionMenuItem)
        m_extensionMenuItem->setText(extensionMenuTitle(state));
    if (m_extensionStateLabel) {
        m_extensionStateLabel->setText(extensionStateText(state));
        QPalette palette = m_extensionStateLabel->palette();
        palette.setColor(m_extensionStateLabel->foregroundRole(), extensionStateColor(state));
        m_extensionStateLabel->setPalette(palette);
    }
}

// ---- commands for the file manager's folder ---------------------------------------------

std::optional<QString> AppDelegate::frontFinderFolderURL() { return m_platform.frontFileManagerFolder(); }

QString AppDelegate::folderForCommand()
{
    const std::optional<QString> front = frontFinderFolderURL();
    return front && !front->isEmpty() ? *front : m_platform.desktopFolder();
}

void AppDelegate::createInFinderFolder(QObject*)
{
    createTemplateWithIdentifier(QStringLiteral("text"), folderForCommand());
}

void AppDelegate::createTemplateInFinderFolder(QObject* sender)
{
    QVariant carried;
    if (auto* action = qobject_cast<QAction*>(sender))
        carried = action->data();
    else if (sender)
        carried = sender->property("representedObject");

    std::optional<Template> record;
    if (carried.typeId() == QMetaType::QJsonObject)
        record = carried.toJsonObject();
    else if (carried.typeId() == QMetaType::QVariantMap)
        record = QJsonObject::fromVariantMap(carried.toMap());
    createTemplate(record, folderForCommand()); // without a record: the "text" template
}

void AppDelegate::openTerminalInFinderFolder(QObject*) { openTerminalInFolder(folderForCommand()); }

void AppDelegate::openITermInFinderFolder(QObject*) { openITermInFolder(folderForCommand()); }

} // namespace brindlemark
