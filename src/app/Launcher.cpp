#include "app/Launcher.h"

#include "Identifiers.h"
#include "app/AppDelegate.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QTimer>

namespace brindlemark {

int runBrindlemark(int argc, char** argv)
{
    QApplication application(argc, argv);
    application.setApplicationName(QStringLiteral("Brindlemark"));
    application.setDesktopFileName(QLatin1String(ApplicationBundleIdentifier));
    // An accessory application: closing the window leaves it running in the tray.
    application.setQuitOnLastWindowClosed(false);

    const std::unique_ptr<Platform> platform = createPlatform();
    AppDelegate delegate(*platform);
    delegate.applicationWillFinishLaunching();
    // Launching finishes on the first pass of the event loop, as on the desktop it came from.
    QTimer::singleShot(0, &delegate, &AppDelegate::applicationDidFinishLaunching);
    return application.exec();
}

} // namespace brindlemark
