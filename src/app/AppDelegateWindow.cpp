// The controller's window and its template table.
#include "app/AppDelegate.h"

#include "app/MainWindow.h"
#include "templates/TemplateTableModel.h"

#include <QGuiApplication>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QTableView>

namespace brindlemark {

// ---- the template table ----------------------------------------------------------------

void AppDelegate::addTemplateColumn(const QString& identifier, const QString& title, int width,
                                    bool checkbox) {
    const int minimumWidth = checkbox ? 70 : 80;
    m_templateTableModel->appendColumn({identifier, title, minimumWidth, checkbox});
    if (m_templatesTableView)
        m_templatesTableView->setColumnWidth(m_templateTableModel->columnCount() - 1, width);
}

void AppDelegate::keepColumnAtItsMinimumWidth(int column, int newWidth) {
    const auto& columns = m_templateTableModel->columns();
    if (m_templatesTableView && column >= 0 && column < columns.size() &&
        newWidth < columns[column].minimumWidth)
        m_templatesTableView->horizontalHeader()->resizeSection(column,
                                                                columns[column].minimumWidth);
}

void AppDelegate::addTemplate(QObject*) {
    m_templates.append(Template{
        {TemplateKey::id, newTemplateIdentifier()},
        {TemplateKey::title, QStringLiteral("New Template")},
        {TemplateKey::prefix, QStringLiteral("NewFile")},
        {TemplateKey::suffix, QStringLiteral("txt")},
        {TemplateKey::enabled, true},
        {TemplateKey::executable, false},
    });
    m_templateTableModel->reload();
    if (m_templatesTableView)
        m_templatesTableView->selectRow(int(m_templates.size()) - 1);
    saveTemplates();
}

void AppDelegate::removeTemplate(QObject*) {
    const int row = selectedTemplateRow();
    if (row < 0)
        return;
    const Template removed = m_templates.takeAt(row);
    m_templateTableModel->reload();
    saveTemplates();
    removeContentOfRemovedTemplate(removed);
}

// ---- window ------------------------------------------------------------------------------

QWidget* AppDelegate::window() const {
    return m_window.get();
}

void AppDelegate::showWindow(QObject*) {
    if (!m_window)
        buildWindow();
    refreshExtensionStatus();
    // Centred by its content: the window manager's frame is not known before the first show,
    // and centring by it afterwards would place every later show differently from the first.
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        QRect content = m_window->geometry();
        content.moveCenter(screen->availableGeometry().center());
        m_window->setGeometry(content);
    }
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
    // The focused control shows it, the first one at first: the window is used from the
    // keyboard too.
    m_window->setAttribute(Qt::WA_KeyboardFocusChange);
}

void AppDelegate::hideWindow(QObject*) {
    if (m_window)
        m_window->hide();
}

void AppDelegate::buildWindow() {
    m_window = std::make_unique<MainWindow>(*this, m_templateTableModel);
    m_statusLabel = m_window->statusLabel();
    m_extensionStateLabel = m_window->extensionStateLabel();
    m_templatesTableView = m_window->templatesTableView();
    connect(
        m_templatesTableView->horizontalHeader(), &QHeaderView::sectionResized, this,
        [this](int column, int, int newWidth) { keepColumnAtItsMinimumWidth(column, newWidth); });
    addTemplateColumn(TemplateKey::enabled, QStringLiteral("Enabled"), 74, true);
    addTemplateColumn(TemplateKey::title, QStringLiteral("Title"), 220, false);
    addTemplateColumn(TemplateKey::prefix, QStringLiteral("Prefix"), 170, false);
    addTemplateColumn(TemplateKey::suffix, QStringLiteral("Suffix"), 90, false);
    addTemplateColumn(TemplateKey::executable, QStringLiteral("Executable"), 96, true);
    watchTableForContextMenus();
    // The window carries the application menu; without a tray, the tray's menu as well.
    if (m_applicationMenu)
        m_window->menuBar()->addMenu(m_applicationMenu.get());
    if (m_statusMenu && !m_statusItem) {
        m_statusMenu->setTitle(QStringLiteral("Commands"));
        m_window->menuBar()->addMenu(m_statusMenu.get());
    }
}

} // namespace brindlemark
