#include "platform/Platform.h"

#include "templates/AtomicWrite.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QMessageBox>
#include <QShortcut>
#include <QStandardPaths>
#include <QUrl>

namespace brindlemark {

Platform::~Platform() = default;

QList<StoredCopy> Platform::storedTemplatesCopies(const QString& key) {
    StoredCopy defaults;
    const QVariant stored = userDefaultsValue(key);
    if (stored.typeId() == QMetaType::QString) {
        defaults.state = StoredCopy::State::Read;
        defaults.text = stored.toString();
    }
    QList<StoredCopy> copies{defaults};
    for (const QString& path : templateConfigFilePaths())
        copies.append(storedCopyInFile(path));
    return copies;
}

void Platform::removeInterruptedSaves() {
    for (const QString& path : templateStoreFilePaths())
        removeLeftoverTemporaries(QFile::encodeName(path).toStdString());
    removeLeftoverTemporariesIn(QFile::encodeName(templateContentFolder()).toStdString());
}

std::optional<QString> Platform::userTemplatesFolder() {
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::TemplatesLocation);
    if (folder.isEmpty() || !QFileInfo(folder).isDir() ||
        QFileInfo(folder).canonicalFilePath() == QFileInfo(QDir::homePath()).canonicalFilePath())
        return std::nullopt;
    return folder;
}

void Platform::openInDefaultApplication(const QString& filePath) {
    QDesktopServices::openUrl(QUrl::fromLocalFile(filePath));
}

QString shortenedInTheMiddle(const QString& text, qsizetype limit) {
    if (text.size() <= limit)
        return text;
    qsizetype head = (limit - 1) / 2, tail = limit - 1 - head;
    // Never between the two halves of a character outside the basic plane.
    if (head > 0 && text.at(head - 1).isHighSurrogate())
        --head;
    if (tail > 0 && text.at(text.size() - tail).isLowSurrogate())
        --tail;
    return text.left(head) + QChar(0x2026) + text.right(tail);
}

std::optional<QString> Platform::setStartsAtLogin(bool) {
    return QStringLiteral("not available on this system");
}

void runMessageBox(const QString& messageText, const QString& informativeText) {
    QMessageBox box;
    box.setWindowTitle(QStringLiteral("Brindlemark"));
    box.setText(shortenedInTheMiddle(messageText));
    box.setInformativeText(shortenedInTheMiddle(informativeText));
    // Paths and tools' output are shown as they are, never read as markup.
    box.setTextFormat(Qt::PlainText);
    if (auto* informative = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel")))
        informative->setTextFormat(Qt::PlainText);
    box.addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
    // What is shown can be selected; the copy command copies the whole text, however long.
    box.setTextInteractionFlags(Qt::TextSelectableByMouse);
    QShortcut copyAll(QKeySequence::Copy, &box);
    QObject::connect(&copyAll, &QShortcut::activated, &box, [&] {
        QGuiApplication::clipboard()->setText(messageText + QStringLiteral("\n\n") +
                                              informativeText);
    });
    // Wide enough that a folder path reads on one line rather than broken at every slash.
    box.setStyleSheet(QStringLiteral("QLabel { min-width: 380px; }"));
    box.setIcon(QMessageBox::Warning);
    // In front of whatever window is active (the file manager whose menu asked, a shortcut's
    // terminal), and with the keyboard: an accessory application brings itself forward for its
    // alert. A dialog's frame, without minimise or maximise buttons.
    box.setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                       Qt::WindowCloseButtonHint | Qt::WindowStaysOnTopHint);
    box.show();
    box.raise();
    box.activateWindow();
    box.exec();
}

} // namespace brindlemark
