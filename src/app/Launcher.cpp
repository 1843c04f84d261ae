#include "app/Launcher.h"

#include "Identifiers.h"
#include "app/AppDelegate.h"
#include "app/ApplicationStyle.h"
#include "app/Symbols.h"
#include "bridge/LaunchArguments.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QTimer>

namespace brindlemark {

void setUpApplication(QApplication& application) {
    application.setApplicationName(QStringLiteral("Brindlemark"));
    application.setDesktopFileName(QLatin1String(ApplicationBundleIdentifier));
    QApplication::setStyle(new ApplicationStyle);
    application.setWindowIcon(applicationIcon());
    // The desktop's icon theme first; Adwaita where the desktop names none.
    QIcon::setFallbackThemeName(QStringLiteral("Adwaita"));
}

namespace {

// Qt warns once per start when XDG_RUNTIME_DIR is not set (as under a plain "su", or a login
// manager that sets none) and then uses a folder of its own, as Brindlemark does: nothing a user
// can act on, so it is not shown. Every other message goes where Qt would send it.
QtMessageHandler qtHandler = nullptr;

void withoutRuntimeFolderNotice(QtMsgType type, const QMessageLogContext& context,
                                const QString& message) {
    if (type == QtWarningMsg &&
        message.startsWith(QLatin1String("QStandardPaths: XDG_RUNTIME_DIR")))
        return;
    qtHandler(type, context, message);
}

} // namespace

int runBrindlemark(int argc, char** argv) {
    qtHandler = qInstallMessageHandler(withoutRuntimeFolderNotice);
    QStringList urls, folderCommands, forwarded;
    for (int i = 1; i < argc; ++i) {
        if (isForwardedArgument(argv[i]))
            forwarded << QString::fromLocal8Bit(argv[i]);
        if (isUrlArgument(argv[i]))
            urls << forwarded.constLast();
        else if (isFolderCommandArgument(argv[i]))
            folderCommands << forwarded.constLast();
    }
    const std::unique_ptr<Platform> platform = createPlatform();
    if (const std::optional<int> handedOff = platform->handOffToRunningInstance(forwarded))
        return *handedOff;

    QApplication application(argc, argv);
    setUpApplication(application);
    AppDelegate delegate(*platform);
    // An accessory application: closing the window leaves it running in the tray.
    application.setQuitOnLastWindowClosed(
        delegate.applicationShouldTerminateAfterLastWindowClosed());

    delegate.applicationWillFinishLaunching();
    // URLs of the launch itself arrive before launching finishes, as on the desktop it came from.
    for (const QString& url : urls)
        delegate.handleGetURLEvent(url);
    QTimer::singleShot(0, &delegate, &AppDelegate::applicationDidFinishLaunching);
    // A keyboard shortcut's command needs the templates: it runs once launching has finished,
    // and like a URL it keeps the window hidden.
    if (!folderCommands.isEmpty()) {
        delegate.setHandledURLLaunch(true);
        QTimer::singleShot(0, &delegate, [&delegate, folderCommands] {
            for (const QString& command : folderCommands)
                delegate.handleFolderCommand(command);
        });
    }
    return application.exec();
}

} // namespace brindlemark
