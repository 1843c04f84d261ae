// Fuzzes the registry tool's command line: the input's lines are its arguments. It never
// crashes, answers with one of its three exit codes, ends what it prints with a line break, and
// writes nothing but its registry, in a temporary data folder.
#include "platform/linux/PluginRegistry.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

using namespace brindlemark;

namespace {

QString prepareHome()
{
    static QTemporaryDir home;
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_DATA_HOME", (home.path() + "/data").toUtf8());
    // One real bundle, at a short path inputs can name: "b".
    QDir().mkpath(home.path() + "/b");
    QFile info(home.path() + "/b/Info.ini");
    if (info.open(QIODevice::WriteOnly))
        info.write("[Extension]\nIdentifier=x.y\nProtocol=com.apple.FinderSync\nVersion=1\n");
    QDir::setCurrent(home.path());
    return home.path();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QString home = prepareHome();
    QStringList arguments = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size)).split(u'\n');
    if (arguments.size() > 8)
        return 0;
    // Installing runs a bundle's own step: the fuzzer elects only the bundle above, which has none.
    const PluginKitResult result = runPluginKit(arguments);
    if (result.exitCode != 0 && result.exitCode != 1 && result.exitCode != 64)
        std::abort();
    if (!result.output.isEmpty() && !result.output.endsWith(u'\n'))
        std::abort();
    for (const QString& entry : QDir(home).entryList(QDir::AllEntries | QDir::NoDotAndDotDot))
        if (entry != QLatin1String("b") && entry != QLatin1String("data"))
            std::abort();
    return 0;
}
