#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

namespace brindlemark::autostart {

// Starting with the session, by the freedesktop autostart rules: the entry of a name is the one
// in the user's autostart folder ($XDG_CONFIG_HOME/autostart) when there is one, else the first
// in the system's ($XDG_CONFIG_DIRS/autostart: the package's, in /etc/xdg). The user's own file
// overrides the system's; Hidden=true in it turns the entry off, and GNOME's settings write
// X-GNOME-Autostart-enabled=false for the same. The desktops' own startup settings read and
// write these same files.
struct Folders {
    QString user;       // where the user's own entry goes
    QStringList system; // the system's, in order
};
Folders folders(); // from the XDG variables

// Whether the entry starts at login.
bool isOn(const Folders& where, const QString& entryName);

// Turns the entry on or off with the least change: the user's own file gets Hidden (and GNOME's
// key, where it has it) set, every other line kept; without one, a copy of the system's entry
// with Hidden=true turns it off, and `ownEntry` (a whole entry) is written to turn it on where no
// system entry exists. The reason when the file cannot be written.
std::optional<QString> setOn(const Folders& where, const QString& entryName, bool on,
                             const QByteArray& ownEntry);

// The desktop-entry text with `key` set to `value` in its [Desktop Entry] group (added at the
// group's end when missing), every other line as it was.
QByteArray withKey(const QByteArray& entry, const QByteArray& key, const QByteArray& value);

} // namespace brindlemark::autostart
