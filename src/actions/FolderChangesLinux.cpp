#include "actions/FolderChanges.h"

#include <cerrno>
#include <cstdint>
#include <sys/inotify.h>
#include <unistd.h>

namespace brindlemark {

// One inotify instance for the life of this object, its watch changing from folder to folder:
// closing an instance waits for the kernel (up to 15 ms measured), removing a watch does not.
FolderChanges::~FolderChanges() {
    if (m_fd >= 0)
        ::close(m_fd);
}

bool FolderChanges::watch(const QByteArray& folder) {
    stop();
    if (m_fd < 0)
        m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0)
        return false;
    constexpr std::uint32_t entries = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
    m_watch = ::inotify_add_watch(m_fd, folder.constData(),
                                  entries | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR);
    return m_watch >= 0;
}

void FolderChanges::stop() {
    if (m_watch < 0)
        return;
    ::inotify_rm_watch(m_fd, m_watch);
    m_watch = -1;
    // What the old watch left in the queue is of no use now.
    char buffer[4096];
    while (::read(m_fd, buffer, sizeof(buffer)) > 0) {
    }
}

bool FolderChanges::takeChanges(
    const std::function<void(QByteArrayView name, bool appeared)>& apply) {
    if (m_watch < 0)
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
            if (event->wd != m_watch && !(event->mask & IN_Q_OVERFLOW))
                continue; // of an earlier watch
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
