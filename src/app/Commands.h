#pragma once

#include <QObject>
#include <QString>

namespace brindlemark {

class AppDelegate;

// A command the user can give, defined once: the tray menu, the window's buttons and the
// application menu take its titles, symbol and action from here.
struct Command {
    QString menuTitle{};            // in the tray menu; empty: not there
    QString buttonTitle{};          // on the window; empty: no button
    QString applicationMenuTitle{}; // in the application menu; empty: not there
    QString shortcut{};             // of the application menu's item
    QString symbol{};
    void (AppDelegate::*action)(QObject* sender) = nullptr; // none: an item without action
};

namespace Commands {
extern const Command NewFile, OpenTerminal, OpenITerm, ExtensionState, EnableExtension,
    RestartFinder, OpenSettings, ShowWindow, Quit, CreateFile, HideWindow, AddTemplate,
    RemoveTemplate;
} // namespace Commands

// Makes `signal` of `sender` run the action (if any) on the controller, with the sender.
template <typename Sender, typename Signal>
void connectCommand(Sender* sender, Signal signal, AppDelegate* target,
                    void (AppDelegate::*action)(QObject*)) {
    if (action)
        QObject::connect(sender, signal, target,
                         [target, sender, action] { (target->*action)(sender); });
}

} // namespace brindlemark
