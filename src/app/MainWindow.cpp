#include "app/MainWindow.h"

#include "app/AppDelegate.h"
#include "app/Commands.h"
#include "app/Geometry.h"
#include "app/Symbols.h"
#include "templates/TemplateTableModel.h"

#include <QEvent>
#include <QFrame>
#include <QHeaderView>
#include <QLabel>
#include <QMenuBar>
#include <QPainter>
#include <QPalette>
#include <QPushButton>
#include <QTableView>

namespace brindlemark {

namespace {

// The layout's numbers used in more than one place, in the bottom-left-origin frames of
// frameInParent().
constexpr int Margin = 30;        // the left edge of the cards, the command buttons and the table
constexpr int SecondColumn = 380; // the right card, and the button below it
constexpr int TextSize = 13;      // the cards', the buttons' and the status line's text, in pixels
constexpr int UpperButtonRow = 372, LowerButtonRow = 314; // the command buttons' two rows
constexpr int HeaderMarkSize = 44;                        // the mark in the header, in pixels

void setSecondary(QLabel* label) {
    label->setForegroundRole(QPalette::PlaceholderText);
}

// A rounded panel of low opacity over the window, its border and fill translucent: soft on light
// and dark themes alike. Drawn here rather than by a style sheet, which would bring Qt's whole
// style-sheet machinery into the process for two rectangles.
class Card final : public QFrame {
public:
    using QFrame::QFrame;

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(QColor(128, 128, 128, qRound(0.35 * 255)), 1));
        painter.setBrush(QColor(255, 255, 255, qRound(0.12 * 255)));
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);
    }
};

// Buttons have fixed frames: their titles are set in a fixed size, as the labels are, so that
// they fit whatever font size the desktop uses.
void withFixedFont(QPushButton* button) {
    QFont font = button->font();
    font.setPixelSize(TextSize);
    button->setFont(font);
}

// A non-interactive text at a bottom-left-origin frame inside `parent`, in the system font at
// `fontSize` pixels (the layout's points) and the given weight.
QLabel* labelWithFrame(QWidget* parent, int x, int y, int width, int height, const QString& text,
                       qreal fontSize, QFont::Weight weight) {
    auto* label = new QLabel(text, parent);
    label->setGeometry(frameInParent(x, y, width, height, parent->height()));
    label->setTextInteractionFlags(Qt::NoTextInteraction);
    // File names and messages are shown as they are: "<i>draft" is not markup.
    label->setTextFormat(Qt::PlainText);
    QFont font = label->font();
    font.setPixelSize(qRound(fontSize));
    font.setWeight(weight);
    label->setFont(font);
    return label;
}

// A rounded, lightly filled panel at a bottom-left-origin frame inside `parent`.
QFrame* cardWithFrame(QWidget* parent, int x, int y, int width, int height) {
    auto* card = new Card(parent);
    card->setGeometry(frameInParent(x, y, width, height, parent->height()));
    return card;
}

// A command button with the symbol leading its title.
QPushButton* buttonWithFrame(QWidget* parent, int x, int y, int width, int height,
                             const QString& title, const QString& symbol) {
    auto* button = new QPushButton(symbolImage(symbol), title, parent);
    button->setGeometry(frameInParent(x, y, width, height, parent->height()));
    button->setIconSize(QSize(16, 16));
    withFixedFont(button);
    return button;
}

QPushButton* smallButtonWithFrame(QWidget* parent, int x, int y, int width, int height,
                                  const QString& title) {
    auto* button = new QPushButton(title, parent);
    button->setGeometry(frameInParent(x, y, width, height, parent->height()));
    withFixedFont(button);
    return button;
}

// One of the two cards above the buttons: its title, and below it the label that shows a state,
// which is returned.
QLabel* cardWithStateLabel(QWidget* parent, int x, const QString& name, const QString& title) {
    QFrame* card = cardWithFrame(parent, x, 434, 330, 70);
    card->setObjectName(name);
    labelWithFrame(card, 18, 40, 210, 18, title, TextSize, QFont::Medium);
    return labelWithFrame(card, 18, 17, 210, 18, QString(), TextSize, QFont::Normal);
}

} // namespace

