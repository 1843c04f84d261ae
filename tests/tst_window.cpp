// The main window, the template table and the menus, built offscreen: every element at its
// frame with its text and font, the table's edit paths and what they save, and the menus.
#include "FakePlatform.h"
#include "TestEnvironment.h"

#include "app/AppDelegate.h"
#include "app/Geometry.h"
#include "app/Symbols.h"
#include "templates/TemplateTableModel.h"

#include <QAction>
#include <QFrame>
#include <QHeaderView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QTableView>

using namespace brindlemark;

namespace {

QWidget* element(QWidget* window, const QString& key)
{
    if (auto* named = window->findChild<QWidget*>(key))
        return named;
    for (QLabel* label : window->findChildren<QLabel*>())
        if (label->text() == key)
            return label;
    for (QPushButton* button : window->findChildren<QPushButton*>())
        if (button->text() == key)
            return button;
    return nullptr;
}

QStringList titles(const QList<QAction*>& actions)
{
    QStringList list;
    for (QAction* action : actions)
        list << (action->isSeparator() ? "---" : action->text());
    return list;
}

QJsonArray saved(FakePlatform& platform)
{
    return QJsonDocument::fromJson(platform.userDefaults.value("TemplatesJSON").toString().toUtf8()).array();
}

// An icon theme of our own, so that the symbol icons resolve whatever the machine has.
void installTestIconTheme(const QString& folder)
{
    QVERIFY(writeFile(folder + "/test/index.theme",
                      "[Icon Theme]\nName=test\nDirectories=16\n[16]\nSize=16\nType=Fixed\n"));
    for (const char* name : {"utilities-terminal", "text-x-generic", "security-high", "emblem-default",
                             "view-refresh", "preferences-system", "window-new", "system-shutdown", "window-close"})
        QVERIFY(QFile::copy(":/icons/brindlemark-16.png", folder + "/test/16/" + name + ".png") ||
                (QDir().mkpath(folder + "/test/16") &&
                 QFile::copy(":/icons/brindlemark-16.png", folder + "/test/16/" + name + ".png")));
    QIcon::setThemeSearchPaths({folder});
    QIcon::setThemeName("test");
}

} // namespace

class WindowTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<FakePlatform> m_platform;
    std::unique_ptr<AppDelegate> m_delegate;

    QTableView* table() const { return m_delegate->templatesTableView(); }
    QMenu* newFileMenu() const { return m_delegate->templateMenuItem()->menu(); }

