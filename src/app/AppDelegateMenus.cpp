// The controller's menus: the application menu and the tray's status menu with its New File
// submenu, made from the commands.
#include "app/AppDelegate.h"

#include "app/Commands.h"
#include "app/Symbols.h"
#include "platform/Platform.h"

#include <QAction>
#include <QCursor>
#include <QGuiApplication>
#include <QImage>
#include <QMenu>
#include <QScreen>
#include <QSignalBlocker>
#include <QSystemTrayIcon>
#include <QTimer>

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
        if (command == &Commands::ShowWindow)
            addStartAtLoginItem();
    }
}

void AppDelegate::addStartAtLoginItem() {
    if (!m_platform.startsAtLogin())
        return; // this system's Brindlemark cannot start with the session
    QAction* item = m_applicationMenu->addAction(QStringLiteral("Start at Login"));
    item->setCheckable(true);
    // The desktop's own startup settings change the same entry: it is read whenever the menu
    // opens.
    const auto showState = [this, item] {
        const QSignalBlocker quiet(item);
        item->setChecked(m_platform.startsAtLogin().value_or(false));
    };
    showState();
    connect(m_applicationMenu.get(), &QMenu::aboutToShow, item, showState);
    connect(item, &QAction::toggled, this, [this, showState](bool on) {
        if (const std::optional<QString> problem = m_platform.setStartsAtLogin(on))
            setStatusText(QStringLiteral("Start at Login could not be turned %1: %2.")
                              .arg(on ? QStringLiteral("on") : QStringLiteral("off"), *problem));
        showState();
    });
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
        m_statusItem = new QSystemTrayIcon(statusItemIcon(statusItemColour({})), this);
        m_statusItem->setToolTip(QStringLiteral("Brindlemark"));
        m_statusItem->setContextMenu(m_statusMenu.get());
        // A plain click opens the menu too, as a click on a menu-bar item does.
        connect(m_statusItem, &QSystemTrayIcon::activated, this,
                [this](QSystemTrayIcon::ActivationReason reason) {
                    if (reason == QSystemTrayIcon::Trigger)
                        m_statusMenu->popup(QCursor::pos());
                });
        m_statusItem->show();
        // A panel that embeds the icon (XEmbed) shows our own pixels: the mark takes the colour
        // that reads on that panel, once the icon has a place there, and again whenever its
        // menu opens (the panel's theme may have changed). A panel that draws the mark itself
        // from its name (StatusNotifier) gives the icon no place here and colours it its way.
        auto* placed = new QTimer(m_statusItem);
        placed->setInterval(250);
        connect(placed, &QTimer::timeout, m_statusItem, [this, placed, tries = 0]() mutable {
            if (matchStatusItemToPanel() || ++tries == 20)
                placed->deleteLater();
        });
        placed->start();
        connect(m_statusMenu.get(), &QMenu::aboutToShow, this,
                [this] { matchStatusItemToPanel(); });
    }
    refreshExtensionStatus();
}

bool AppDelegate::matchStatusItemToPanel() {
    const QRect place = m_statusItem ? m_statusItem->geometry() : QRect();
    QScreen* screen = place.isValid() ? QGuiApplication::screenAt(place.center()) : nullptr;
    if (!screen)
        return false;
    // What the desktop shows there: the panel where the mark leaves it showing, the corners and
    // the edges' middles of the icon's place.
    const QRect local = place.translated(-screen->geometry().topLeft());
    const QImage shown =
        screen->grabWindow(0, local.x(), local.y(), local.width(), local.height()).toImage();
    if (shown.isNull())
        return false;
    QList<QColor> panel;
    const int right = shown.width() - 1, bottom = shown.height() - 1;
    for (const QPoint at : {QPoint(0, 0), QPoint(right, 0), QPoint(0, bottom),
                            QPoint(right, bottom), QPoint(right / 2, 0), QPoint(right / 2, bottom),
                            QPoint(0, bottom / 2), QPoint(right, bottom / 2)})
        panel.append(shown.pixelColor(at));
    const QColor colour = statusItemColour(panel);
    if (colour.rgba() != m_statusItemColour) {
        m_statusItemColour = colour.rgba();
        m_statusItem->setIcon(statusItemIcon(colour));
    }
    return true;
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
