// The controller's menus: the application menu and the tray's status menu with its New File
// submenu.
#include "app/AppDelegate.h"

#include "app/Symbols.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QMenu>
#include <QSystemTrayIcon>

namespace brindlemark {

// ---- menus -------------------------------------------------------------------------------

QAction* AppDelegate::menuItemWithTitle(const QString& title, const QString& symbol,
                                        void (AppDelegate::*action)(QObject*))
{
    auto* item = new QAction(symbolImage(symbol, 14), title, this);
    if (action)
        connect(item, &QAction::triggered, this, [this, action, item] { (this->*action)(item); });
    return item;
}

void AppDelegate::buildApplicationMenu()
{
    m_applicationMenu = std::make_unique<QMenu>(QStringLiteral("Brindlemark"));
    QAction* show = m_applicationMenu->addAction(QStringLiteral("Show Brindlemark"));
    show->setShortcut(QKeySequence(QStringLiteral("Ctrl+,")));
    connect(show, &QAction::triggered, this, [this] { showWindow(); });
    m_applicationMenu->addSeparator();
    QAction* quit = m_applicationMenu->addAction(QStringLiteral("Quit Brindlemark"));
    quit->setShortcut(QKeySequence(QStringLiteral("Ctrl+Q")));
    connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit);
}

void AppDelegate::buildStatusItem()
{
    m_statusMenu = std::make_unique<QMenu>(QStringLiteral("Brindlemark"));
    connect(m_statusMenu.get(), &QMenu::aboutToShow, this, &AppDelegate::menuWillOpen);

    m_templateMenuItem = menuItemWithTitle(QStringLiteral("New File in Finder"), QStringLiteral("doc.badge.plus"), nullptr);
    m_templateMenuItem->setMenu(new QMenu(QStringLiteral("New File in Finder"), m_statusMenu.get()));
    m_statusMenu->addAction(m_templateMenuItem);
    rebuildNewFileStatusMenu();
    m_statusMenu->addAction(menuItemWithTitle(QStringLiteral("Open Terminal Here"), QStringLiteral("terminal"),
                                              &AppDelegate::openTerminalInFinderFolder));
    m_statusMenu->addAction(menuItemWithTitle(QStringLiteral("Open iTerm Here"), QStringLiteral("apple.terminal"),
                                              &AppDelegate::openITermInFinderFolder));
    m_statusMenu->addSeparator();
    m_extensionMenuItem = menuItemWithTitle(QStringLiteral("Finder Extension"), QStringLiteral("checkmark.shield"), nullptr);
    m_extensionMenuItem->setEnabled(false);
    m_statusMenu->addAction(m_extensionMenuItem);
    m_statusMenu->addAction(menuItemWithTitle(QStringLiteral("Enable Extension"), QStringLiteral("bolt.badge.checkmark"),
                                              &AppDelegate::enableExtension));
    m_statusMenu->addAction(menuItemWithTitle(QStringLiteral("Restart Finder"), QStringLiteral("arrow.clockwise"),
                                              &AppDelegate::restartFinder));
    m_statusMenu->addAction(menuItemWithTitle(QStringLiteral("Open System Settings"), QStringLiteral("gearshape"),
                                              &AppDelegate::openSettings));
    m_statusMenu->addSeparator();
    m_statusMenu->addAction(menuItemWithTitle(QStringLiteral("Show Window"), QStringLiteral("macwindow"),
                                              &AppDelegate::showWindow));
    QAction* quit = menuItemWithTitle(QStringLiteral("Quit"), QStringLiteral("power"), nullptr);
    connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit);
    m_statusMenu->addAction(quit);

    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        m_statusItem = new QSystemTrayIcon(symbolImage(QStringLiteral("doc.badge.plus"), 17, QFont::Medium), this);
        m_statusItem->setToolTip(QStringLiteral("Brindlemark"));
        m_statusItem->setContextMenu(m_statusMenu.get());
        // A plain click opens the menu too, as a click on a menu-bar item does.
        connect(m_statusItem, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger)
                m_statusMenu->popup(QCursor::pos());
        });
        m_statusItem->show();
    }
    refreshExtensionStatus();
}

void AppDelegate::rebuildNewFileStatusMenu()
{
    QMenu* submenu = m_templateMenuItem ? m_templateMenuItem->menu() : nullptr;
    if (!submenu)
        return;
    submenu->clear();
    const TemplateList enabled = enabledTemplates();
    if (enabled.isEmpty()) {
        submenu->addAction(QStringLiteral("No Templates Enabled"))->setEnabled(false);
        return;
    }
    for (const Template& record : enabled) {
        const bool executable = boolFromValue(record.value(TemplateKey::executable), false);
        QAction* item = submenu->addAction(symbolImage(executable ? QStringLiteral("terminal") : QStringLiteral("doc"), 14),
                                           record.value(TemplateKey::title).toString());
        item->setData(record);
        connect(item, &QAction::triggered, this, [this, item] { createTemplateInFinderFolder(item); });
    }
}

void AppDelegate::menuWillOpen()
{
    refreshExtensionStatus();
    rebuildNewFileStatusMenu();
}

} // namespace brindlemark
