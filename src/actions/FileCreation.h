#pragma once

#include "templates/Template.h"

namespace brindlemark {

struct FileCreation {
    enum Status { Created, NotAFolder, CouldNotCreate };
    Status status = CouldNotCreate;
    QString filePath; // the new file, when created
};

// Creates an empty file from the template in `folder`: the first free name among
// "prefix.suffix", "prefix 1.suffix", "prefix 2.suffix", ... (without the dot and suffix when the
// suffix is empty), mode 0755 for an executable template, the user's default mode otherwise.
// The file is created exclusively: a name that appears meanwhile is never overwritten, the
// numbering goes on instead: "." and ".." are always taken (". 1", ".. 1"). A name that would
// leave the folder ("/" in the prefix or suffix) is refused.
FileCreation createFileFromTemplate(const Template& record, const QString& folder);

// True when the absolute path names an existing directory (a link to one counts).
bool isExistingFolder(const QString& folder);

} // namespace brindlemark
