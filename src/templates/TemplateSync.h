#pragma once

#include "templates/Template.h"

#include <QString>

#include <optional>

// Several Brindlemarks may share one home (a user logged in twice), and a save may reach only
// some of the places (a full disk, a file that cannot be read): what the list on disk is, and how
// a change is put on top of a list someone else stored meanwhile.
namespace brindlemark {

// One place's copy of the stored templates text, as read at one moment.
struct StoredCopy {
    enum class State {
        Missing,    // no such file, or no text under the key
        Read,       // `text` is what the place holds
        Unreadable, // the place exists but could not be read: its text is unknown
    };
    State state = State::Missing;
    QString text;
    qint64 modified = 0; // when it was last written, in ms since the epoch; 0 when unknown
};

// A file's copy: missing, unreadable (a folder, no permission, a failing disk), or its text.
StoredCopy storedCopyInFile(const QString& path);

// Which text start-up and every save take as the stored list, from the copies in their order:
// the user defaults first, then the Templates.json files. The user defaults' text, as the
// application has always read it, unless a Templates.json copy that reads as a list was written
// after it (a save that did not reach the user defaults) or the user defaults cannot be read at
// all; then the newest such copy. Missing user defaults mean nothing is stored.
struct ChosenText {
    QString text;
    bool fromUserDefaults = true;
};
ChosenText chosenStoredText(const QList<StoredCopy>& copies);

// The records of a stored text, normalised, in order, or nothing when the text is not a list.
// Unlike a load at start-up, "[]" is an empty list here: it is what another instance stored.
std::optional<TemplateList> storedList(const QString& text);

// This instance's list (`ours`, which started as `base`) applied on top of the list stored
// meanwhile (`theirs`, which also started as `base`). A row is known by its id and which
// occurrence of that id it is. Rows keep the stored order; a row removed on either side stays
// removed; rows added here follow those stored; for a row on both sides, each member this
// instance changed takes this instance's value (its edit is the later one), every other member
// the stored value.
TemplateList mergedTemplates(const TemplateList& base, const TemplateList& ours,
                             const TemplateList& theirs);

// How long a save waits for another instance's save to let go of the lock below.
inline constexpr int StoreLockPatienceMilliseconds = 1000;

// An exclusive lock shared by every Brindlemark of the user, over the folder given, for as long
// as the object lives: each save reads, merges and writes the list while no other does. Waits at
// most `patienceMilliseconds` for another holder; if it still holds the lock then (it saves edit
// after edit, or it was stopped), the lock is busy and the caller must not write. Where the folder
// cannot be made or opened, nobody can hold the lock, and saves go on without it.
class StoreLock final {
public:
    explicit StoreLock(const QString& folder,
                       int patienceMilliseconds = StoreLockPatienceMilliseconds);
    ~StoreLock();
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;
    bool isBusy() const { return m_busy; }

private:
    int m_fd = -1;
    bool m_busy = false;
};

} // namespace brindlemark
