#include "app/MainWindow.h"

#include "app/Geometry.h"

#include <QFrame>
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

    QFrame* extensionCard = cardWithFrame(this, 30, 434, 330, 70);
    labelWithFrame(extensionCard, 18, 40, 210, 18, QStringLiteral("Finder Extension"), 13, QFont::Medium);
    m_extensionStateLabel = labelWithFrame(extensionCard, 18, 17, 210, 18, QStringLiteral("Checking..."),
                                           13, QFont::Normal);
    m_extensionStateLabel->setForegroundRole(QPalette::PlaceholderText);

    QFrame* menuBarCard = cardWithFrame(this, 380, 434, 330, 70);
    labelWithFrame(menuBarCard, 18, 40, 210, 18, QStringLiteral("Menu Bar"), 13, QFont::Medium);
    QLabel* active = labelWithFrame(menuBarCard, 18, 17, 210, 18, QStringLiteral("Active"), 13, QFont::Normal);
    QPalette green = active->palette();
    green.setColor(QPalette::WindowText, QColor(52, 199, 89));
    active->setPalette(green);

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

namespace brindlemark {

QFrame* MainWindow::cardWithFrame(QWidget* parent, int x, int y, int width, int height)
{
    auto* card = new QFrame(parent);
    card->setObjectName(QStringLiteral("card"));
    card->setGeometry(frameInParent(x, y, width, height, parent->height()));
    // White at low opacity over the window: a lighter panel on dark themes, a soft one on light.
    card->setStyleSheet(QStringLiteral("QFrame#card { border: 1px solid rgba(128, 128, 128, 0.35);"
                                       " border-radius: 8px; background: rgba(255, 255, 255, 0.12); }"));
    return card;
}

} // namespace brindlemark
