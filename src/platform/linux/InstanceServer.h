#pragma once

#include "platform/linux/InstanceChannel.h"

#include <QObject>
#include <QStringList>
#include <QTimer>

#include <map>
#include <memory>
#include <string>

class QSocketNotifier;

namespace brindlemark {

// The running instance's end of the launch channel: every later launch hands its URLs (none: a
// reopen) over this socket, and is answered once they have been handled. A launch with many URLs
// is handed on in parts, one per pass of the event loop, so that the launches that come
// meanwhile, and the window, are served between them rather than after thousands of files.
//
// Whatever arrives, the instance stays reachable: at most MaximumConnections are open at once
// (a new one pushes out the oldest that has not sent its whole message), together they hold at
// most BufferedBytesLimit of messages not yet handled in full, a connection that has not sent its
// whole message within IdleLimit is dropped, another user's connection is refused,
// running out of descriptors only pauses accepting, and a socket file that disappears is made
// again.
class InstanceServer final : public QObject {
    Q_OBJECT
public:
    static constexpr int MaximumConnections = 32;
    static constexpr int IdleLimitMilliseconds = 5000;
    static constexpr std::size_t BufferedBytesLimit = 2 * channel::LargestMessage;
    static constexpr std::size_t PartSize = 256; // URLs

    explicit InstanceServer(QObject* parent = nullptr);
    ~InstanceServer() override;

    bool listen(const QString& socketPath);

    // True while a launch is handed on in parts and has some left.
    bool isHandingOn() const;

signals:
    // Emitted for each launch that was forwarded, with its URLs in order (empty: reopen); a launch
    // of more than PartSize URLs in parts of PartSize, other launches' URLs possibly between them.
    void urlsReceived(const QStringList& urls);

private:
    struct Connection;

    bool bindListener();
    void acceptConnections();
    void read(int fd);
    void handOnPart(int fd);
    void drop(int fd);
    bool dropOldestWaiting();
    void checkOnConnections();

    std::string m_path;
    int m_listener = -1;
    QSocketNotifier* m_accepting = nullptr;
    std::map<int, std::unique_ptr<Connection>> m_connections;
    std::size_t m_buffered = 0; // the bytes of unfinished messages, over all connections
    QTimer m_checks;
};

} // namespace brindlemark
