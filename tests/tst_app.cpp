// The controller as a user meets it, against a recording platform and recording tools: start-up,
// URL commands and their alerts, terminals, the file manager's folder, the extension, the window,
// the template table and the menus.
#include "FakePlatform.h"
#include "TestSupport.h"

#include "Identifiers.h"
#include "app/Launcher.h"
#include "app/Symbols.h"
#include "templates/TemplateTableModel.h"

#include <QtWidgets>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace brindlemark;

namespace {

// One script for the three tools: it writes down every run, and answers as the real ones do.
const QByteArray recordingTool = R"sh(echo "${0##*/} $*" >> "$HOME/tools.log"
[ -e "$HOME/slow" ] && [ "$1" != -a ] && sleep 0.15
case "${0##*/} $1" in
  "pluginkit -e") touch "$HOME/elected"; echo "cannot elect" ;;
  "pluginkit -mAD") [ -e "$HOME/elected" ] && s=+ || s=-; echo "$s    org.brindlemark.Brindlemark.BrindlemarkFinderSync(1)" ;;
  "pluginkit -a" | "open -a") cat "$HOME/${0##*/}.says" 2>/dev/null ;;
esac)sh";

QString titles(const QMenu* menu) {
    QStringList list;
    for (QAction* action : menu->actions())
        list << action->text() + (action->isEnabled() ? "" : " (off)");
    return list.join(", ");
}

// The colours of an icon's fully opaque and fully clear pixels.
QString look(const QIcon& icon) {
    QStringList colours;
    const QImage image = icon.pixmap(16).toImage();
    for (int i = 0; i < image.width() * image.height(); ++i)
        if (const QColor pixel = image.pixelColor(i % image.width(), i / image.width());
            pixel.alpha() % 255 == 0)
            colours << pixel.name(QColor::HexArgb);
    colours.removeDuplicates();
    colours.sort();
    return colours.join(' ');
}

} // namespace

class AppTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestHome> home;
    std::unique_ptr<FakePlatform> platform;
    std::unique_ptr<AppDelegate> app;
    QTemporaryDir iconTheme; // the tests' own icon theme, made once by initTestCase()

    QString tools() { return QString::fromUtf8(readFile(home->file("tools.log"))); }
    QString status() { return app->statusLabel() ? app->statusLabel()->text() : "<no window>"; }
    QString saved() { return platform->userDefaults.value("TemplatesJSON").toString(); }
    // Clicks the window's button with this title, else chooses the tray menu's item or its
    // New File menu's.
    void press(const QString& title) {
        for (QPushButton* button : app->window()->findChildren<QPushButton*>())
            if (button->text() == title)
                return button->click();
        for (QAction* item :
             app->statusMenu()->actions() + app->templateMenuItem()->menu()->actions())
            if (item->text() == title)
                return item->trigger();
        QFAIL(qPrintable("no control " + title));
    }

