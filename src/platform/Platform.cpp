#include "platform/Platform.h"

#include "templates/TemplateStore.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QMessageBox>
#include <QShortcut>

namespace brindlemark {

Platform::~Platform() = default;

bool Platform::storeTemplatesJSONText(const QString& key, const QString& text)
{
    // The preference stores of other systems keep the value themselves; only the files are
    // compared here, so a change cannot be ruled out.
    setUserDefaultsValue(key, text);
    setExtensionPreferenceValue(key, text);
    writeTemplatesJSONFiles(text, templateConfigFilePaths());
    return true;
}

QString shortenedInTheMiddle(const QString& text, qsizetype limit)
{
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

void runMessageBox(const QString& messageText, const QString& informativeText)
{
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
        QGuiApplication::clipboard()->setText(messageText + QStringLiteral("\n\n") + informativeText);
    });
    // Wide enough that a folder path reads on one line rather than broken at every slash.
    box.setStyleSheet(QStringLiteral("QLabel { min-width: 380px; }"));
    box.exec();
}

} // namespace brindlemark
