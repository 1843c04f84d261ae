#include "actions/FolderChanges.h"

#include <cerrno>
#include <cstdint>
#include <sys/inotify.h>
#include <unistd.h>

namespace brindlemark {

bool FolderChanges::watch(const QByteArray& folder) {
    stop();
    // One inotify instance per watched folder, closed when the watch stops: a user has only 128.
    m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0)
        return false;
    constexpr std::uint32_t entries = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
    if (::inotify_add_watch(m_fd, folder.constData(),
                            entries | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR) < 0) {
        stop();
        return false;
    }
    return true;
}

void FolderChanges::stop() {
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

bool FolderChanges::takeChanges(
    const std::function<void(QByteArrayView name, bool appeared)>& apply) {
    if (m_fd < 0)
        return false;
    alignas(inotify_event) char buffer[16384];
    for (;;) {
        const ssize_t n = ::read(m_fd, buffer, sizeof(buffer));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return true;
        if (n <= 0)
            break;
        for (const char* at = buffer; at < buffer + n;) {
            const auto* event = reinterpret_cast<const inotify_event*>(at);
            at += sizeof(inotify_event) + event->len;
            // A full queue drops events; the folder gone or moved leaves nothing to follow.
            if (event->mask &
                (IN_Q_OVERFLOW | IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) {
                stop();
                return false;
            }
            if (event->len > 0) // the name, padded with NULs
                apply(QByteArrayView(static_cast<const char*>(event->name)),
                      (event->mask & (IN_CREATE | IN_MOVED_TO)) != 0);
        }
    }
    stop();
    return false;
}

} // namespace brindlemark
