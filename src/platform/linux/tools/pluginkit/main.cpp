// brindlemark-pluginkit: the plug-in registry command line Brindlemark runs on Linux in place of
// macOS's pluginkit, with the same arguments and listing format.
#include "platform/linux/PluginRegistry.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const brindlemark::PluginKitResult result = brindlemark::runPluginKit(application.arguments().mid(1));
    std::fputs(result.output.toUtf8().constData(), result.exitCode == 0 ? stdout : stderr);
    return result.exitCode;
}
