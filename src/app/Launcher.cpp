#include "app/Launcher.h"

#include "Identifiers.h"
#include "app/AppDelegate.h"
#include "app/SingleInstance.h"
#include "app/Symbols.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QLockFile>
#include <QThread>
#include <QWidget>
#include <QTimer>

#include <cstdio>

namespace brindlemark {

namespace {

// Every argument that is not an option for Qt (those start with "-") is a URL to handle.
QStringList urlArguments(int argc, char** argv)
{
    QStringList urls;
    for (int i = 1; i < argc; ++i) {
        const QString argument = QString::fromLocal8Bit(argv[i]);
        if (!argument.startsWith(u'-'))
            urls << argument;
    }
    return urls;
}

} // namespace

int runBrindlemark(int argc, char** argv)
{
    const QStringList urls = urlArguments(argc, argv);
    const std::unique_ptr<Platform> platform = createPlatform();
    const QString socketPath = platform->instanceSocketPath();

    // Whoever holds the lock is the running instance; everyone else forwards to it. An
    // instance that is still starting holds the lock before it listens: wait for it briefly.
    QLockFile lock(socketPath + QStringLiteral(".lock"));
    const QDeadlineTimer patience(20'000);
    while (!lock.tryLock(0)) {
        switch (forwardToRunningInstance(socketPath, urls, 60'000)) {
        case Forwarding::Delivered:
            return 0;
        case Forwarding::Failed:
            std::fprintf(stderr, "brindlemark: the running Brindlemark did not answer.\n");
            return 1;
        case Forwarding::NoInstance:
            break;
        }
        if (patience.hasExpired()) {
            std::fprintf(stderr, "brindlemark: another Brindlemark holds %s but does not answer.\n",
                         qPrintable(lock.fileName()));
            return 1;
        }
        QThread::msleep(20);
    }

    QApplication application(argc, argv);
    application.setApplicationName(QStringLiteral("Brindlemark"));
    application.setDesktopFileName(QLatin1String(ApplicationBundleIdentifier));
    application.setWindowIcon(symbolImage(QStringLiteral("doc.badge.plus")));
    // The desktop's icon theme first; Adwaita where the desktop names none.
    QIcon::setFallbackThemeName(QStringLiteral("Adwaita"));
    AppDelegate delegate(*platform);
    // An accessory application: closing the window leaves it running in the tray.
    application.setQuitOnLastWindowClosed(delegate.applicationShouldTerminateAfterLastWindowClosed());

    delegate.applicationWillFinishLaunching();
    InstanceServer server;
    QObject::connect(&server, &InstanceServer::urlsReceived, &delegate, [&delegate](const QStringList& forwarded) {
        if (forwarded.isEmpty()) {
            delegate.applicationShouldHandleReopen(delegate.window() && delegate.window()->isVisible());
            return;
        }
        for (const QString& url : forwarded)
            delegate.handleGetURLEvent(url);
    });
    if (!server.listen(socketPath))
        std::fprintf(stderr, "brindlemark: cannot listen on %s; later launches will not reach this one.\n",
                     qPrintable(socketPath));

    // URLs of the launch itself arrive before launching finishes, as on the desktop it came from.
    for (const QString& url : urls)
        delegate.handleGetURLEvent(url);
    QTimer::singleShot(0, &delegate, &AppDelegate::applicationDidFinishLaunching);
    return application.exec();
}

} // namespace brindlemark
