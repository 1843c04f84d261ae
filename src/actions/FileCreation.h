#pragma once

#include "templates/Template.h"

#include <functional>
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
    friend FileCreation createFileFromTemplate(const Template&, const QString&, FolderNames*,
                                               const QByteArray*);
    struct Known;
    std::unique_ptr<Known> m_known;
};

// Creates a file from the template in `folder`: the first free name among
// "prefix.suffix", "prefix 1.suffix", "prefix 2.suffix", ... (without the dot and suffix when the
// suffix is empty), mode 0755 for an executable template, the user's default mode otherwise.
// The file is created exclusively: a name that appears meanwhile is never overwritten, the
// numbering goes on instead: "." and ".." are always taken (". 1", ".. 1"). A name that would
// leave the folder ("/" in the prefix or suffix) is refused. With `names`, what the folder holds
// is taken from there when it is still current.
//
// Empty without `content`; with it, the file holds exactly those bytes and appears under its name
// only whole: they are written to a file without a name in the folder (where the file system has
// none, a hidden temporary one), which is then given the free name, never in place of anything,
// a link at that name included. Nothing is left behind when it fails.
FileCreation createFileFromTemplate(const Template& record, const QString& folder,
                                    FolderNames* names = nullptr,
                                    const QByteArray* content = nullptr);

// True when the absolute path names an existing directory (a link to one counts).
bool isExistingFolder(const QString& folder);

namespace testing {
// Called with the path a whole file with content is about to be named, just before it is: lets
// a test make that name taken meanwhile.
extern std::function<void(const QString&)> beforeNamingWholeFile;
// Writes files with content as where the file system has no files without a name.
extern bool withoutUnnamedFiles;
} // namespace testing

} // namespace brindlemark
