#include "platform/linux/PluginRegistry.h"

#include "templates/AtomicFile.h"
#include "platform/linux/XdgFolders.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>

namespace brindlemark {

namespace {

const QString Usage = QStringLiteral(
    "usage: brindlemark-pluginkit -a PATH | -r PATH | -e use|ignore -i IDENTIFIER"
    " | -m[AD] [-p PROTOCOL] [-i IDENTIFIER]\n");

struct Registration {
    QString identifier, path, protocol, version;
    bool elected = false;
};

QList<Registration> readRegistry()
{
    QFile file(pluginRegistryFilePath());
    QList<Registration> registrations;
    if (!file.open(QIODevice::ReadOnly))
        return registrations;
    // A broken registry reads as empty: registering again repairs it.
    for (const QJsonValue& value : QJsonDocument::fromJson(file.readAll()).array()) {
        const QJsonObject entry = value.toObject();
        Registration r{entry.value("identifier").toString(), entry.value("path").toString(),
                       entry.value("protocol").toString(), entry.value("version").toString(),
                       entry.value("elected").toBool()};
        if (!r.identifier.isEmpty())
            registrations << r;
    }
    return registrations;
}

bool writeRegistry(const QList<Registration>& registrations)
{
    QJsonArray array;
    for (const Registration& r : registrations)
        array.append(QJsonObject{{"identifier", r.identifier}, {"path", r.path}, {"protocol", r.protocol},
                                 {"version", r.version}, {"elected", r.elected}});
    return writeFileAtomically(pluginRegistryFilePath(), QJsonDocument(array).toJson());
}

PluginKitResult failure(const QString& message, int code = 1) { return {code, message + u'\n'}; }

PluginKitResult cannotWrite()
{
    return failure(QStringLiteral("pluginkit: cannot write the registry %1").arg(pluginRegistryFilePath()));
}

PluginKitResult add(const QString& bundlePath)
{
    const QString path = QFileInfo(bundlePath).absoluteFilePath();
    const QString info = path + QStringLiteral("/Info.ini");
    if (!QFileInfo(info).isFile())
        return failure(QStringLiteral("pluginkit: %1 is not an extension bundle (it has no Info.ini)").arg(path));
    QSettings manifest(info, QSettings::IniFormat);
    Registration added{manifest.value("Extension/Identifier").toString(), path,
                       manifest.value("Extension/Protocol").toString(),
                       manifest.value("Extension/Version").toString(), false};
    if (added.identifier.isEmpty() || added.protocol.isEmpty())
        return failure(QStringLiteral("pluginkit: %1 names no identifier or protocol").arg(info));

    QList<Registration> registrations = readRegistry();
    for (Registration& r : registrations) {
        if (r.identifier == added.identifier) {
            added.elected = r.elected; // registering again keeps the user's choice
            r = added;
            return writeRegistry(registrations) ? PluginKitResult{} : cannotWrite();
        }
    }
    registrations << added;
    return writeRegistry(registrations) ? PluginKitResult{} : cannotWrite();
}

PluginKitResult remove(const QString& bundlePath)
{
    const QString path = QFileInfo(bundlePath).absoluteFilePath();
    QList<Registration> registrations = readRegistry();
    const qsizetype removed = registrations.removeIf([&](const Registration& r) { return r.path == path; });
    if (removed == 0)
        return failure(QStringLiteral("pluginkit: no plug-in is registered at %1").arg(path));
    return writeRegistry(registrations) ? PluginKitResult{} : cannotWrite();
}

// Runs the bundle's own install or uninstall step, if it has one, and passes on what it says.
QString runBundleStep(const Registration& r, const QString& step)
{
    const QString program = r.path + u'/' + step;
    if (!QFileInfo(program).isExecutable())
        return QString();
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, {});
    if (!process.waitForStarted() || !process.waitForFinished(60'000)) {
        process.kill();
        return QStringLiteral("pluginkit: %1 did not run to its end\n").arg(program);
    }
    return QString::fromUtf8(process.readAll());
}

PluginKitResult elect(const QString& choice, const QString& identifier)
{
    QList<Registration> registrations = readRegistry();
    for (Registration& r : registrations) {
        if (r.identifier != identifier)
            continue;
        r.elected = choice == QLatin1String("use");
        if (!writeRegistry(registrations))
            return cannotWrite();
        return {0, runBundleStep(r, r.elected ? QStringLiteral("install") : QStringLiteral("uninstall"))};
    }
    return failure(QStringLiteral("pluginkit: no plug-in is registered as %1").arg(identifier));
}

PluginKitResult list(const QString& protocol, const QString& identifier)
{
    PluginKitResult result;
    for (const Registration& r : readRegistry()) {
        if ((!protocol.isEmpty() && r.protocol != protocol) || (!identifier.isEmpty() && r.identifier != identifier))
            continue;
        const QString sign = r.elected ? QStringLiteral("+") : QStringLiteral("-");
        result.output += QStringLiteral("%1    %2(%3)\n").arg(sign, r.identifier, r.version);
    }
    return result;
}

} // namespace

QString pluginRegistryFilePath() { return xdg::dataHome() + QStringLiteral("/brindlemark/plugin-registry.json"); }

PluginKitResult runPluginKit(const QStringList& arguments)
{
    const QString first = arguments.value(0);
    if (arguments.size() == 2 && first == QLatin1String("-a"))
        return add(arguments[1]);
    if (arguments.size() == 2 && first == QLatin1String("-r"))
        return remove(arguments[1]);
    if (arguments.size() == 4 && first == QLatin1String("-e") && arguments[2] == QLatin1String("-i") &&
        (arguments[1] == QLatin1String("use") || arguments[1] == QLatin1String("ignore")))
        return elect(arguments[1], arguments[3]);

    // -m with optional letters of its own (-mAD), then -p PROTOCOL and -i IDENTIFIER in any order.
    static const QRegularExpression matchFlag(QStringLiteral("^-m[ADv]*$"));
    if (!first.contains(matchFlag))
        return failure(Usage.trimmed(), 64);
    QString protocol, identifier;
    for (qsizetype i = 1; i < arguments.size(); i += 2) {
        if (i + 1 >= arguments.size())
            return failure(Usage.trimmed(), 64);
        if (arguments[i] == QLatin1String("-p"))
            protocol = arguments[i + 1];
        else if (arguments[i] == QLatin1String("-i"))
            identifier = arguments[i + 1];
        else
            return failure(Usage.trimmed(), 64);
    }
    return list(protocol, identifier);
}

} // namespace brindlemark
