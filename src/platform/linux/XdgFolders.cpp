#include "platform/linux/XdgFolders.h"

#include <QDir>

namespace brindlemark::xdg {

namespace {

QString folder(const char* variable, const QString& fallbackBelowHome) {
    const QString value = qEnvironmentVariable(variable);
    if (!value.isEmpty() && QDir::isAbsolutePath(value))
        return QDir::cleanPath(value);
    return QDir::cleanPath(QDir::homePath() + QLatin1Char('/') + fallbackBelowHome);
}

} // namespace

QString configHome() {
    return folder("XDG_CONFIG_HOME", QStringLiteral(".config"));
}

QString dataHome() {
    return folder("XDG_DATA_HOME", QStringLiteral(".local/share"));
}

} // namespace brindlemark::xdg
