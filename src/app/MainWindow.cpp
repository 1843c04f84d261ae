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
    font.setPixelSize(13);
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

} // namespace

MainWindow::MainWindow(AppDelegate& delegate, QAbstractItemModel* templates) {
    setWindowTitle(QStringLiteral("Brindlemark"));
    setFixedSize(Width, Height);
    // The window is kept and shown again after its close button hides it.
    setAttribute(Qt::WA_DeleteOnClose, false);

    m_menuBar = new QMenuBar(this);
    m_menuBar->setGeometry(0, 0, Width, 28);

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

    QFrame* extensionCard = cardWithFrame(this, 30, 434, 330, 70);
    extensionCard->setObjectName(QStringLiteral("extensionCard"));
    labelWithFrame(extensionCard, 18, 40, 210, 18, QStringLiteral("Finder Extension"), 13,
                   QFont::Medium);
    m_extensionStateLabel = labelWithFrame(extensionCard, 18, 17, 210, 18,
                                           QStringLiteral("Checking..."), 13, QFont::Normal);
    setSecondary(m_extensionStateLabel);

    QFrame* menuBarCard = cardWithFrame(this, 380, 434, 330, 70);
    menuBarCard->setObjectName(QStringLiteral("menuBarCard"));
    labelWithFrame(menuBarCard, 18, 40, 210, 18, QStringLiteral("Menu Bar"), 13, QFont::Medium);
    setColouredText(labelWithFrame(menuBarCard, 18, 17, 210, 18, QString(), 13, QFont::Normal),
                    QStringLiteral("Active"), SystemGreen);

    commandButton(delegate, 30, 372, 170, Commands::EnableExtension);
    commandButton(delegate, 215, 372, 150, Commands::OpenSettings);
    commandButton(delegate, 380, 372, 150, Commands::RestartFinder);
    commandButton(delegate, 545, 372, 166, Commands::CreateFile);
    commandButton(delegate, 30, 314, 140, Commands::OpenTerminal);
    commandButton(delegate, 185, 314, 110, Commands::OpenITerm);
    commandButton(delegate, 310, 314, 100, Commands::HideWindow);

    labelWithFrame(this, 32, 272, 260, 22, QStringLiteral("Templates"), 15, QFont::DemiBold);

    m_templatesTableView = new QTableView(this);
    m_templatesTableView->setObjectName(QStringLiteral("templatesTableView"));
    m_templatesTableView->setGeometry(frameInParent(30, 82, 680, 184, Height));
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
    columns->setStretchLastSection(false);

    for (const auto& [x, command] :
         {std::pair{30, &Commands::AddTemplate}, std::pair{70, &Commands::RemoveTemplate}})
        connectCommand(smallButtonWithFrame(this, x, 44, 36, 28, command->buttonTitle),
                       &QPushButton::clicked, &delegate, command->action);

    m_statusLabel =
        labelWithFrame(this, 122, 42, 588, 34, QStringLiteral("Ready"), 13, QFont::Normal);
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
        header->setPixmap(symbolImage(QStringLiteral("doc.badge.plus")).pixmap(44, 44));
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
