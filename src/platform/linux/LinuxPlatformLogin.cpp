// Starting with the session: the autostart entry of the application's own name.
#include "AutostartEntry.h"
#include "Identifiers.h"
#include "platform/linux/Autostart.h"
#include "platform/linux/LinuxPlatform.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace brindlemark {

namespace {

QString entryName() {
    return QLatin1String(ApplicationBundleIdentifier) + QStringLiteral(".desktop");
}

// The launcher beside the application (the build tree) or in the installation's bin folder,
// as an Exec value: quoted by the desktop-entry rules where it needs to be.
QByteArray launcherCommand() {
    const QString folder = QCoreApplication::applicationDirPath();
    QString launcher = QStringLiteral("brindlemark");
    for (const QString& candidate :
         {folder + QStringLiteral("/brindlemark"),
          QDir::cleanPath(folder + QStringLiteral("/../../bin/brindlemark"))})
        if (QFileInfo(candidate).isExecutable()) {
            launcher = candidate;
            break;
        }
    QByteArray quoted = launcher.toUtf8();
    if (quoted.contains(' ') || quoted.contains('"') || quoted.contains('\\') ||
        quoted.contains('$') || quoted.contains('`') || quoted.contains('\'')) {
        for (const char special : {'\\', '"', '`', '$'})
            quoted.replace(QByteArray(1, special), QByteArray("\\") + special);
        quoted = '"' + quoted + '"';
    }
    quoted.replace("\\", "\\\\"); // then escaped as a string value
    return quoted.replace("%", "%%") + " --background";
}

} // namespace

std::optional<bool> LinuxPlatform::startsAtLogin() {
    return autostart::isOn(autostart::folders(), entryName());
}

std::optional<QString> LinuxPlatform::setStartsAtLogin(bool on) {
    const QByteArray own = autostart::withKey(AutostartEntry, "Exec", launcherCommand());
    return autostart::setOn(autostart::folders(), entryName(), on, own);
}

} // namespace brindlemark
