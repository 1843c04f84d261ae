#include "app/AppDelegate.h"

#include "app/MainWindow.h"
#include "platform/Platform.h"
#include "templates/TemplateStore.h"

#include <QApplication>
#include <QGuiApplication>
#include <QLabel>
#include <QScreen>

namespace brindlemark {

AppDelegate::AppDelegate(Platform& platform, QObject* parent)
    : QObject(parent), m_platform(platform)
{
}

AppDelegate::~AppDelegate() = default;

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

// ---- menus and extension -------------------------------------------------------------------

void AppDelegate::buildApplicationMenu()
{
    // The application menu ("Show Brindlemark", "Quit Brindlemark") is built with the menus.
}

void AppDelegate::buildStatusItem()
{
    // The tray icon and its menu are built with the menus; until then there is no status item
    // and rebuildNewFileStatusMenu() has nothing to fill.
}

void AppDelegate::rebuildNewFileStatusMenu()
{
    if (!m_templateMenuItem)
        return;
}

void AppDelegate::registerExtension(QObject*)
{
    // Registration with the file-manager integration arrives with extension management.
}

// ---- window ------------------------------------------------------------------------------

void AppDelegate::showWindow(QObject*)
{
    if (!m_window)
        buildWindow();
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        QRect frame = m_window->frameGeometry();
        frame.moveCenter(screen->availableGeometry().center());
        m_window->move(frame.topLeft());
    }
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void AppDelegate::hideWindow(QObject*)
{
    if (m_window)
        m_window->hide();
}

void AppDelegate::buildWindow()
{
    m_window = std::make_unique<MainWindow>();
    m_statusLabel = m_window->statusLabel();
}

void AppDelegate::setStatusText(const QString& text)
{
    // Until the window exists there is no status line, and the text is dropped.
    if (m_statusLabel)
        m_statusLabel->setText(text);
}

} // namespace brindlemark
