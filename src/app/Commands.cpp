#include "app/Commands.h"

#include "app/AppDelegate.h"

namespace brindlemark::Commands {

using D = AppDelegate;

const Command NewFile{.menuTitle = "New File in Finder", .symbol = "doc.badge.plus"};
const Command OpenTerminal{.menuTitle = "Open Terminal Here",
                           .buttonTitle = "Open Terminal",
                           .symbol = "terminal",
                           .action = &D::openTerminalInFinderFolder};
const Command OpenITerm{.menuTitle = "Open iTerm Here",
                        .buttonTitle = "Open iTerm",
                        .symbol = "apple.terminal",
                        .action = &D::openITermInFinderFolder};
const Command ExtensionState{.menuTitle = "Finder Extension", .symbol = "checkmark.shield"};
const Command EnableExtension{.menuTitle = "Enable Extension",
                              .buttonTitle = "Enable Extension",
                              .symbol = "bolt.badge.checkmark",
                              .action = &D::enableExtension};
const Command RestartFinder{.menuTitle = "Restart Finder",
                            .buttonTitle = "Restart Finder",
                            .symbol = "arrow.clockwise",
                            .action = &D::restartFinder};
const Command OpenSettings{.menuTitle = "Open System Settings",
                           .buttonTitle = "Open Settings",
                           .symbol = "gearshape",
                           .action = &D::openSettings};
const Command ShowWindow{.menuTitle = "Show Window",
                         .applicationMenuTitle = "Show Brindlemark",
                         .shortcut = "Ctrl+,",
                         .symbol = "macwindow",
                         .action = &D::showWindow};
const Command Quit{.menuTitle = "Quit",
                   .applicationMenuTitle = "Quit Brindlemark",
                   .shortcut = "Ctrl+Q",
                   .symbol = "power",
                   .action = &D::terminate};
const Command CreateFile{
    .buttonTitle = "Create File", .symbol = "doc.badge.plus", .action = &D::createInFinderFolder};
const Command HideWindow{.buttonTitle = "Hide Window", .symbol = "xmark", .action = &D::hideWindow};
const Command AddTemplate{.buttonTitle = "+", .action = &D::addTemplate};
const Command RemoveTemplate{.buttonTitle = "-", .action = &D::removeTemplate};

} // namespace brindlemark::Commands
