#include "platform/linux/LinuxPlatform.h"

#include "Identifiers.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace brindlemark {

namespace {

// The XDG base-directory rule: the variable when it holds an absolute path, else the default
// below the home folder.
QString xdgFolder(const char* variable, const QString& fallbackBelowHome)
{
    const QString value = qEnvironmentVariable(variable);
    if (!value.isEmpty() && QDir::isAbsolutePath(value))
        return QDir::cleanPath(value);
    return QDir::cleanPath(QDir::homePath() + QLatin1Char('/') + fallbackBelowHome);
}

void storeAndFlush(const QString& file, const QString& key, const QString& value)
{
    QSettings settings(file, QSettings::IniFormat);
    settings.setValue(key, value);
    settings.sync(); // a failure shows only in status(); persisting failures are not reported
}

} // namespace

QString LinuxPlatform::configHome() { return xdgFolder("XDG_CONFIG_HOME", QStringLiteral(".config")); }

QString LinuxPlatform::dataHome() { return xdgFolder("XDG_DATA_HOME", QStringLiteral(".local/share")); }

QString LinuxPlatform::userDefaultsFilePath()
{
    return configHome() + QLatin1Char('/') + QLatin1String(ApplicationBundleIdentifier) + ".conf";
}

QString LinuxPlatform::extensionPreferencesFilePath()
{
    return configHome() + QLatin1Char('/') + QLatin1String(ExtensionBundleIdentifier) + ".conf";
}

QVariant LinuxPlatform::userDefaultsValue(const QString& key)
{
    return QSettings(userDefaultsFilePath(), QSettings::IniFormat).value(key);
}

void LinuxPlatform::setUserDefaultsValue(const QString& key, const QString& value)
{
    storeAndFlush(userDefaultsFilePath(), key, value);
}

void LinuxPlatform::setExtensionPreferenceValue(const QString& key, const QString& value)
{
    storeAndFlush(extensionPreferencesFilePath(), key, value);
}

QStringList LinuxPlatform::templateConfigFilePaths()
{
    const QString file = QStringLiteral("/Templates.json");
    return {
        dataHome() + QLatin1Char('/') + QLatin1String(ExtensionBundleIdentifier) + file,
        dataHome() + QLatin1Char('/') + QLatin1String(ApplicationBundleIdentifier) + file,
        configHome() + QStringLiteral("/Brindlemark") + file,
    };
}

QString LinuxPlatform::templateBackupFolder()
{
    return QFileInfo(templateConfigFilePaths().constLast()).absolutePath();
}

std::unique_ptr<Platform> createPlatform() { return std::make_unique<LinuxPlatform>(); }

} // namespace brindlemark
