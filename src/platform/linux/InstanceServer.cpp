#include "platform/linux/InstanceServer.h"

#include "platform/linux/InstanceChannel.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QSocketNotifier>

#include <algorithm>

#include <cerrno>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brindlemark {

struct InstanceServer::Connection {
    QSocketNotifier* notifier = nullptr;
    std::string received;
    QDeadlineTimer deadline{IdleLimitMilliseconds};
    bool handling = false; // the whole message came and is being handled: it stays
    std::vector<std::string> urls;
    std::size_t handedOn = 0;  // of urls
    std::size_t heldBytes = 0; // of the message whose URLs are handed on: counted until it is done
};

InstanceServer::InstanceServer(QObject* parent) : QObject(parent) {
    // The checks run while the application idles: a few cheap calls every two seconds.
    m_checks.setInterval(2000);
    connect(&m_checks, &QTimer::timeout, this, &InstanceServer::checkOnConnections);
}

InstanceServer::~InstanceServer() {
    for (auto& [fd, connection] : m_connections)
        ::close(fd);
    if (m_listener >= 0)
        ::close(m_listener);
}

bool InstanceServer::listen(const QString& socketPath) {
    m_path = QFile::encodeName(socketPath).toStdString();
    if (!bindListener())
        return false;
    m_checks.start();
    return true;
}

bool InstanceServer::bindListener() {
    sockaddr_un address;
    if (!channel::socketAddress(m_path, address))
        return false;
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return false;
    ::unlink(m_path.c_str()); // left by an instance that died, or made by no one still listening
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::chmod(m_path.c_str(), 0600) != 0 || ::listen(fd, 128) != 0) {
        ::close(fd);
        return false;
    }
    delete m_accepting;
    if (m_listener >= 0)
        ::close(m_listener);
    m_listener = fd;
    m_accepting = new QSocketNotifier(fd, QSocketNotifier::Read, this);
    connect(m_accepting, &QSocketNotifier::activated, this, &InstanceServer::acceptConnections);
    return true;
}

void InstanceServer::acceptConnections() {
    for (;;) {
        if (int(m_connections.size()) >= MaximumConnections && !dropOldestWaiting()) {
            m_accepting->setEnabled(false); // every connection is being handled: the rest queue
            return;
        }
        const int fd = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                // Out of descriptors or memory: pause rather than spin, and try again shortly.
                m_accepting->setEnabled(false);
                QTimer::singleShot(250, this, [this] { m_accepting->setEnabled(true); });
            }
            return;
        }
        if (!channel::peerIsThisUser(fd)) {
            ::close(fd);
            continue;
        }
        auto connection = std::make_unique<Connection>();
        connection->notifier = new QSocketNotifier(fd, QSocketNotifier::Read, this);
        connect(connection->notifier, &QSocketNotifier::activated, this, [this, fd] { read(fd); });
        m_connections.emplace(fd, std::move(connection));
        read(fd); // a launch sends at once: its message is usually here already
    }
}

void InstanceServer::read(int fd) {
    const auto found = m_connections.find(fd);
    if (found == m_connections.end() || found->second->handling)
        return;
    Connection& connection = *found->second;
    std::string& received = connection.received;
    char buffer[65536];
    for (;;) {
        std::size_t wanted = 4 - std::min<std::size_t>(received.size(), 4);
        if (received.size() >= 4) {
            const std::uint32_t size = channel::readNumber(received.data());
            if (size > channel::LargestMessage) {
                drop(fd);
                return;
            }
            wanted = 4 + size - received.size();
        }
        if (wanted == 0)
            break;
        const ssize_t n = ::read(fd, buffer, std::min(wanted, sizeof(buffer)));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return; // the rest comes later, or the connection times out
        if (n <= 0) {
            drop(fd); // gone before its message was whole
            return;
        }
        if (m_buffered + std::size_t(n) > BufferedBytesLimit) {
            drop(fd); // the connections together hold as much as is ever needed: this one grows no
                      // more
            return;
        }
        received.append(buffer, std::size_t(n));
        m_buffered += std::size_t(n);
    }

    std::vector<std::string> decoded;
    if (!channel::decodeBody(std::string_view(received).substr(4), decoded)) {
        drop(fd);
        return;
    }
    connection.handling = true;
    connection.notifier->setEnabled(false);
    connection.heldBytes = received.size();
    std::string().swap(received);
    connection.urls = std::move(decoded);
    handOnPart(fd);
}

void InstanceServer::handOnPart(int fd) {
    const auto found = m_connections.find(fd);
    if (found == m_connections.end())
        return;
    Connection* connection = found->second.get();
    const std::size_t end = std::min(connection->urls.size(), connection->handedOn + PartSize);
    QStringList urls;
    for (std::size_t i = connection->handedOn; i < end; ++i)
        urls << QString::fromStdString(connection->urls[i]);
    connection->handedOn = end;
    const bool last = end == connection->urls.size();
    emit urlsReceived(urls); // may run an alert's event loop: other launches go on meanwhile
    if (!last) {
        // The rest on a later pass; the connection stays until its answer has gone.
        QTimer::singleShot(0, this, [this, fd, connection] {
            const auto still = m_connections.find(fd);
            if (still != m_connections.end() && still->second.get() == connection)
                handOnPart(fd);
        });
        return;
    }
    const char answer = channel::Acknowledgement;
    (void)::send(fd, &answer, 1, MSG_NOSIGNAL | MSG_DONTWAIT);
    drop(fd);
}

bool InstanceServer::isHandingOn() const {
    return std::any_of(m_connections.begin(), m_connections.end(), [](const auto& entry) {
        return entry.second->handedOn < entry.second->urls.size();
    });
}

void InstanceServer::drop(int fd) {
    const auto found = m_connections.find(fd);
    if (found == m_connections.end())
        return;
    // The notifier may be the sender of the signal being handled: it goes once control returns.
    found->second->notifier->setEnabled(false);
    found->second->notifier->deleteLater();
    m_buffered -= found->second->received.size() + found->second->heldBytes;
    m_connections.erase(found);
    ::close(fd);
    if (m_accepting && !m_accepting->isEnabled())
        m_accepting->setEnabled(true);
}

bool InstanceServer::dropOldestWaiting() {
    int oldest = -1;
    qint64 soonest = 0;
    for (const auto& [fd, connection] : m_connections) {
        if (connection->handling)
            continue;
        const qint64 left = connection->deadline.remainingTime();
        if (oldest < 0 || left < soonest) {
            oldest = fd;
            soonest = left;
        }
    }
    if (oldest < 0)
        return false;
    drop(oldest);
    return true;
}

void InstanceServer::checkOnConnections() {
    std::vector<int> expired;
    for (const auto& [fd, connection] : m_connections)
        if (!connection->handling && connection->deadline.hasExpired())
            expired.push_back(fd);
    for (const int fd : expired)
        drop(fd);

    // The socket file, or its folder, can go (a cleaner of the temporary folder, a user): listen
    // anew. Another socket in its place is left alone: fighting over the name would cut off both.
    struct stat info {};
    if (::stat(m_path.c_str(), &info) != 0 && errno == ENOENT) {
        ::mkdir(m_path.substr(0, m_path.rfind('/')).c_str(), 0700);
        bindListener();
    }
}

} // namespace brindlemark
