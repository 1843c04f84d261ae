#pragma once

#include "templates/Template.h"

#include <QByteArray>
#include <QString>

namespace brindlemark {

// The most a template's content, or a file chosen or dropped to become one, may hold: enough for
// any office document with its pictures, small enough to read into memory for every new file.
inline constexpr qint64 ContentSizeLimit = 64 * 1024 * 1024;

// A file read whole for a template's content, or why it could not be.
struct ContentRead {
    enum Status { Absent, Loaded, Unusable };
    Status status = Absent;
    QByteArray bytes;
    QString reason; // when unusable: "is a folder", "is larger than 64 MiB", ...
};

// Reads a regular file of at most ContentSizeLimit bytes, following links. Absent when nothing is
// at the path; Unusable, with the reason, for a dangling link, a folder, a FIFO, a device, a file
// that cannot be read or one above the limit. Never waits on a FIFO or a device.
ContentRead readContentFile(const QString& path);

// The file name a template's content is kept under: the id's UTF-8 bytes with every byte but
// ASCII letters, digits, "-" and "_" written as "%" and two upper-case hex digits, so that any id
// gives one plain name in the folder ("a/b" gives "a%2Fb", ".." gives "%2E%2E"). A name that would
// be longer than 200 bytes is "~" and the SHA-256 of the id in hex instead.
QString contentFileName(const QString& identifier);

// The id a template's content is kept under: its id as normalising gives it.
QString contentIdentifier(const Template& record);

// A new template for files like the one named: title and prefix the name without its extension,
// suffix the extension (after the last dot, unless that dot begins the name), enabled.
Template templateForFile(const QString& fileName, bool executable);

// The content of the templates: one file per template id in one folder. A template has content
// when something is at its name there; its new files start with those bytes.
//
// "Edit Content" opens a copy of the content, named as the template's files are, in the editing
// folder beside it (one folder per id, with the same name): editors may save by replacing the
// file, which would leave a link or a shared file behind. Whatever was saved there is taken back
// into the content before it is next read.
class TemplateContent {
public:
    explicit TemplateContent(QString folder);

    QString pathFor(const QString& identifier) const;
    bool has(const QString& identifier) const;
    // The content as it is now, with the latest edit taken in first.
    ContentRead read(const QString& identifier) const;

    // Makes the bytes the template's content; false when they could not be written. Ends any
    // edit of the old content.
    bool write(const QString& identifier, const QByteArray& bytes) const;
    // Removes the content and any copy being edited; true when none is left.
    bool remove(const QString& identifier) const;

    // The copy to open for editing, named `fileName` (which must not begin with "."), holding the
    // content (made empty first when there is none); empty when it could not be made.
    QString editableCopy(const QString& identifier, const QString& fileName) const;
    // Takes the most recently saved copy of the id's edits into its content, when it differs.
    void takeEdits(const QString& identifier) const;

private:
    QString editingFolderFor(const QString& identifier) const;

    QString m_folder;
};

} // namespace brindlemark
