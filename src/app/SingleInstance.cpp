#include "app/SingleInstance.h"

#include "app/InstanceChannel.h"

#include <QDataStream>
#include <QDeadlineTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QVariant>

namespace brindlemark {

namespace {

QByteArray encodeMessage(const QStringList& urls)
{
    std::vector<std::string> encoded;
    for (const QString& url : urls)
        encoded.push_back(url.toStdString());
    const std::string message = channel::encodeMessage(encoded);
    return QByteArray(message.data(), qsizetype(message.size()));
}

} // namespace

Forwarding forwardToRunningInstance(const QString& socketPath, const QStringList& urls,
                                    int timeoutMilliseconds)
{
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    if (!socket.waitForConnected(1000))
        return Forwarding::NoInstance;

    const QDeadlineTimer deadline(timeoutMilliseconds);
    socket.write(encodeMessage(urls));
    while (socket.bytesToWrite() > 0)
        if (!socket.waitForBytesWritten(int(deadline.remainingTime())))
            return Forwarding::Failed;
    // The answer comes once the running instance has handled the URLs.
    while (socket.bytesAvailable() < 1)
        if (!socket.waitForReadyRead(int(deadline.remainingTime())))
            return Forwarding::Failed;
    char answer = 0;
    socket.getChar(&answer);
    return answer == channel::Acknowledgement ? Forwarding::Delivered : Forwarding::Failed;
}

InstanceServer::InstanceServer(QObject* parent) : QObject(parent), m_server(new QLocalServer(this))
{
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server->nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readMessage(socket); });
            if (socket->bytesAvailable() > 0)
                readMessage(socket);
        }
    });
}

bool InstanceServer::listen(const QString& socketPath)
{
    QLocalServer::removeServer(socketPath); // a socket left behind by an instance that died
    return m_server->listen(socketPath);
}

void InstanceServer::readMessage(QLocalSocket* socket)
{
    if (socket->property("handled").toBool())
        return;
    if (socket->bytesAvailable() < qint64(sizeof(quint32)))
        return;
    quint32 size = 0;
    {
        QDataStream header(socket->peek(sizeof(quint32)));
        header >> size;
    }
    if (size > channel::LargestMessage) {
        socket->abort();
        return;
    }
    if (socket->bytesAvailable() < qint64(sizeof(quint32)) + size)
        return;
    socket->skip(sizeof(quint32));
    const QByteArray body = socket->read(size);
    std::vector<std::string> decoded;
    if (!channel::decodeBody(body.toStdString(), decoded)) {
        socket->abort();
        return;
    }
    QStringList urls;
    for (const std::string& url : decoded)
        urls << QString::fromStdString(url);
    socket->setProperty("handled", true);
    emit urlsReceived(urls);
    socket->putChar(channel::Acknowledgement);
    socket->flush();
    socket->disconnectFromServer();
}

} // namespace brindlemark
