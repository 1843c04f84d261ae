#pragma once

#include <QObject>
#include <QStringList>

class QLocalServer;
class QLocalSocket;

namespace brindlemark {

// The running instance's end of the launch channel: every later launch hands its URLs (none: a
// reopen) over this socket, and is answered once they have been handled.
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
