#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace brindlemark::ini {

// The settings files are QSettings INI files, read with QSettings. They are written here instead:
// QSettings writes through QSaveFile, which in Qt 6.4 reports success on a nearly full disk and
// leaves the file cut short, so that the next start finds it unreadable.

// The INI text `existing` with `key` in its [General] group set to `value`: every other line
// stays as it was, an earlier value of the key goes. `key` is a plain name (letters, digits, '_').
QByteArray withValue(const QByteArray& existing, const QString& key, const QString& value);

// The value of `key` in the [General] group of the INI text, read here when it is in the quoted
// form withValue() writes: QSettings keeps the files it read, and takes a file as unchanged when
// its time and size are (two saves of one length within a clock tick). `understood` is false for
// any other form, which only QSettings can read; `value` is nothing when the key is not there.
struct ReadValue {
    bool understood = true;
    std::optional<QString> value;
};
ReadValue readValue(const QByteArray& text, const QString& key);

// The whole text of the INI file at `path` once `key` is set to `value`; nothing when the
// present file cannot be read.
std::optional<QByteArray> fileWithValue(const QString& path, const QString& key,
                                        const QString& value);

} // namespace brindlemark::ini
