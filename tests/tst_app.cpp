// The controller as a user meets it, against a recording platform and recording tools: start-up,
// URL commands and their alerts, terminals, the file manager's folder, the extension, the window,
// the template table and the menus.
#include "FakePlatform.h"
#include "TestSupport.h"

#include "app/ApplicationStyle.h"
#include "app/Launcher.h"
#include "app/Symbols.h"
#include "platform/Platform.h"
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
    std::unique_ptr<FakePlatform> os; // the recording platform
    std::unique_ptr<AppDelegate> app;

    QString tools() { return QString::fromUtf8(readFile(home->file("tools.log"))); }
    QString status() { return app->statusLabel() ? app->statusLabel()->text() : "<no window>"; }
    QString saved() { return os->userDefaults.value("TemplatesJSON").toString(); }
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
        // No icon theme: the symbols are the application's own.
        QIcon::setThemeName("none");
    }

    void alertInFrontWithTheKeyboard() {
        // Raised while another window is active, the alert comes on top of it and takes the
        // keyboard; a warning, in a frame without minimise or maximise buttons.
        QWidget other;
        other.show();
        other.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        QString seen;
        QTimer::singleShot(0, [&] {
            QTRY_VERIFY(QApplication::activeWindow() != &other);
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeWindow());
            const Qt::WindowFlags flags = box ? box->windowFlags() : Qt::WindowFlags();
            seen = !box ? "no alert active"
                        : QString("%1 %2 %3 %4")
                              .arg(box->icon() == QMessageBox::Warning)
                              .arg(flags.testFlag(Qt::WindowStaysOnTopHint))
                              .arg(flags.testAnyFlags(Qt::WindowMinimizeButtonHint |
                                                      Qt::WindowMaximizeButtonHint))
                              .arg(box->text());
            if (box)
                box->accept();
        });
        runMessageBox("New Text File failed", "why");
        QCOMPARE(seen, "1 1 0 New Text File failed");
    }

    void init() {
        app.reset();
        home = std::make_unique<TestHome>();
        os = std::make_unique<FakePlatform>(home->path());
        for (auto [tool, name] : {std::pair{Platform::Tool::Open, "open"},
                                  {Platform::Tool::PluginKit, "pluginkit"},
                                  {Platform::Tool::KillAll, "killall"}})
            writeScript(os->tools[int(tool)] = home->file(QString("bin/") + name), recordingTool);
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
                os->userDefaults["TemplatesJSON"] = stored;
            app = start(*os, true);
            QCOMPARE(saved() + os->extensionPreferences.value("TemplatesJSON"), text + text);
            for (const QString& file : os->templateConfigFilePaths())
                QCOMPARE(readFile(file), text.toUtf8());
            QCOMPARE(readFile(home->file("plain/Templates.json.unreadable")), stored.toUtf8());
            app->saveTemplates();
            QCOMPARE(status() + " " + app->extensionMenuItem()->text(),
                     QString("<no window> Finder Extension: Registered"));
        }
    }

    void savesWaitForOtherInstancesAndKeepWhatTheyCannotRead() {
        app = start(*os, true);
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
        os->userDefaults["TemplatesJSON"] = "{written elsewhere";
        app->saveTemplates();
        QCOMPARE(readFile(home->file("plain/Templates.json.unreadable")), "{written elsewhere");
        QCOMPARE(saved(), templatesJSONText(edited));
        // Another instance unticks the first box: the table hears that every cell, the boxes'
        // column included, may show something new.
        os->laterLaunch({}); // the window, and so the table's columns
        TemplateTableModel* model = app->templateTableModel();
        QSignalSpy cells(model, &QAbstractItemModel::dataChanged);
        edited[0]["enabled"] = false;
        os->userDefaults["TemplatesJSON"] = templatesJSONText(edited);
        app->saveTemplates();
        QCOMPARE(model->index(0, 0).data(Qt::CheckStateRole), Qt::Unchecked);
        QVERIFY(!cells.isEmpty() && cells.last()[0].toModelIndex() == model->index(0, 0));
    }

    void urlCommandsAndTheirAlerts() {
        os->userDefaults["TemplatesJSON"] = R"([{"id":"mine","prefix":"Mine","suffix":"md"}])";
        app = std::make_unique<AppDelegate>(*os);
        const QString folder = home->file("My Folder ü"),
                      path = QUrl::toPercentEncoding(folder, "/");
        QDir().mkpath(folder);
        // A launch that comes before the templates are loaded gets the built-in ones only.
        app->applicationWillFinishLaunching();
        os->laterLaunch({"brindlemark://template?path=" + path + "&id=mine"});
        app->applicationDidFinishLaunching();
        os->laterLaunch({"brindlemark://template?path=" + path + "/&id=mine",
                         "brindlemark://create?path=" + path + "//"});
        QCOMPARE(entries(folder),
                 (QStringList{"Mine.md", "New Text File 1.txt", "New Text File.txt"}));
        // Shown after the commands, once for the folder: its last file.
        QVERIFY(os->shownFiles.isEmpty());
        QCoreApplication::processEvents();
        QCOMPARE(os->shownFiles, QStringList{folder + "/New Text File 1.txt"});
        QVERIFY(app->handledURLLaunch() && !app->window());

        // An unknown command is ignored silently. The alerts are queued, never shown inside the
        // action, and shown one after another, never on top of each other.
        os->laterLaunch({"brindlemark://create", "brindlemark://nothing?path=/tmp",
                         "brindlemark://template?path=" + home->file("nowhere"),
                         "brindlemark://template?path=/proc"});
        app->showError(std::nullopt);
        QVERIFY(os->alerts.isEmpty());
        QCoreApplication::processEvents();
        QCOMPARE(os->alerts.join("\n").remove("New Text File failed: "),
                 "Finder did not provide a target folder.\nNot a folder: " + home->file("nowhere") +
                     "\nCould not create file in /proc\nUnknown error.");
        QCOMPARE(os->deepestAlerts, 1);
    }

    void commands() {
        app = start(*os);
        app->setTemplates(
            {json(R"({"id":"a","title":"R&D Notes","prefix":"<i>one","enabled":true})"),
             json(R"({"id":"b","title":"Twin","prefix":"two","enabled":1,"executable":"yes"})")});
        QDir().mkpath(*(os->frontFolder = home->file("front")));
        emit app->statusMenu()->aboutToShow();
        // "menu item, button or URL|what the tool says" -> the tool's run|the status line|the
        // alert after its title, "New Text File failed" ("~": the home). A failure leaves the
        // status line as it was; a place that is no folder gets no tool.
        expectEach(
            [&](const QString& input) {
                writeFile(home->file("open.says"), input.section('|', 1).toUtf8());
                QFile::remove(home->file("tools.log"));
                os->alerts.clear();
                const QString command = input.section('|', 0, 0).replace("~", home->path());
                command.startsWith("brindlemark:") ? app->handleURL(command) : press(command);
                QCoreApplication::processEvents();
                return QString(tools() + "|" + status() + "|" + os->alerts.join(""))
                    .replace(home->path(), "~")
                    .remove("New Text File failed: ");
            },
            {{"Create File|", "|Created New Text File.txt|"},
             {"Twin|", "|Created two|"},
             {"R&&D Notes|", "|Created <i>one|"},
             {"brindlemark://terminal?path=~/Desktop/|",
              "open -a Terminal ~/Desktop\n|Opened Terminal at ~/Desktop|"},
             {"Open iTerm|", "open -a iTerm2 ~/front\n|Opened iTerm2 at ~/front|"},
             {"Open Terminal Here|No terminal here.",
              "open -a Terminal ~/front\n|Opened iTerm2 at ~/front|No terminal here."},
             {"brindlemark://iterm?path=~/open.says|",
              "|Opened iTerm2 at ~/front|Not a folder: ~/open.says"},
             {"Restart Finder|", "killall Finder\n|Finder restarted.|"}});
        QCOMPARE(entries(*os->frontFolder), (QStringList{"<i>one", "New Text File.txt", "two"}));
        QVERIFY(QFileInfo(home->file("front/two")).isExecutable() &&
                app->statusLabel()->textFormat() == Qt::PlainText);
        // The menu's titles are shown as written.
        QCOMPARE(app->templateMenuItem()->menu()->actions().first()->text(), "R&&D Notes");

        // Enabling the extension: the window answers while the tools run, one after another, and
        // a second press meanwhile changes nothing: the five tools run once (their command lines:
        // the macOS platform's test of the controller).
        QVERIFY(writeFile(home->file("slow"), "") && QFile::remove(home->file("tools.log")));
        press("Enable Extension");
        press("Enable Extension");
        QTRY_VERIFY_WITH_TIMEOUT(!app->isEnablingExtension(), 5000);
        QCOMPARE(app->extensionMenuItem()->text() + " " + status() +
                     QString::number(tools().count('\n')),
                 QString("Finder Extension: Enabled Finder extension enabled.5"));
    }

    void windowAndTable() {
        app = start(*os);
        QWidget* window = app->window();
        QTableView* table = app->templatesTableView();
        TemplateTableModel* model = app->templateTableModel();
        // Started again without a URL: the same window again, of a fixed size. Hidden, it comes
        // back with "Show Brindlemark", in the window's menu bar.
        QVERIFY(window->close() && !window->isVisible());
        os->laterLaunch({});
        QVERIFY(app->window() == window && window->isVisible() &&
                window->minimumSize() == window->maximumSize());
        // Every button's symbol and whole title inside its fixed frame, with room to the edges
        // and between them, in the window's fonts and in a desktop's larger one.
        using Style = ApplicationStyle;
        for (const int growth : {0, 3})
            for (QPushButton* button : window->findChildren<QPushButton*>()) {
                QFont font = button->font();
                font.setPixelSize(font.pixelSize() + growth);
                const QSize symbol = button->icon().isNull() ? QSize() : button->iconSize();
                const auto [icon, text, set] =
                    Style::buttonLabel(button->rect(), symbol, button->text(), font);
                const QRect room =
                    button->rect().adjusted(Style::ButtonPadding, 0, -Style::ButtonPadding, 0);
                QVERIFY2(
                    room.contains(text) &&
                        (symbol.isEmpty() ||
                         (room.contains(icon) && icon.right() + Style::SymbolGap < text.left())) &&
                        QFontMetricsF(set).horizontalAdvance(button->text()) <= text.width() &&
                        set.pixelSize() >= Style::SmallestTitleSize,
                    qPrintable(button->text()));
            }
        press("Hide Window");
        QVERIFY(!window->isVisible());
        QCOMPARE(app->applicationMenu()->actions().size(), 3); // no "Start at Login" here
        app->applicationMenu()->actions().first()->trigger();
        QVERIFY(window->isVisible() &&
                !app->applicationMenu()->menuAction()->associatedObjects().isEmpty());

        // "+" adds a row and selects it; "-" removes the selected row, "json", and with nothing
        // selected, nothing. The view learns of each.
        QSignalSpy told(model, &QAbstractItemModel::modelReset);
        press("+");
        QCOMPARE(table->selectionModel()->selectedRows().value(0).row(), 6);
        QVERIFY(saved().endsWith(R"("prefix":"NewFile","suffix":"txt","title":"New Template"}])"));
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
        QCOMPARE(os->changeNotices.size(), 6);
    }

    void startAtLogin() {
        // After "Show Brindlemark", as the entry says now, also when the desktop's own settings
        // changed it; a change that fails says why on the status line and shows the entry as it is.
        os->login = true;
        app = start(*os);
        QAction* item = app->applicationMenu()->actions().at(1);
        QVERIFY(item->isCheckable() && item->isChecked());
        item->trigger();
        QCOMPARE(os->login, false);
        os->login = true;
        emit app->applicationMenu()->aboutToShow();
        QVERIFY(item->isChecked());
        os->loginProblem = "cannot write /x";
        item->trigger();
        QCOMPARE(QString("%1 %2 %3").arg(item->text()).arg(item->isChecked()).arg(status()),
                 "Start at Login 1 Start at Login could not be turned off: cannot write /x.");
    }

    void symbols() {
        // White text on a dark window: the application's mark, or the tray's -> its colours
        const QPalette light = qApp->palette();
        qApp->setPalette(QPalette(Qt::white, QColor(0x30, 0x30, 0x30)));
        const QIcon mark = symbolImage("doc.badge.plus");
        QCOMPARE(look(mark) + " " + look(statusItemIcon(statusItemColour({}))),
                 "#00000000 #ffffffff #00000000 #ffbebebe");
        // On a panel: dark on light, light on dark, by most of what shows around the mark.
        const QColor onLight(0x2e, 0x34, 0x36), onDark(0xf6, 0xf5, 0xf4), paper(0xfa, 0xfa, 0xfa),
            ink(0x20, 0x20, 0x20), blue(0x35, 0x84, 0xe4);
        const std::pair<QList<QColor>, QColor> panels[] = {
            {{paper, paper, paper, ink, ink}, onLight},
            {{ink, ink, ink, paper, paper}, onDark},
            {{blue, blue, QColor(0xc0, 0xc0, 0xc0)}, onDark},
            {{QColor(Qt::yellow)}, onLight}};
        for (const auto& [panel, colour] : panels)
            QCOMPARE(statusItemColour(panel), colour);
        // The mark at 16 pixels is its 16-pixel file, not a larger one scaled down.
        const auto alpha = [](const QImage& image) {
            return image.convertToFormat(QImage::Format_Alpha8);
        };
        QCOMPARE(alpha(mark.pixmap(16).toImage()),
                 alpha(QImage(":/icons/symbolic/brindlemark-symbolic-16.png")));
        // Icons handed out earlier follow the palette.
        qApp->setPalette(light);
        QCOMPARE(look(mark), "#00000000 #ff000000");
    }
};

BRINDLEMARK_WIDGET_TEST_MAIN(AppTest)
#include "tst_app.moc"
