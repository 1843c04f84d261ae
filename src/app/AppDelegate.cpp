// The controller's life: start-up, reopening, the template list, and the dispatch of URLs.
#include "app/AppDelegate.h"

#include "app/MainWindow.h"
#include "bridge/LaunchArguments.h"
#include "bridge/TextRules.h"
#include "bridge/ToolRunner.h"
#include "bridge/UrlCommands.h"
#include "platform/Platform.h"
#include "templates/TemplateStore.h"
#include "templates/TemplateTableModel.h"

#include <QCoreApplication>
#include <QFileSystemWatcher>
#include <QLabel>
#include <QMenu>
#include <QTimer>
#include <QWidget>

namespace brindlemark {

AppDelegate::AppDelegate(Platform& platform, QObject* parent)
    : QObject(parent), m_platform(platform), m_templateTableModel(new TemplateTableModel(
                                                 m_templates, [this] { saveTemplates(); }, this)) {}

AppDelegate::~AppDelegate() {
    // The window's table reads the template list until it is gone: close it down first.
    m_window.reset();
}

void AppDelegate::applicationWillFinishLaunching() {
    // The handler for later launches, installed before the start-up sequence runs: a URL that
    // arrives meanwhile is handled first and keeps the window hidden. No URL: a reopen.
    m_platform.receiveLaterLaunches([this](const QStringList& items) {
        if (items.isEmpty())
            applicationShouldHandleReopen(window() && window()->isVisible());
        for (const QString& item : items) {
            if (isFolderCommandArgument(item.toUtf8().constData()))
                handleFolderCommand(item);
            else
                handleGetURLEvent(item);
        }
    });
}

void AppDelegate::applicationDidFinishLaunching() {
    loadTemplates();
    saveTemplates();
    buildApplicationMenu();
    buildStatusItem();
    registerExtension();
    if (!m_handledURLLaunch)
        showWindow();
}

bool AppDelegate::applicationShouldHandleReopen(bool) {
    showWindow();
    return true;
}

void AppDelegate::terminate(QObject*) {
    QCoreApplication::quit();
}

// ---- the template list ---------------------------------------------------------------------

TemplateList AppDelegate::enabledTemplates() const {
    return brindlemark::enabledTemplates(m_templates);
}

Template AppDelegate::templateWithIdentifier(const QString& identifier) const {
    return brindlemark::templateWithIdentifier(m_templates, identifier);
}

// ---- URL commands ----------------------------------------------------------------------------

void AppDelegate::handleGetURLEvent(const QString& urlText) {
    m_handledURLLaunch = true;
    handleURL(urlText);
}

void AppDelegate::handleURL(const QString& urlText) {
    const UrlRequest request = interpretCommandUrl(urlText, m_templates);
    // The folder as a file-system path: trailing separators go, as in a file URL's path.
    const QString folder = withoutTrailingSlashes(request.folder);

    switch (request.kind) {
    case UrlRequest::Ignore:
        return;
    case UrlRequest::MissingFolder:
        showError(QStringLiteral("Finder did not provide a target folder."));
        return;
    case UrlRequest::Create:
        createTemplateWithIdentifier(FallbackTemplateIdentifier, folder);
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

// ---- the status line and the error alert -------------------------------------------------

void AppDelegate::setStatusText(const QString& text) {
    // Until the window exists there is no status line, and the text is dropped.
    if (m_statusLabel)
        m_statusLabel->setText(text);
}

void AppDelegate::showError(const std::optional<QString>& message) {
    m_pendingErrors.enqueue(message.value_or(QStringLiteral("Unknown error.")));
    QMetaObject::invokeMethod(this, &AppDelegate::showQueuedErrors, Qt::QueuedConnection);
}

void AppDelegate::showQueuedErrors() {
    // An alert runs its own event loop, where the next queued call arrives: that call returns
    // at once and this loop shows its message after the current alert is closed.
    if (m_showingErrors)
        return;
    m_showingErrors = true;
    while (!m_pendingErrors.isEmpty())
        m_platform.runAlert(QStringLiteral("New Text File failed"), m_pendingErrors.dequeue());
    m_showingErrors = false;
}

} // namespace brindlemark
