#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>

namespace brindlemark {

// Everything the application needs from the operating system, behind one interface. Exactly
// one implementation is compiled per system (linux/ or macos/); tests use a recording fake.
class Platform {
public:
    virtual ~Platform();

    // The application's own settings ("user defaults"). The setter flushes to disk at once.
    virtual QVariant userDefaultsValue(const QString& key) = 0;
    virtual void setUserDefaultsValue(const QString& key, const QString& value) = 0;

    // The companion extension's preferences domain; the setter flushes to disk at once.
    virtual void setExtensionPreferenceValue(const QString& key, const QString& value) = 0;

    // The three Templates.json files in their fixed order: the extension's data folder, the
    // application's data folder, the plain configuration folder.
    virtual QStringList templateConfigFilePaths() = 0;

    // Where a copy of unreadable stored templates is kept: beside the plain Templates.json.
    virtual QString templateBackupFolder() = 0;
};

std::unique_ptr<Platform> createPlatform();

} // namespace brindlemark
