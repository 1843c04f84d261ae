#pragma once

#include "templates/Template.h"

#include <memory>

namespace brindlemark {

struct FileCreation {
    enum Status { Created, NotAFolder, CouldNotCreate };
    Status status = CouldNotCreate;
    QString filePath; // the new file, when created
};

// What the last folder that files were made in holds, kept between the files of a burst. The
// folder is read once, and then followed through the system's reports of its changes, rather
// than read again for every file: each reading takes longer the more the folder holds, so a burst
// of thousands of files into one folder took seconds. Where the system reports no changes, or
// has no watch left, the folder is read for every file as without it.
class FolderNames {
public:
    FolderNames();
    ~FolderNames();
    FolderNames(const FolderNames&) = delete;
    FolderNames& operator=(const FolderNames&) = delete;

    // Ends the watch: the next file reads its folder again.
    void forget();

private:
    friend FileCreation createFileFromTemplate(const Template&, const QString&, FolderNames*);
    struct Known;
    std::unique_ptr<Known> m_known;
};

// Creates an empty file from the template in `folder`: the first free name among
// "prefix.suffix", "prefix 1.suffix", "prefix 2.suffix", ... (without the dot and suffix when the
// suffix is empty), mode 0755 for an executable template, the user's default mode otherwise.
// The file is created exclusively: a name that appears meanwhile is never overwritten, the
// numbering goes on instead: "." and ".." are always taken (". 1", ".. 1"). A name that would
// leave the folder ("/" in the prefix or suffix) is refused. With `names`, what the folder holds
// is taken from there when it is still current.
FileCreation createFileFromTemplate(const Template& record, const QString& folder,
                                    FolderNames* names = nullptr);

// True when the absolute path names an existing directory (a link to one counts).
bool isExistingFolder(const QString& folder);

} // namespace brindlemark