private slots:
    void initTestCase() {
        // As the launcher sets the application up: its style draws the table's check boxes.
        setUpApplication(*qApp);
        // An icon theme of the tests' own: symbolic icons as black squares (GTK's pre-rendered
        // files, and one under the name Qt looks for), full-colour ones as red squares:
        // "emblem-system" and the application's own icon.
        QVERIFY(writeFile(iconTheme.filePath("t/index.theme"),
                          "[Icon Theme]\nDirectories=16\n[16]\nSize=16\n") &&
                QDir().mkpath(iconTheme.filePath("t/16")));
        for (const QString name :
             {"view-refresh-symbolic.symbolic", "text-x-generic-symbolic.symbolic",
              "utilities-terminal-symbolic", "emblem-system", ApplicationBundleIdentifier}) {
            QImage square(8, 8, QImage::Format_ARGB32);
            square.fill(name.contains("symbolic") ? Qt::black : Qt::red);
            QVERIFY(square.copy(-4, -4, 16, 16)
                        .save(iconTheme.filePath("t/16/" + name + ".png"))); // clear around it
        }
        QIcon::setThemeSearchPaths({iconTheme.path()});
        QIcon::setThemeName("t");
    }

    void init() {
        app.reset();
        home = std::make_unique<TestHome>();
        platform = std::make_unique<FakePlatform>(home->path());
        for (auto [tool, name] : {std::pair{Platform::Tool::Open, "open"},
                                  {Platform::Tool::PluginKit, "pluginkit"},
                                  {Platform::Tool::KillAll, "killall"}})
            writeScript(platform->tools[int(tool)] = home->file(QString("bin/") + name),
                        recordingTool);
        QDir().mkpath(home->file("Desktop"));
    }

    void startUp() {
        // stored text -> what every place holds afterwards; the backup holds the unreadable text
        // (none for nothing stored). A launch for a URL shows no window, nor does a save.
        const QString normalised =
            R"([{"enabled":true,"executable":false,"id":"a","prefix":"New File","suffix":"x","title":"New File"}])";
        for (const auto& [stored, text] : QList<std::pair<QString, QString>>{
                 {QString(), builtInTemplatesJSON},
                 {"[{\"id\":", builtInTemplatesJSON},
                 {R"([{"id":"a","suffix":".x","enabled":"on"},7])", normalised}}) {
            init();
            if (!stored.isNull())
                platform->userDefaults["TemplatesJSON"] = stored;
            app = start(*platform, true);
            QCOMPARE(saved() + platform->extensionPreferences.value("TemplatesJSON"), text + text);
            for (const QString& file : platform->templateConfigFilePaths())
                QCOMPARE(readFile(file), text.toUtf8());
            QCOMPARE(readFile(home->file("plain/Templates.json.unreadable")), stored.toUtf8());
            app->saveTemplates();
            QCOMPARE(status() + " " + app->extensionMenuItem()->text(),
                     QString("<no window> Finder Extension: Registered"));
        }
    }

    void savesWaitForOtherInstancesAndKeepWhatTheyCannotRead() {
        app = start(*platform, true);
        TemplateList edited = app->templates();
        // Another instance holds the store's lock: the save writes nothing meanwhile and is
        // written by itself once the lock is free, by its retry (the start's own writes are
        // followed first, so that no change of the store's folders sets it off).
        QTest::qWait(500);
        const int other =
            ::open(QFile::encodeName(home->file("plain")).constData(), O_RDONLY | O_DIRECTORY);
        QVERIFY(other >= 0 && ::flock(other, LOCK_EX) == 0);
        edited[0]["title"] = "While locked";
        app->setTemplates(edited);
        app->saveTemplates();
        QVERIFY(app->isSavePending() && !saved().contains("While locked"));
        ::close(other);
        QTRY_VERIFY_WITH_TIMEOUT(!app->isSavePending(), 10'000);
        QVERIFY(saved().contains("While locked"));
        // Text that is no list, stored by someone meanwhile: kept aside, and the list put back.
        platform->userDefaults["TemplatesJSON"] = "{written elsewhere";
        app->saveTemplates();
        QCOMPARE(readFile(home->file("plain/Templates.json.unreadable")), "{written elsewhere");
        QCOMPARE(saved(), templatesJSONText(edited));
        // Another instance unticks the first box: the table hears that every cell, the boxes'
        // column included, may show something new.
        platform->laterLaunch({}); // the window, and so the table's columns
        TemplateTableModel* model = app->templateTableModel();
        QSignalSpy cells(model, &QAbstractItemModel::dataChanged);
        edited[0]["enabled"] = false;
        platform->userDefaults["TemplatesJSON"] = templatesJSONText(edited);
        app->saveTemplates();
        QCOMPARE(model->index(0, 0).data(Qt::CheckStateRole), Qt::Unchecked);
        QVERIFY(!cells.isEmpty() && cells.last()[0].toModelIndex() == model->index(0, 0));
    }

    void urlCommandsAndTheirAlerts() {
        platform->userDefaults["TemplatesJSON"] =
            R"([{"id":"mine","prefix":"Mine","suffix":"md"}])";
        app = std::make_unique<AppDelegate>(*platform);
        const QString folder = home->file("My Folder ü"),
                      path = QUrl::toPercentEncoding(folder, "/");
        QDir().mkpath(folder);
        // A launch that comes before the templates are loaded gets the built-in ones only.
        app->applicationWillFinishLaunching();
        platform->laterLaunch({"brindlemark://template?path=" + path + "&id=mine"});
        app->applicationDidFinishLaunching();
        platform->laterLaunch({"brindlemark://template?path=" + path + "/&id=mine",
                               "brindlemark://create?path=" + path + "//"});
        QCOMPARE(entries(folder),
                 (QStringList{"Mine.md", "New Text File 1.txt", "New Text File.txt"}));
        // Shown after the commands, once for the folder: its last file.
        QVERIFY(platform->shownFiles.isEmpty());
        QCoreApplication::processEvents();
        QCOMPARE(platform->shownFiles, QStringList{folder + "/New Text File 1.txt"});
        QVERIFY(app->handledURLLaunch() && !app->window());

        // An unknown command is ignored silently. The alerts are queued, never shown inside the
        // action, and shown one after another, never on top of each other.
        platform->laterLaunch({"brindlemark://create", "brindlemark://nothing?path=/tmp",
                               "brindlemark://template?path=" + home->file("nowhere"),
                               "brindlemark://template?path=/proc"});
        app->showError(std::nullopt);
        QVERIFY(platform->alerts.isEmpty());
        QCoreApplication::processEvents();
        QCOMPARE(platform->alerts.join("\n").remove("New Text File failed: "),
                 "Finder did not provide a target folder.\nNot a folder: " + home->file("nowhere") +
                     "\nCould not create file in /proc\nUnknown error.");
        QCOMPARE(platform->deepestAlerts, 1);
    }

    void commands() {
        app = start(*platform);
        app->setTemplates(
            {json(R"({"id":"a","title":"R&D Notes","prefix":"<i>one","enabled":true})"),
             json(R"({"id":"b","title":"Twin","prefix":"two","enabled":1,"executable":"yes"})")});
        QDir().mkpath(*(platform->frontFolder = home->file("front")));
        emit app->statusMenu()->aboutToShow();
        // "menu item, button or URL|what the tool says" -> the tool's run|the status line|the
        // alert ("~": the home). A failure leaves the status line as it was; a place that is no
        // folder gets no tool.
        expectEach(
            [&](const QString& input) {
                writeFile(home->file("open.says"), input.section('|', 1).toUtf8());
                QFile::remove(home->file("tools.log"));
                platform->alerts.clear();
                const QString command = input.section('|', 0, 0).replace("~", home->path());
                command.startsWith("brindlemark:") ? app->handleURL(command) : press(command);
                QCoreApplication::processEvents();
                return QString(tools() + "|" + status() + "|" + platform->alerts.join(""))
                    .replace(home->path(), "~");
            },
            {{"Create File|", "|Created New Text File.txt|"},
             {"Twin|", "|Created two|"},
             {"R&&D Notes|", "|Created <i>one|"},
             {"brindlemark://terminal?path=~/Desktop/|",
              "open -a Terminal ~/Desktop\n|Opened Terminal at ~/Desktop|"},
             {"Open iTerm|", "open -a iTerm2 ~/front\n|Opened iTerm2 at ~/front|"},
             {"Open Terminal Here|No terminal here.",
              "open -a Terminal ~/front\n|Opened iTerm2 at ~/front|New Text File failed: No "
              "terminal here."},
             {"brindlemark://iterm?path=~/open.says|",
              "|Opened iTerm2 at ~/front|New Text File failed: Not a folder: ~/open.says"},
             {"Restart Finder|", "killall Finder\n|Finder restarted.|"}});
        QCOMPARE(entries(*platform->frontFolder),
                 (QStringList{"<i>one", "New Text File.txt", "two"}));
        QVERIFY(QFileInfo(home->file("front/two")).isExecutable() &&
                app->statusLabel()->textFormat() == Qt::PlainText);
        // The menu's titles are shown as written, without a mnemonic, with their kind's symbol.
        QMenu* newFile = app->templateMenuItem()->menu();
        QCOMPARE(titles(newFile), QString("R&&D Notes, Twin"));
        QVERIFY(QKeySequence::mnemonic(newFile->actions()[0]->text()).isEmpty());
        QCOMPARE(newFile->actions()[1]->icon().name() + " " + newFile->actions()[0]->icon().name(),
                 "utilities-terminal-symbolic text-x-generic-symbolic");
        app->setTemplates({});
        app->rebuildNewFileStatusMenu();
        QCOMPARE(titles(newFile), QString("No Templates Enabled (off)"));

        // Enabling the extension: the window answers while the tools run, one after another, and
        // a second press meanwhile changes nothing: the five tools run once (their command lines:
        // the macOS platform's test of the controller).
        QVERIFY(writeFile(home->file("slow"), "") && QFile::remove(home->file("tools.log")));
        press("Enable Extension");
        press("Enable Extension");
        QTRY_VERIFY_WITH_TIMEOUT(!app->isEnablingExtension(), 5000);
        QCOMPARE(titles(app->statusMenu()).section(", ", 4, 4) + " " + status() +
                     QString::number(tools().count('\n')),
                 QString("Finder Extension: Enabled (off) Finder extension enabled.5"));
        // Registering shows what pluginkit says when it fails.
        writeFile(home->file("pluginkit.says"), "no bundle there\n");
        app->registerExtension();
        QCOMPARE(status(), QString("no bundle there\n"));
    }

    void windowAndTable() {
        app = start(*platform);
        QWidget* window = app->window();
        QTableView* table = app->templatesTableView();
        TemplateTableModel* model = app->templateTableModel();
        // The first control has the focus and shows it; Tab leaves the table for "+".
        QVERIFY(QTest::qWaitForWindowActive(window));
        QCOMPARE(QApplication::focusWidget()->property("text").toString() +
                     QString::number(window->testAttribute(Qt::WA_KeyboardFocusChange)),
                 "Enable Extension1");
        table->setFocus();
        table->setCurrentIndex(model->index(0, 1));
        QTest::keyClick(table, Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget()->property("text"), "+");

        // Started again without a URL: the same window again, of a fixed size. Hidden, it comes
        // back with "Show Brindlemark", in the window's menu bar.
        QVERIFY(window->close() && !window->isVisible());
        platform->laterLaunch({});
        QVERIFY(app->window() == window && window->isVisible() &&
                window->minimumSize() == window->maximumSize());
        press("Hide Window");
        QVERIFY(!window->isVisible());
        app->applicationMenu()->actions().first()->trigger();
        QVERIFY(window->isVisible() &&
                !app->applicationMenu()->menuAction()->associatedObjects().isEmpty());

        // "+" adds a row and selects it; "-" removes the selected row, "json", and with nothing
        // selected, nothing. The view learns of each.
        QSignalSpy told(model, &QAbstractItemModel::modelReset);
        press("+");
        QCOMPARE(table->selectionModel()->selectedRows().value(0).row(), 6);
        QVERIFY(saved().endsWith(R"("prefix":"NewFile","suffix":"txt","title":"New Template"}])"));
        QCOMPARE(titles(app->templateMenuItem()->menu()),
                 QString("Text File, Markdown Document, New Template"));
        table->selectRow(2);
        press("-");
        QVERIFY(!saved().contains("JSONFile") && saved().contains("MarkdownDocument") &&
                saved().count("script") == 3);
        table->clearSelection();
        press("-");
        QCOMPARE(QString("%1 resets, %2 templates").arg(told.count()).arg(app->templates().size()),
                 "2 resets, 6 templates");

        // A title is trimmed as it is typed; the boxes untick.
        QVERIFY(model->setData(model->index(0, 1), "  Notes  ", Qt::EditRole));
        QCOMPARE(app->templateMenuItem()->menu()->actions().first()->text(), "Notes");
        QVERIFY(model->setData(model->index(0, 0), Qt::Unchecked, Qt::CheckStateRole) &&
                model->setData(model->index(2, 4), Qt::Unchecked, Qt::CheckStateRole));
        QVERIFY(saved().startsWith(
            R"([{"enabled":false,"executable":false,"id":"text","prefix":"New Text File","suffix":"txt","title":"Notes"})"));
        QVERIFY(saved().contains(R"({"enabled":false,"executable":false,"id":"shell")"));
        // Every change reaches the file managers' menus; a row that is gone stores nothing.
        model->setObjectValue("x", "title", 99);
        QCOMPARE(platform->changeNotices.size(), 6);
        QCOMPARE(status(),
                 QString("Templates saved. Finder menu updates on the next right-click."));
    }

    void symbols() {
        // White text on a dark window: symbol, or the tray -> its colours|its theme name. The
        // full-colour theme icon keeps its colours.
        const QPalette light = qApp->palette();
        qApp->setPalette(QPalette(Qt::white, QColor(0x30, 0x30, 0x30)));
        const QIcon refresh = symbolImage("arrow.clockwise");
        expectEach(
            [&](const QString& symbol) {
                const QIcon icon = symbol == "tray" ? statusItemIcon() : symbolImage(symbol);
                return look(icon) + "|" + icon.name();
            },
            {{"arrow.clockwise", "#00000000 #ffffffff|view-refresh-symbolic"},
             {"terminal", "#00000000 #ffffffff|utilities-terminal-symbolic"},
             {"doc.badge.plus", "#00000000 #ffffffff|"},
             {"tray", "#00000000 #ffbebebe|"},
             {"gearshape", "#00000000 #ffff0000|emblem-system"},
             {"power", "|"}});
        // The mark at 16 pixels is its 16-pixel file, not a larger one scaled down.
        QCOMPARE(symbolImage("doc.badge.plus")
                     .pixmap(16)
                     .toImage()
                     .convertToFormat(QImage::Format_Alpha8),
                 QImage(":/icons/symbolic/brindlemark-symbolic-16.png")
                     .convertToFormat(QImage::Format_Alpha8));
        // Icons handed out earlier follow the palette.
        qApp->setPalette(light);
        QCOMPARE(look(refresh), "#00000000 #ff000000");
    }
};

BRINDLEMARK_WIDGET_TEST_MAIN(AppTest)
#include "tst_app.moc"
