// File actions as the controller runs them: file creation and its names, modes and failures,
// the queued error alert, the tool runner, terminals, and URL commands end to end against a
// recording platform.
#include "FakePlatform.h"
#include "TestEnvironment.h"

#include "actions/FileCreation.h"
#include "app/AppDelegate.h"
#include "bridge/ToolRunner.h"

#include <QJsonDocument>
#include <QLabel>

#include <sys/stat.h>

using namespace brindlemark;

namespace {

mode_t modeOf(const QString& path)
{
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? (info.st_mode & 07777) : 0;
}

} // namespace

class ActionsTest : public QObject {
    Q_OBJECT

private slots:
    void fileNames_data()
    {
        QTest::addColumn<QString>("record");
        QTest::addColumn<QStringList>("existing"); // a trailing "/" makes a folder, "->x" a link to x
        QTest::addColumn<QString>("expected");
        const QString text = R"({"id":"text","prefix":"New Text File","suffix":"txt"})";
        QTest::newRow("free") << text << QStringList{} << "New Text File.txt";
        QTest::newRow("first gap") << text << QStringList{"New Text File.txt", "New Text File 1.txt"} << "New Text File 2.txt";
        QTest::newRow("only 1 taken") << text << QStringList{"New Text File 1.txt"} << "New Text File.txt";
        QTest::newRow("blank prefix takes title") << R"({"title":"Notes","prefix":"  ","suffix":"md"})" << QStringList{} << "Notes.md";
        QTest::newRow("nothing but suffix") << R"({"suffix":"md"})" << QStringList{} << "New File.md";
        QTest::newRow("lone dot suffix") << R"({"prefix":"base","suffix":"."})" << QStringList{"base"} << "base 1";
        QTest::newRow("empty suffix") << R"({"prefix":"base"})" << QStringList{"base", "base 1"} << "base 2";
        QTest::newRow("two dots") << R"({"prefix":"x","suffix":"..txt"})" << QStringList{} << "x.txt";
        QTest::newRow("three dots") << R"({"prefix":"x","suffix":"...txt"})" << QStringList{} << "x..txt";
        QTest::newRow("double suffix") << R"({"prefix":"x","suffix":".tar.gz"})" << QStringList{} << "x.tar.gz";
        QTest::newRow("folder takes the name") << R"({"prefix":"x","suffix":"sh"})" << QStringList{"x.sh/"} << "x 1.sh";
        QTest::newRow("link to a file takes the name") << R"({"prefix":"x","suffix":"sh"})" << QStringList{"t", "x.sh->t"} << "x 1.sh";
        QTest::newRow("dangling link is never followed") << R"({"prefix":"x","suffix":"sh"})" << QStringList{"x.sh->gone"} << "x 1.sh";
        QTest::newRow("percent signs stay") << R"({"prefix":"50%1 off","suffix":"%2"})" << QStringList{"50%1 off.%2"} << "50%1 off 1.%2";
        QTest::newRow("no leading zeros past 9") << R"({"prefix":"n"})"
            << QStringList{"n", "n 1", "n 2", "n 3", "n 4", "n 5", "n 6", "n 7", "n 8", "n 9"} << "n 10";
    }
    void fileNames()
    {
        QFETCH(QString, record);
        QFETCH(QStringList, existing);
        QFETCH(QString, expected);
        TestHome home;
        const QString folder = home.file("folder");
        QDir().mkpath(folder);
        for (const QString& entry : existing) {
            if (entry.endsWith('/'))
                QDir().mkpath(folder + "/" + entry);
            else if (entry.contains("->"))
                QFile::link(entry.section("->", 1), folder + "/" + entry.section("->", 0, 0));
            else
                QVERIFY(writeFile(folder + "/" + entry, "kept"));
        }
        const FileCreation made = createFileFromTemplate(QJsonDocument::fromJson(record.toUtf8()).object(), folder);
        QCOMPARE(made.status, FileCreation::Created);
        QCOMPARE(made.filePath, folder + "/" + expected);
        QCOMPARE(QFileInfo(made.filePath).size(), 0);
        QCOMPARE(entries(folder).size(), existing.size() + 1);
        for (const QString& entry : existing)
            if (!entry.endsWith('/') && !entry.contains("->"))
                QCOMPARE(readFile(folder + "/" + entry), QByteArray("kept"));
    }

    void modes()
    {
        TestHome home;
        const mode_t oldMask = ::umask(077);
        const FileCreation script = createFileFromTemplate(Template{{"prefix", "s"}, {"executable", "yes"}}, home.path());
        const FileCreation plain = createFileFromTemplate(Template{{"prefix", "p"}}, home.path());
        ::umask(oldMask);
        QCOMPARE(modeOf(script.filePath), mode_t(0755));
        QCOMPARE(modeOf(plain.filePath), mode_t(0600)); // the user's default for new files
    }

