// Fuzzes the registry tool: the input's lines are its arguments, after a registry text of its own
// when the input has a NUL byte (the text is what comes before it). The tool never crashes,
// answers with one of its three exit codes, ends what it prints with a line break and writes
// nothing but its registry and the backup of one it could not read, in a temporary data folder.
// A backup holds the registry's bytes as they were. A registry it wrote is JSON that Qt's reader
// takes, holding the registrations the tool lists, one line each.
#include "platform/linux/PluginRegistry.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
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

// Control characters as the tool shows them.
std::string escaped(const QString& text) {
    std::string shown;
    for (const char c : text.toStdString())
        shown += static_cast<unsigned char>(c) < 0x20 || c == 0x7f
                     ? QString::asprintf("\\x%02x", c).toStdString()
                     : std::string(1, c);
    return shown;
}

// The listing as Qt reads the registry.
std::string listingByQt(const QJsonArray& registrations) {
    std::string listing;
    for (const QJsonValue& value : registrations) {
        const QJsonObject r = value.toObject();
        if (!r.value("identifier").toString().isEmpty())
            listing += (r.value("elected").toBool() ? "+    " : "-    ") +
                       escaped(r.value("identifier").toString()) + "(" +
                       escaped(r.value("version").toString()) + ")\n";
    }
    return listing;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QTemporaryDir home;
    static const QString registry = home.path() + "/data/brindlemark/plugin-registry.json";
    static const bool prepared = [] {
        qputenv("XDG_DATA_HOME", (home.path() + "/data").toUtf8());
        // One real bundle, at a short path inputs can name, "b"; it has no install step to run.
        QDir().mkpath(home.path() + "/data/brindlemark");
        QDir().mkpath(home.path() + "/w/b");
        QDir::setCurrent(home.path() + "/w");
        QFile info(home.path() + "/w/b/Info.ini");
        return info.open(QIODevice::WriteOnly) &&
               info.write(
                   "[Extension]\nIdentifier=x.y\nProtocol=com.apple.FinderSync\nVersion=1\n") > 0;
    }();
    QByteArray input(reinterpret_cast<const char*>(data), qsizetype(size));
    if (const qsizetype end = input.indexOf('\0'); end >= 0) {
        QFile file(registry);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            file.write(input.left(end)) != end)
            return 0;
        input.remove(0, end + 1);
    }
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
    const auto leadsTo = [](const QString& entry, const QString& file) {
        return file == entry || file.startsWith(entry + '/');
    };
    QDirIterator entries(home.path(),
                         QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QString entry = entries.next();
        if (entry.startsWith(registry + ".unreadable")) {
            if (contents(entry) != before)
                std::abort();
            QFile::remove(entry); // each run starts without one
        } else if (!leadsTo(entry, registry) && !leadsTo(entry, home.path() + "/w/b/Info.ini")) {
            std::abort();
        }
    }
    if (const QByteArray after = contents(registry); after != before) {
        QJsonParseError error{};
        const QJsonDocument written = QJsonDocument::fromJson(after, &error);
        if (error.error != QJsonParseError::NoError || !written.isArray() ||
            brindlemark::runPluginKit({"-mAD"}).output != listingByQt(written.array()))
            std::abort();
    }
    return 0;
}
