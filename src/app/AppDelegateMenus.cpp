// The controller's menus: the application menu and the tray's status menu with its New File
// submenu, made from the commands.
#include "app/AppDelegate.h"

#include "app/Commands.h"
#include "app/Symbols.h"

#include <QAction>
#include <QCursor>
#include <QMenu>
#include <QSystemTrayIcon>

namespace brindlemark {

QAction* AppDelegate::menuItemWithTitle(const QString& title, const QString& symbol,
                                        void (AppDelegate::*action)(QObject*)) {
    auto* item = new QAction(symbolImage(symbol), title, this);
    connectCommand(item, &QAction::triggered, this, action);
    return item;
}

void AppDelegate::buildApplicationMenu() {
    m_applicationMenu = std::make_unique<QMenu>(QStringLiteral("Brindlemark"));
    for (const Command* command :
         std::initializer_list<const Command*>{&Commands::ShowWindow, nullptr, &Commands::Quit}) {
        if (!command) {
            m_applicationMenu->addSeparator();
            continue;
        }
        QAction* item = m_applicationMenu->addAction(command->applicationMenuTitle);
        item->setShortcut(QKeySequence(command->shortcut));
        connectCommand(item, &QAction::triggered, this, command->action);
    }
}

void AppDelegate::buildStatusItem() {
    m_statusMenu = std::make_unique<QMenu>(QStringLiteral("Brindlemark"));
    connect(m_statusMenu.get(), &QMenu::aboutToShow, this, &AppDelegate::menuWillOpen);
    using namespace Commands;
    for (const Command* command : std::initializer_list<const Command*>{
             &NewFile, &OpenTerminal, &OpenITerm, nullptr, &ExtensionState, &EnableExtension,
             &RestartFinder, &OpenSettings, nullptr, &ShowWindow, &Quit}) {
        if (!command) {
            m_statusMenu->addSeparator();
            continue;
        }
        QAction* item = menuItemWithTitle(command->menuTitle, command->symbol, command->action);
        m_statusMenu->addAction(item);
        if (command == &NewFile) {
            m_templateMenuItem = item;
            item->setMenu(new QMenu(command->menuTitle, m_statusMenu.get()));
            rebuildNewFileStatusMenu();
        } else if (command == &ExtensionState) {
            m_extensionMenuItem = item;
            item->setEnabled(false);
        }
    }

    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        m_statusItem = new QSystemTrayIcon(statusItemIcon(), this);
        m_statusItem->setToolTip(QStringLiteral("Brindlemark"));
        m_statusItem->setContextMenu(m_statusMenu.get());
        // A plain click opens the menu too, as a click on a menu-bar item does.
        connect(m_statusItem, &QSystemTrayIcon::activated, this,
                [this](QSystemTrayIcon::ActivationReason reason) {
                    if (reason == QSystemTrayIcon::Trigger)
                        m_statusMenu->popup(QCursor::pos());
                });
        m_statusItem->show();
    }
    refreshExtensionStatus();
}

void AppDelegate::rebuildNewFileStatusMenu() {
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
        const bool executable =
            record.value(TemplateKey::executable).toBool(); // normalised: a flag
        // The title as the user wrote it: an "&" in it is a character, not a keyboard mnemonic.
        QAction* item = menuItemWithTitle(
            record.value(TemplateKey::title).toString().replace(u'&', QStringLiteral("&&")),
            executable ? QStringLiteral("terminal") : QStringLiteral("doc"),
            &AppDelegate::createTemplateInFinderFolder);
        item->setParent(submenu);
        item->setData(record);
        submenu->addAction(item);
    }
}

void AppDelegate::menuWillOpen() {
    refreshExtensionStatus();
    rebuildNewFileStatusMenu();
}

} // namespace brindlemark
