#include "app/MainWindow.h"

#include "app/Geometry.h"

#include <QLabel>
#include <QPalette>

namespace brindlemark {

MainWindow::MainWindow()
{
    setWindowTitle(QStringLiteral("Brindlemark"));
    setFixedSize(Width, Height);
    // The window is kept and shown again after its close button hides it.
    setAttribute(Qt::WA_DeleteOnClose, false);

    labelWithFrame(this, 108, 550, 560, 30, QStringLiteral("Brindlemark"), 25, QFont::DemiBold);
    QLabel* subtitle = labelWithFrame(this, 110, 525, 560, 22,
                                      QStringLiteral("Finder context menu and menu bar shortcut"),
                                      14, QFont::Normal);
    subtitle->setForegroundRole(QPalette::PlaceholderText);

    m_statusLabel = labelWithFrame(this, 122, 42, 588, 34, QStringLiteral("Ready"), 13, QFont::Normal);
    m_statusLabel->setForegroundRole(QPalette::PlaceholderText);
    m_statusLabel->setWordWrap(true);
    m_statusLabel->setAlignment(Qt::AlignLeft | Qt::AlignTop);
}

QLabel* MainWindow::labelWithFrame(QWidget* parent, int x, int y, int width, int height,
                                   const QString& text, qreal fontSize, QFont::Weight weight)
{
    auto* label = new QLabel(text, parent);
    label->setGeometry(frameInParent(x, y, width, height, parent->height()));
    label->setTextInteractionFlags(Qt::NoTextInteraction);
    QFont font = label->font();
    font.setPixelSize(qRound(fontSize));
    font.setWeight(weight);
    label->setFont(font);
    return label;
}

} // namespace brindlemark