    void failures_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<int>("status");
        QTest::newRow("missing folder") << "missing" << "x" << int(FileCreation::NotAFolder);
        QTest::newRow("a file") << "file" << "x" << int(FileCreation::NotAFolder);
        QTest::newRow("empty path") << "" << "x" << int(FileCreation::NotAFolder);
        QTest::newRow("unwritable place") << "/proc" << "x" << int(FileCreation::CouldNotCreate);
        QTest::newRow("slash in the prefix") << "folder" << "../escaped" << int(FileCreation::CouldNotCreate);
        QTest::newRow("prefix of two dots, no suffix") << "folder" << ".." << int(FileCreation::CouldNotCreate);
        QTest::newRow("absolute prefix") << "folder" << "/tmp/escaped" << int(FileCreation::CouldNotCreate);
        QTest::newRow("relative folder") << "relative/folder" << "x" << int(FileCreation::NotAFolder);
        QTest::newRow("NUL in the folder") << QString("/tmp") + QChar(0) + "/x" << "x" << int(FileCreation::NotAFolder);
    }
    void failures()
    {
        QFETCH(QString, folder);
        QFETCH(QString, prefix);
        QFETCH(int, status);
        TestHome home;
        QDir().mkpath(home.file("folder"));
        QVERIFY(writeFile(home.file("file"), "x"));
        const QString path = folder.startsWith('/') || folder.isEmpty() || folder.startsWith("relative") ? folder : home.file(folder);
        const FileCreation made = createFileFromTemplate(Template{{"prefix", prefix}}, path);
        QCOMPARE(int(made.status), status);
        QVERIFY(entries(home.file("folder")).isEmpty());
        QVERIFY(!QFile::exists(home.file("escaped")));
    }

    void toolRunner_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("expected");
        QTest::newRow("silent success") << QByteArray("exit 0") << QStringList{} << "";
        QTest::newRow("silent failure") << QByteArray("exit 3") << QStringList{} << "";
        QTest::newRow("standard error only") << QByteArray("echo oops >&2") << QStringList{} << "oops\n";
        QTest::newRow("merged in order") << QByteArray("echo a; echo b >&2; echo c") << QStringList{} << "a\nb\nc\n";
        QTest::newRow("not utf-8") << QByteArray("printf 'ok\\377'") << QStringList{} << "";
        QTest::newRow("arguments unchanged")
            << QByteArray("printf '[%s]' \"$@\"") << QStringList{"a b", "'q'", "$HOME;|&", ""} << "[a b]['q'][$HOME;|&][]";
        QTest::newRow("standard input is empty") << QByteArray("cat; echo done") << QStringList{} << "done\n";
        QTest::newRow("more than a pipe holds")
            << QByteArray("head -c 10000000 /dev/zero | tr '\\0' a; echo") << QStringList{} << QString(10'000'000, u'a') + "\n";
        QTest::newRow("never ends")
            << QByteArray("echo started; exec sleep 60") << QStringList{}
            << "started\ntool did not finish within 0.5 seconds and was stopped.";
        QTest::newRow("closes its output and goes on")
            << QByteArray("exec >&- 2>&-; sleep 60") << QStringList{} << "tool did not finish within 0.5 seconds and was stopped.";
    }
    void toolRunner()
    {
        QFETCH(QByteArray, script);
        QFETCH(QStringList, arguments);
        QFETCH(QString, expected);
        TestHome home;
        writeScript(home.file("tool"), script);
        QCOMPARE(runTool(home.file("tool"), arguments, 500), expected);
    }

    void toolThatCannotStart()
    {
        TestHome home;
        QDir().mkpath(home.file("dir"));
        QVERIFY(writeFile(home.file("plain"), "not executable"));
        for (const QString& path : {home.file("missing"), home.file("dir"), home.file("plain")}) {
            const QString reason = runTool(path, {});
            QVERIFY2(!reason.isEmpty(), qPrintable(path));
        }
    }

    // ---- the controller ----------------------------------------------------------------

    void urlCommandsCreateFilesAndShowThem()
    {
        TestHome home;
        FakePlatform platform(home.path());
        AppDelegate delegate(platform);
        delegate.applicationDidFinishLaunching();
        const QString folder = home.file("My Folder ü");
        QDir().mkpath(folder);
        const QString path = QString::fromUtf8(QUrl::toPercentEncoding(folder, "/"));

        delegate.handleURL("brindlemark://template?path=" + path + "&id=markdown");
        delegate.handleURL("brindlemark://create?path=" + path + "/");
        delegate.handleURL("brindlemark://template?path=" + path + "&prefix=run&suffix=sh&executable=on");
        QCOMPARE(entries(folder), (QStringList{"MarkdownDocument.md", "New Text File.txt", "run.sh"}));
        QCOMPARE(modeOf(folder + "/run.sh"), mode_t(0755));
        QCOMPARE(platform.shownFiles, (QStringList{folder + "/MarkdownDocument.md", folder + "/New Text File.txt", folder + "/run.sh"}));
        QCOMPARE(delegate.statusLabel()->text(), QString("Created run.sh"));
        QCoreApplication::processEvents();
        QVERIFY(platform.alerts.isEmpty());
    }

    void errorsQueueOneAfterAnother()
    {
        TestHome home;
        FakePlatform platform(home.path());
        AppDelegate delegate(platform);
        delegate.handleGetURLEvent("brindlemark://create");
        delegate.handleGetURLEvent("brindlemark://template?path=" + home.file("nowhere"));
        delegate.showError(std::nullopt);
        delegate.handleGetURLEvent("brindlemark://nothing?path=/tmp"); // ignored silently
        delegate.handleGetURLEvent("https://create?path=/tmp");        // ignored silently
        QVERIFY(platform.alerts.isEmpty()); // queued, not shown inside the action
        QVERIFY(delegate.handledURLLaunch());
        QCoreApplication::processEvents();
        QCOMPARE(platform.alerts, (QStringList{
                                      "New Text File failed: Finder did not provide a target folder.",
                                      "New Text File failed: Not a folder: " + home.file("nowhere"),
                                      "New Text File failed: Unknown error.",
                                  }));
        QCOMPARE(platform.deepestAlerts, 1); // never an alert on top of another
        QVERIFY(platform.shownFiles.isEmpty());
    }

    void openURLsLeavesTheLaunchFlag()
    {
        TestHome home;
        FakePlatform platform(home.path());
        AppDelegate delegate(platform);
        delegate.openURLs({"brindlemark://create?path=" + home.path(), "brindlemark://create?path=" + home.path()});
        QVERIFY(!delegate.handledURLLaunch());
        QCOMPARE(entries(home.path()).filter("New Text File").size(), 2);
    }

    void launchURLSeesOnlyBuiltIns()
    {
        TestHome home;
        FakePlatform platform(home.path());
        platform.userDefaults["TemplatesJSON"] = R"([{"id":"mine","prefix":"Mine","suffix":"md"}])";
        AppDelegate delegate(platform);
        delegate.applicationWillFinishLaunching();
        delegate.handleGetURLEvent("brindlemark://template?path=" + home.path() + "&id=mine");
        delegate.applicationDidFinishLaunching();
        delegate.handleGetURLEvent("brindlemark://template?path=" + home.path() + "&id=mine");
        QVERIFY(!delegate.window()); // a launch for a URL shows no window
        QCOMPARE(entries(home.path()).filter(QRegularExpression("^(New Text|Mine)")),
                 (QStringList{"Mine.md", "New Text File.txt"}));
    }

    void terminals_data()
    {
        QTest::addColumn<bool>("iTerm");
        QTest::addColumn<QByteArray>("toolOutput");
        QTest::addColumn<QString>("expectedStatus");
        QTest::addColumn<QString>("expectedAlert");
        QTest::newRow("terminal") << false << QByteArray() << "Opened Terminal at %1" << "";
        QTest::newRow("iterm") << true << QByteArray() << "Opened iTerm2 at %1" << "";
        QTest::newRow("tool complains") << false << QByteArray("No terminal here.") << "Ready"
                                        << "New Text File failed: No terminal here.\n";
    }
    void terminals()
    {
        QFETCH(bool, iTerm);
        QFETCH(QByteArray, toolOutput);
        QFETCH(QString, expectedStatus);
        QFETCH(QString, expectedAlert);
        TestHome home;
        FakePlatform platform(home.path());
        platform.openTool = home.file("open");
        writeScript(platform.openTool, "printf '%s\\n' \"$@\" > \"$HOME/open.args\"\necho '" + toolOutput + "' | grep .");
        AppDelegate delegate(platform);
        delegate.showWindow();
        const QString folder = home.file("a b");
        QDir().mkpath(folder);

        iTerm ? delegate.openITermInFolder(folder) : delegate.openTerminalInFolder(folder);
        QCoreApplication::processEvents();
        QCOMPARE(readFile(home.file("open.args")),
                 ("-a\n" + QString(iTerm ? "iTerm2" : "Terminal") + "\n" + folder + "\n").toUtf8());
        QCOMPARE(delegate.statusLabel()->text(), expectedStatus.arg(folder));
        QCOMPARE(platform.alerts.join(""), expectedAlert);

        QFile::remove(home.file("open.args")); // a folder that is not one runs nothing
        delegate.openTerminalInFolder(home.file("open"));
        QCoreApplication::processEvents();
        QVERIFY(!QFile::exists(home.file("open.args")));
        QCOMPARE(platform.alerts.last(), "New Text File failed: Not a folder: " + home.file("open"));
    }

    void terminalToolStartFailure()
    {
        TestHome home;
        FakePlatform platform(home.path());
        AppDelegate delegate(platform);
        delegate.openTerminalInFolder(home.path());
        QCoreApplication::processEvents();
        QCOMPARE(platform.alerts.size(), 1);
        QVERIFY(platform.alerts[0].size() > QString("New Text File failed: ").size());
    }
};

BRINDLEMARK_WIDGET_TEST_MAIN(ActionsTest)
#include "tst_actions.moc"
