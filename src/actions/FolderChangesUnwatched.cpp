#include "actions/FolderChanges.h"

namespace brindlemark {

// This system reports no folder changes to Brindlemark: a folder is read again for every file.
FolderChanges::~FolderChanges() = default;

bool FolderChanges::watch(const QByteArray&) {
    return false;
}

void FolderChanges::stop() {}

bool FolderChanges::takeChanges(const std::function<void(QByteArrayView, bool)>&) {
    return false;
}

} // namespace brindlemark