private slots:
    void init()
    {
        m_home = std::make_unique<TestHome>();
        installTestIconTheme(m_home->file("icons"));
        m_platform = std::make_unique<FakePlatform>(m_home->path());
        m_delegate = std::make_unique<AppDelegate>(*m_platform);
        m_delegate->applicationDidFinishLaunching(); // a user launch: the window is shown
    }
    void cleanup()
    {
        m_delegate.reset();
        m_platform.reset();
        m_home.reset();
    }

    void elements_data()
    {
        QTest::addColumn<QString>("key"); // text, or object name for elements without one
        QTest::addColumn<QRect>("frame"); // bottom-left origin, in the parent
        QTest::addColumn<int>("fontSize"); // 0: not checked
        QTest::addColumn<int>("weight");
        QTest::newRow("1 header image") << "headerImage" << QRect(34, 524, 56, 56) << 0 << 0;
        QTest::newRow("2 title") << "Brindlemark" << QRect(108, 550, 560, 30) << 25 << int(QFont::DemiBold);
        QTest::newRow("3 subtitle") << "Finder context menu and menu bar shortcut" << QRect(110, 525, 560, 22) << 14 << int(QFont::Normal);
        QTest::newRow("4 card A") << "extensionCard" << QRect(30, 434, 330, 70) << 0 << 0;
        QTest::newRow("5 card A title") << "Finder Extension" << QRect(18, 40, 210, 18) << 13 << int(QFont::Medium);
        QTest::newRow("7 card B") << "menuBarCard" << QRect(380, 434, 330, 70) << 0 << 0;
        QTest::newRow("8 card B title") << "Menu Bar" << QRect(18, 40, 210, 18) << 13 << int(QFont::Medium);
        QTest::newRow("9 card B state") << "Active" << QRect(18, 17, 210, 18) << 13 << int(QFont::Normal);
        QTest::newRow("10") << "Enable Extension" << QRect(30, 372, 170, 38) << 0 << 0;
        QTest::newRow("11") << "Open Settings" << QRect(215, 372, 150, 38) << 0 << 0;
        QTest::newRow("12") << "Restart Finder" << QRect(380, 372, 150, 38) << 0 << 0;
        QTest::newRow("13") << "Create File" << QRect(545, 372, 166, 38) << 0 << 0;
        QTest::newRow("14") << "Open Terminal" << QRect(30, 314, 140, 38) << 0 << 0;
        QTest::newRow("15") << "Open iTerm" << QRect(185, 314, 110, 38) << 0 << 0;
        QTest::newRow("16") << "Hide Window" << QRect(310, 314, 100, 38) << 0 << 0;
        QTest::newRow("17 templates heading") << "Templates" << QRect(32, 272, 260, 22) << 15 << int(QFont::DemiBold);
        QTest::newRow("18-19 table") << "templatesTableView" << QRect(30, 82, 680, 184) << 0 << 0;
        QTest::newRow("20 plus") << "+" << QRect(30, 44, 36, 28) << 0 << 0;
        QTest::newRow("21 minus") << "-" << QRect(70, 44, 36, 28) << 0 << 0;
        QTest::newRow("22 status line") << "Ready" << QRect(122, 42, 588, 34) << 13 << int(QFont::Normal);
    }
    void elements()
    {
        QFETCH(QString, key);
        QFETCH(QRect, frame);
        QFETCH(int, fontSize);
        QFETCH(int, weight);
        QWidget* window = m_delegate->window();
        QWidget* found = element(window, key);
        QVERIFY2(found, qPrintable(key));
        const int parentHeight = found->parentWidget()->height();
        QCOMPARE(found->geometry(), frameInParent(frame.x(), frame.y(), frame.width(), frame.height(), parentHeight));
        if (fontSize) {
            QCOMPARE(found->font().pixelSize(), fontSize);
            QCOMPARE(int(found->font().weight()), weight);
        }
    }

    void windowLifecycle()
    {
        QWidget* window = m_delegate->window();
        QCOMPARE(window->windowTitle(), QString("Brindlemark"));
        QCOMPARE(window->size(), QSize(760, 620));
        QCOMPARE(window->minimumSize(), window->maximumSize());
        QVERIFY(m_delegate->extensionStateLabel()->text() != "Checking...");
        QCOMPARE(m_delegate->extensionStateLabel()->parentWidget(), element(window, "extensionCard"));
        QCOMPARE(element(window, "Active")->palette().color(element(window, "Active")->foregroundRole()), QColor(52, 199, 89));

        window->move(3, 5);
        QVERIFY(window->close());
        QVERIFY(!window->isVisible());
        m_delegate->applicationShouldHandleReopen(false);
        QCOMPARE(m_delegate->window(), window);
        QVERIFY(window->isVisible());
        qobject_cast<QPushButton*>(element(window, "Hide Window"))->click();
        QVERIFY(!window->isVisible());

        QLabel* status = m_delegate->statusLabel();
        const QRect before = status->geometry();
        status->setText(QString("word ").repeated(80));
        QVERIFY(status->wordWrap());
        QCOMPARE(status->geometry(), before);
    }

    void columns()
    {
        const auto& columns = m_delegate->templateTableModel()->columns();
        QStringList described;
        for (int i = 0; i < columns.size(); ++i)
            described << QString("%1 %2 %3 %4 %5").arg(columns[i].identifier, columns[i].title)
                             .arg(table()->columnWidth(i)).arg(columns[i].minimumWidth).arg(columns[i].checkbox);
        QCOMPARE(described, (QStringList{"enabled Enabled 74 70 1", "title Title 220 80 0", "prefix Prefix 170 80 0",
                                         "suffix Suffix 90 80 0", "executable Executable 96 70 1"}));
        table()->horizontalHeader()->resizeSection(1, 20);
        QCOMPARE(table()->columnWidth(1), 80);
        QVERIFY(!table()->horizontalHeader()->sectionsMovable());
        QCOMPARE(table()->verticalHeader()->defaultSectionSize(), 26);
        QCOMPARE(table()->selectionMode(), QAbstractItemView::SingleSelection);
        QVERIFY(table()->alternatingRowColors());
    }

    void addingAndRemoving()
    {
        auto* plus = qobject_cast<QPushButton*>(element(m_delegate->window(), "+"));
        auto* minus = qobject_cast<QPushButton*>(element(m_delegate->window(), "-"));
        plus->click();
        plus->click();
        QCOMPARE(m_delegate->templates().size(), 8);
        const Template added = m_delegate->templates().last();
        QCOMPARE(added.value("title").toString(), QString("New Template"));
        QCOMPARE(added.value("prefix").toString(), QString("NewFile"));
        QCOMPARE(added.value("suffix").toString(), QString("txt"));
        QVERIFY(added.value("id") != m_delegate->templates()[6].value("id"));
        QCOMPARE(table()->selectionModel()->selectedRows().value(0).row(), 7);
        QCOMPARE(table()->model()->index(7, 0).data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
        QCOMPARE(table()->model()->index(7, 4).data(Qt::CheckStateRole).toInt(), int(Qt::Unchecked));
        QCOMPARE(saved(*m_platform).size(), 8);
        QCOMPARE(titles(newFileMenu()->actions()),
                 (QStringList{"Text File", "Markdown Document", "New Template", "New Template"}));
        QCOMPARE(m_delegate->statusLabel()->text(), QString("Templates saved. Finder menu updates on the next right-click."));

        table()->clearSelection();
        const int savesBefore = m_platform->saves;
        minus->click(); // nothing selected: nothing happens
        QCOMPARE(m_platform->saves, savesBefore);
        QCOMPARE(m_delegate->templates().size(), 8);

        while (!m_delegate->templates().isEmpty()) {
            table()->selectRow(0);
            minus->click();
        }
        QCOMPARE(m_platform->userDefaults.value("TemplatesJSON").toString(), QString("[]"));
        QCOMPARE(titles(newFileMenu()->actions()), QStringList{"No Templates Enabled"});
        QVERIFY(!newFileMenu()->actions().first()->isEnabled());
    }

    void editingCells_data()
    {
        QTest::addColumn<int>("column");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("inMemory");
        QTest::addColumn<QString>("savedValue");
        QTest::addColumn<QString>("menuTitle");
        QTest::newRow("title trimmed") << 1 << "  Notes  " << "Notes" << "Notes" << "Notes";
        QTest::newRow("title cleared") << 1 << "   " << "" << "New File" << "New File";
        QTest::newRow("suffix with a dot") << 3 << ".md" << ".md" << "md" << "Text File";
        QTest::newRow("prefix") << 2 << " Memo " << "Memo" << "Memo" << "Text File";
    }
    void editingCells()
    {
        QFETCH(int, column);
        QFETCH(QString, typed);
        QFETCH(QString, inMemory);
        QFETCH(QString, savedValue);
        QFETCH(QString, menuTitle);
        const QModelIndex cell = table()->model()->index(0, column);
        table()->setCurrentIndex(cell);
        table()->edit(cell);
        auto* editor = table()->viewport()->findChild<QLineEdit*>();
        QVERIFY(editor);
        editor->selectAll();
        QTest::keyClicks(editor, typed);
        QTest::keyClick(editor, Qt::Key_Return);
        QCoreApplication::processEvents(); // the editor commits on a queued call
        const QString key = m_delegate->templateTableModel()->columns()[column].identifier;
        QCOMPARE(m_delegate->templates().first().value(key).toString(), inMemory);
        QCOMPARE(saved(*m_platform).first().toObject().value(key).toString(), savedValue);
        QCOMPARE(newFileMenu()->actions().first()->text(), menuTitle);
    }

    void tickingCheckboxes()
    {
        TemplateTableModel* model = m_delegate->templateTableModel();
        QVERIFY(model->setData(model->index(0, 0), Qt::Unchecked, Qt::CheckStateRole));
        QVERIFY(model->setData(model->index(2, 0), Qt::Checked, Qt::CheckStateRole));
        QVERIFY(model->setData(model->index(2, 4), Qt::Checked, Qt::CheckStateRole));
        QCOMPARE(saved(*m_platform)[0].toObject().value("enabled"), QJsonValue(false));
        QCOMPARE(saved(*m_platform)[2].toObject().value("executable"), QJsonValue(true));
        QCOMPARE(titles(newFileMenu()->actions()), (QStringList{"Markdown Document", "JSON File"}));
        QCOMPARE(newFileMenu()->actions()[0]->icon().name(), QString("text-x-generic"));
        QCOMPARE(newFileMenu()->actions()[1]->icon().name(), QString("utilities-terminal"));

        const int savesBefore = m_platform->saves;
        model->setObjectValue("x", "title", 99); // a stale row
        QCOMPARE(m_platform->saves, savesBefore);
    }

    void statusMenu()
    {
        QMenu* menu = m_delegate->statusMenu();
        QCOMPARE(titles(menu->actions()),
                 (QStringList{"New File in Finder", "Open Terminal Here", "Open iTerm Here", "---",
                              "Finder Extension: Not Registered", "Enable Extension", "Restart Finder",
                              "Open System Settings", "---", "Show Window", "Quit"}));
        QVERIFY(!m_delegate->extensionMenuItem()->isEnabled());
        QVERIFY(menu->actions()[0]->menu());
        QCOMPARE(menu->actions()[1]->icon().name(), QString("utilities-terminal"));
        QVERIFY(!menu->actions()[0]->icon().isNull());

        QMenu* application = m_delegate->applicationMenu();
        QCOMPARE(titles(application->actions()), (QStringList{"Show Brindlemark", "---", "Quit Brindlemark"}));
        QCOMPARE(application->actions()[0]->shortcut(), QKeySequence("Ctrl+,"));
        QCOMPARE(application->actions()[2]->shortcut(), QKeySequence("Ctrl+Q"));
        QVERIFY(m_delegate->window()->findChild<QMenuBar*>()->actions().contains(application->menuAction()));
        QVERIFY(symbolImage("no.such.symbol").isNull());
    }

    void submenuFollowsTheListAndCreatesFiles()
    {
        TemplateList changed = m_delegate->templates();
        changed[0].insert("enabled", false);
        changed << Template{{"id", "a"}, {"title", "Twin"}, {"prefix", "one"}, {"enabled", true}}
                << Template{{"id", "b"}, {"title", "Twin"}, {"prefix", "two"}, {"enabled", true}, {"executable", true}};
        m_delegate->setTemplates(changed);
        emit m_delegate->statusMenu()->aboutToShow(); // the menu is about to open
        QCOMPARE(titles(newFileMenu()->actions()), (QStringList{"Markdown Document", "Twin", "Twin"}));

        const QString desktop = m_home->file("Desktop");
        QDir().mkpath(desktop);
        newFileMenu()->actions()[2]->trigger();
        newFileMenu()->actions()[1]->trigger();
        QCOMPARE(entries(desktop), (QStringList{"one", "two"}));
        QVERIFY(QFileInfo(desktop + "/two").isExecutable());
        QVERIFY(!QFileInfo(desktop + "/one").isExecutable());
    }
};

BRINDLEMARK_WIDGET_TEST_MAIN(WindowTest)
#include "tst_window.moc"
