#pragma once

#include <QObject>
#include <QStringList>

class QLocalServer;
class QLocalSocket;

namespace brindlemark {

// One running Brindlemark per user. A later launch hands its URLs (none: a reopen) to the
// running one over a local socket and exits. Messages are length-prefixed; the running
// instance answers once the URLs have been handled.

enum class Forwarding { Delivered, NoInstance, Failed };

// The sending side, which needs no GUI: used before any window system is touched.
Forwarding forwardToRunningInstance(const QString& socketPath, const QStringList& urls,
                                    int timeoutMilliseconds);

class InstanceServer final : public QObject {
    Q_OBJECT
public:
    explicit InstanceServer(QObject* parent = nullptr);
    bool listen(const QString& socketPath);

signals:
    // Emitted once per launch that was forwarded, with its URLs in order (empty: reopen).
    void urlsReceived(const QStringList& urls);

private:
    void readMessage(QLocalSocket* socket);

    QLocalServer* m_server;
};

} // namespace brindlemark
