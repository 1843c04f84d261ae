// Fuzzes the registry tool's command line: the input's lines are its arguments. It never crashes,
// answers with one of its three exit codes, ends what it prints with a line break, and writes
// nothing but its registry, in a temporary data folder.
#include "platform/linux/PluginRegistry.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir home;
    static const bool prepared = [] {
        qputenv("XDG_DATA_HOME", (home.path() + "/data").toUtf8());
        // One real bundle, at a short path inputs can name, "b"; it has no install step to run.
        QDir().mkpath(home.path() + "/b");
        QFile info(home.path() + "/b/Info.ini");
        QDir::setCurrent(home.path());
        return info.open(QIODevice::WriteOnly) && info.write("[Extension]\nIdentifier=x.y\nProtocol=com.apple.FinderSync\nVersion=1\n") > 0;
    }();
    const QStringList arguments = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size)).split(u'\n');
    if (!prepared || arguments.size() > 8)
        return 0;
    const brindlemark::PluginKitResult result = brindlemark::runPluginKit(arguments);
    if ((result.exitCode != 0 && result.exitCode != 1 && result.exitCode != 64) ||
        (!result.output.isEmpty() && !result.output.endsWith(u'\n')) ||
        !QDir(home.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).filter(QRegularExpression("^(?!(b|data)$)")).isEmpty())
        std::abort();
    return 0;
}
