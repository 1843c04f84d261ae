#pragma once

#include <QString>

namespace brindlemark::xdg {

// The XDG base folders, read from the environment at every call so that a changed HOME or XDG
// variable takes effect at once: the variable when it holds an absolute path, else the default
// below the home folder.
QString configHome(); // $XDG_CONFIG_HOME, else ~/.config
QString dataHome();   // $XDG_DATA_HOME, else ~/.local/share

} // namespace brindlemark::xdg
