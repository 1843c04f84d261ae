// A screenshot of KWin's whole workspace through its ScreenShot2 D-Bus interface, for the
// Wayland desktop checks (KWin started with KWIN_SCREENSHOT_NO_PERMISSION_CHECKS=1).
//   kwin_screenshot OUT.png
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QImage>

#include <cstdio>

#include <unistd.h>

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    if (argc != 2)
        return 2;
    int fds[2];
    if (::pipe(fds) != 0)
        return 1;
    QDBusMessage reply;
    {
        // The message holds a copy of the pipe's end: gone before reading, or the read never ends.
        QDBusMessage call =
            QDBusMessage::createMethodCall("org.kde.KWin", "/org/kde/KWin/ScreenShot2",
                                           "org.kde.KWin.ScreenShot2", "CaptureWorkspace");
        call << QVariantMap{} << QVariant::fromValue(QDBusUnixFileDescriptor(fds[1]));
        ::close(fds[1]);
        reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 10'000);
    }
    if (reply.type() != QDBusMessage::ReplyMessage) {
        std::fprintf(stderr, "%s\n", qPrintable(reply.errorMessage()));
        return 1;
    }
    QVariantMap result;
    reply.arguments().value(0).value<QDBusArgument>() >> result;
    QByteArray data;
    char buffer[65536];
    for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;)
        data.append(buffer, n);
    const QImage image(reinterpret_cast<const uchar*>(data.constData()), result["width"].toInt(),
                       result["height"].toInt(), result["stride"].toInt(),
                       QImage::Format(result["format"].toInt()));
    return image.save(QString::fromLocal8Bit(argv[1])) ? 0 : 1;
}
