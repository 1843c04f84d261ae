#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <functional>

namespace brindlemark {

// The entries that appear in and disappear from one folder while it is watched, as the system
// reports them when they happen. On a system without such reports nothing can be watched.
class FolderChanges {
public:
    FolderChanges() = default;
    ~FolderChanges();
    FolderChanges(const FolderChanges&) = delete;
    FolderChanges& operator=(const FolderChanges&) = delete;

    // Watches the folder (and no other): every change after this returns is reported. False when
    // the system cannot watch it.
    bool watch(const QByteArray& folder);
    void stop();

    // Hands each change since the last call to `apply`, in order: the entry's name, and whether
    // it appeared. False when changes may have been lost or the folder itself was removed or
    // moved: then the watch has stopped, and what is known of the folder must be read again.
    bool takeChanges(const std::function<void(QByteArrayView name, bool appeared)>& apply);

private:
    int m_fd = -1;
    int m_watch = -1;
};

} // namespace brindlemark
