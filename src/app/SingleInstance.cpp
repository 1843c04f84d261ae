#include "app/SingleInstance.h"

#include <QDataStream>
#include <QDeadlineTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QVariant>

namespace brindlemark {

namespace {

constexpr char Acknowledgement = 'k';
constexpr quint32 LargestMessage = 64 * 1024 * 1024;

QByteArray encodeMessage(const QStringList& urls)
{
    QByteArray body;
    QDataStream out(&body, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_0);
    out << urls;
    QByteArray message;
    QDataStream framed(&message, QIODevice::WriteOnly);
    framed << quint32(body.size());
    message.append(body);
    return message;
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
    return answer == Acknowledgement ? Forwarding::Delivered : Forwarding::Failed;
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
    if (size > LargestMessage) {
        socket->abort();
        return;
    }
    if (socket->bytesAvailable() < qint64(sizeof(quint32)) + size)
        return;
    socket->skip(sizeof(quint32));
    QDataStream in(socket->read(size));
    in.setVersion(QDataStream::Qt_6_0);
    QStringList urls;
    in >> urls;
    if (in.status() != QDataStream::Ok) {
        socket->abort();
        return;
    }
    socket->setProperty("handled", true);
    emit urlsReceived(urls);
    socket->putChar(Acknowledgement);
    socket->flush();
    socket->disconnectFromServer();
}

} // namespace brindlemark