MainWindow::MainWindow(AppDelegate& delegate, QAbstractItemModel* templates) {
    setWindowTitle(QStringLiteral("Brindlemark"));
    setFixedSize(Width, Height);
    // The window is kept and shown again after its close button hides it.
    setAttribute(Qt::WA_DeleteOnClose, false);

    m_menuBar = new QMenuBar(this);
    m_menuBar->setGeometry(0, 0, Width, 28);
    // In the fixed text size, as the buttons: a larger desktop font would push every menu of
    // the bar's fixed height into its overflow arrow.
    QFont menuFont = m_menuBar->font();
    menuFont.setPixelSize(TextSize);
    m_menuBar->setFont(menuFont);

    auto* header = new QLabel(this);
    header->setObjectName(QStringLiteral("headerImage"));
    header->setGeometry(frameInParent(34, 524, 56, 56, Height));
    header->setAlignment(Qt::AlignCenter);
    drawHeaderImage();
    header->installEventFilter(this);

    labelWithFrame(this, 108, 550, 560, 30, QStringLiteral("Brindlemark"), 25, QFont::DemiBold);
    setSecondary(labelWithFrame(this, 110, 525, 560, 22,
                                QStringLiteral("Finder context menu and menu bar shortcut"), 14,
                                QFont::Normal));

    m_extensionStateLabel = cardWithStateLabel(this, Margin, QStringLiteral("extensionCard"),
                                               QStringLiteral("Finder Extension"));
    m_extensionStateLabel->setText(QStringLiteral("Checking..."));
    setSecondary(m_extensionStateLabel);
    setColouredText(cardWithStateLabel(this, SecondColumn, QStringLiteral("menuBarCard"),
                                       QStringLiteral("Menu Bar")),
                    QStringLiteral("Active"), SystemGreen);

    commandButton(delegate, Margin, UpperButtonRow, 170, Commands::EnableExtension);
    commandButton(delegate, 215, UpperButtonRow, 150, Commands::OpenSettings);
    commandButton(delegate, SecondColumn, UpperButtonRow, 150, Commands::RestartFinder);
    commandButton(delegate, 545, UpperButtonRow, 166, Commands::CreateFile);
    commandButton(delegate, Margin, LowerButtonRow, 140, Commands::OpenTerminal);
    commandButton(delegate, 185, LowerButtonRow, 110, Commands::OpenITerm);
    commandButton(delegate, 310, LowerButtonRow, 100, Commands::HideWindow);

    labelWithFrame(this, 32, 272, 260, 22, QStringLiteral("Templates"), 15, QFont::DemiBold);

    m_templatesTableView = new QTableView(this);
    m_templatesTableView->setObjectName(QStringLiteral("templatesTableView"));
    m_templatesTableView->setGeometry(frameInParent(Margin, 82, 680, 184, Height));
    m_templatesTableView->setModel(templates);
    m_templatesTableView->setAlternatingRowColors(true);
    m_templatesTableView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_templatesTableView->setSelectionMode(QAbstractItemView::SingleSelection);
    m_templatesTableView->setEditTriggers(QAbstractItemView::DoubleClicked |
                                          QAbstractItemView::EditKeyPressed |
                                          QAbstractItemView::SelectedClicked);
    m_templatesTableView->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    m_templatesTableView->setWordWrap(false);
    // Tab leaves the table for "+" and "-", as it leaves every other control; the arrow keys
    // move between its cells.
    m_templatesTableView->setTabKeyNavigation(false);
    m_templatesTableView->setTextElideMode(Qt::ElideRight);
    m_templatesTableView->verticalHeader()->hide();
    m_templatesTableView->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_templatesTableView->verticalHeader()->setDefaultSectionSize(26);
    QHeaderView* columns = m_templatesTableView->horizontalHeader();
    columns->setSectionsMovable(false);
    columns->setSectionResizeMode(QHeaderView::Interactive);
    columns->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    // The columns' titles in the fixed text size too: they fit the fixed column widths.
    QFont titleFont = columns->font();
    titleFont.setPixelSize(TextSize);
    columns->setFont(titleFont);
    columns->setStretchLastSection(false);

    for (const auto& [x, command] :
         {std::pair{Margin, &Commands::AddTemplate}, std::pair{70, &Commands::RemoveTemplate}})
        connectCommand(smallButtonWithFrame(this, x, 44, 36, 28, command->buttonTitle),
                       &QPushButton::clicked, &delegate, command->action);

    m_statusLabel =
        labelWithFrame(this, 122, 42, 588, 34, QStringLiteral("Ready"), TextSize, QFont::Normal);
    setSecondary(m_statusLabel);
    m_statusLabel->setWordWrap(true);
    m_statusLabel->setAlignment(Qt::AlignLeft | Qt::AlignTop);
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    // The header image is drawn in the palette's text colour: again when the theme changes.
    if (event->type() == QEvent::PaletteChange &&
        watched->objectName() == QLatin1String("headerImage"))
        drawHeaderImage();
    return QWidget::eventFilter(watched, event);
}

void MainWindow::drawHeaderImage() {
    if (auto* header = findChild<QLabel*>(QStringLiteral("headerImage")))
        header->setPixmap(
            symbolImage(QStringLiteral("doc.badge.plus")).pixmap(HeaderMarkSize, HeaderMarkSize));
}

QPushButton* MainWindow::commandButton(AppDelegate& delegate, int x, int y, int width,
                                       const Command& command) {
    QPushButton* button =
        buttonWithFrame(this, x, y, width, 38, command.buttonTitle, command.symbol);
    connectCommand(button, &QPushButton::clicked, &delegate, command.action);
    return button;
}

void MainWindow::setColouredText(QLabel* label, const QString& text, const QColor& colour) {
    label->setText(text);
    QPalette palette = label->palette();
    palette.setColor(label->foregroundRole(), colour);
    label->setPalette(palette);
}

} // namespace brindlemark
