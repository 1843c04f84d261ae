// Fuzzes the registry tool: the input's lines are its arguments, after a registry text of its own
// when the input has a NUL byte (the text is what comes before it). The tool never crashes,
// answers with one of its three exit codes, ends what it prints with a line break and writes
// nothing but its registry and the backup of one it could not read, in a temporary data folder.
// A backup holds the registry's bytes as they were. A registry it wrote is JSON that Qt's reader
// takes, holding the registrations the tool lists, one line each.
#include "platform/linux/PluginRegistry.h"

#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

namespace {

QByteArray contents(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool put(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
           file.write(bytes) == bytes.size();
}

// The listing of the registry as Qt reads it, control characters shown as the tool shows them.
std::string listingByQt(const QJsonArray& registrations) {
    const auto shown = [](QString text) {
        for (char c = 0; c < 0x20; ++c)
            text.replace(QChar(c), QString::asprintf("\\x%02x", c));
        return text.replace(QChar(0x7f), "\\x7f").toStdString();
    };
    std::string listing;
    for (const QJsonValue& value : registrations)
        if (const QJsonObject r = value.toObject(); !r["identifier"].toString().isEmpty())
            listing += (r["elected"].toBool() ? "+    " : "-    ") +
                       shown(r["identifier"].toString()) + "(" + shown(r["version"].toString()) +
                       ")\n";
    return listing;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QTemporaryDir home;
    static const QString registry = home.path() + "/data/brindlemark/plugin-registry.json";
    // One real bundle, at a short path inputs can name, "b"; it has no install step to run.
    static const bool prepared =
        qputenv("XDG_DATA_HOME", (home.path() + "/data").toUtf8()) &&
        put(home.path() + "/w/b/Info.ini",
            "[Extension]\nIdentifier=x.y\nProtocol=com.apple.FinderSync\nVersion=1\n") &&
        QDir().mkpath(home.path() + "/data/brindlemark") && QDir::setCurrent(home.path() + "/w");
    QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype end = input.indexOf('\0');
    if (end >= 0 && !put(registry, input.left(end)))
        return 0;
    input.remove(0, end + 1);
    std::vector<std::string> arguments;
    for (const QByteArray& line : input.split('\n'))
        arguments.push_back(line.toStdString());
    const QByteArray before = contents(registry);
    // Electing runs the registered bundle's own step: only with bundles named without a slash,
    // which are then below the temporary folder and have none.
    const bool namesOtherFolders = before.contains('/') || before.toLower().contains("u002f");
    if (!prepared || arguments.size() > 8 || (arguments[0] == "-e" && namesOtherFolders))
        return 0;

    const brindlemark::PluginKitResult result = brindlemark::runPluginKit(arguments);
    if ((result.exitCode != 0 && result.exitCode != 1 && result.exitCode != 64) ||
        (!result.output.empty() && !result.output.ends_with('\n')) ||
        (!result.notice.empty() && !result.notice.ends_with('\n')))
        std::abort();
    // Nothing but the registry, the bundle and the folders on their way, and a backup.
    const QString allowed = registry + '\n' + home.path() + "/w/b/Info.ini\n";
    for (QDirIterator entries(home.path(),
                              QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                              QDirIterator::Subdirectories);
         entries.hasNext();) {
        const QString entry = entries.next();
        const bool backup = entry.startsWith(registry + ".unreadable");
        if (backup ? contents(entry) != before
                   : !allowed.contains(entry + '\n') && !allowed.contains(entry + '/'))
            std::abort();
        if (backup)
            QFile::remove(entry); // each run starts without one
    }
    // A text Qt cannot read gives no document, and so no array.
    const QByteArray after = contents(registry);
    const QJsonDocument written = QJsonDocument::fromJson(after);
    if (after != before && (!written.isArray() || brindlemark::runPluginKit({"-mAD"}).output !=
                                                      listingByQt(written.array())))
        std::abort();
    return 0;
}
