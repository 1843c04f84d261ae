#include "platform/linux/InstanceServer.h"

#include "platform/linux/InstanceChannel.h"

#include <QDataStream>
#include <QLocalServer>
#include <QLocalSocket>
#include <QVariant>

namespace brindlemark {

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
