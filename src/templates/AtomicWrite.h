#pragma once

#include <string>
#include <string_view>
#include <vector>

// Plain C++ (no Qt): the registry tool, which must start as fast as the smallest program, writes
// through these too.
namespace brindlemark {

// One file to replace, and whether it was.
struct FileReplacement {
    std::string path;
    std::string bytes;
    bool replaced = false;
};

// Replaces each file's contents all at once: the bytes go to a new file beside it, which is
// flushed to the disk and then renamed over the target, so a reader sees the old contents or the
// new, never a part. A link is followed: its target is replaced and the link stays. Missing
// folders are created. On any failure (a full disk, a read-only folder) that file is left as it
// was and the others are still written.
//
// The files of one batch are written side by side, each on a thread of its own, so that the disk
// takes them in one go rather than one after another.
void replaceFilesAtomically(std::vector<FileReplacement>& files);

// The same for one file; false when it was left as it was.
bool replaceFileAtomically(const std::string& path, std::string_view bytes);

// Removes what writes of `path` that were interrupted (the writer killed) left beside it: the
// hidden temporary files named after it, and only those whose writer has ended. Returns how many.
int removeLeftoverTemporaries(const std::string& path);
// The same for every file in a folder that only such writes fill, also those of files that were
// never written whole.
int removeLeftoverTemporariesIn(const std::string& folder);

// Writes all the bytes to the descriptor, going on after a partial write or an interruption;
// false on an error or when nothing more can be written (a full disk).
bool writeAll(int fd, std::string_view bytes);

// Creates the folder and its missing parents; true when it exists as a folder afterwards.
bool makeFolders(const std::string& folder);

} // namespace brindlemark
