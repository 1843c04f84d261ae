// Extension management and the commands for the file manager's folder: the registry listing,
// the order of the tools an enabling runs, the registry tool itself, and the Desktop fallback.
#include "FakePlatform.h"
#include "TestEnvironment.h"

#include "app/AppDelegate.h"
#include "bridge/ExtensionManagement.h"
#include "platform/linux/LinuxPlatform.h"

#include <QAction>
#include <QLabel>
#include <QProcess>
#include <QPushButton>

using namespace brindlemark;

namespace {

const QString extensionId = "org.brindlemark.Brindlemark.BrindlemarkFinderSync";

struct ToolRun {
    int exitCode;
    QString output;
};

ToolRun pluginKit(const QStringList& arguments)
{
    QProcess tool;
    tool.setProcessChannelMode(QProcess::MergedChannels);
    tool.start(BRINDLEMARK_PLUGINKIT_TOOL, arguments);
    if (!tool.waitForFinished(10'000))
        return {-1, "did not finish"};
    return {tool.exitCode(), QString::fromUtf8(tool.readAll())};
}

} // namespace

class ExtensionTest : public QObject {
    Q_OBJECT

private slots:
    void listing_data()
    {
        QTest::addColumn<QString>("listing");
        QTest::addColumn<int>("state");
        QTest::newRow("plus, four blanks") << "+    " + extensionId + "(1.0)\n" << int(ExtensionState::Enabled);
        QTest::newRow("plus, tab") << "+\t" + extensionId + "\n" << int(ExtensionState::Enabled);
        QTest::newRow("plus, three blanks") << "+   " + extensionId << int(ExtensionState::Registered);
        QTest::newRow("minus, four blanks") << "-    " + extensionId << int(ExtensionState::Registered);
        QTest::newRow("enabled anywhere in a line") << "x+    " + extensionId << int(ExtensionState::Enabled);
        QTest::newRow("longer identifier") << "-    " + extensionId + "Helper" << int(ExtensionState::Registered);
        QTest::newRow("other extension enabled") << "+    com.example.Other\n-    " + extensionId << int(ExtensionState::Registered);
        QTest::newRow("case differs") << "+    " + extensionId.toLower() << int(ExtensionState::NotRegistered);
        QTest::newRow("empty") << "" << int(ExtensionState::NotRegistered);
    }
    void listing()
    {
        QFETCH(QString, listing);
        QFETCH(int, state);
        QCOMPARE(int(extensionStateFromListing(listing, extensionId)), state);
    }

    void enablingRunsFiveToolsInOrder_data()
    {
        QTest::addColumn<bool>("withWindow");
        QTest::newRow("window shown") << true;
        QTest::newRow("no window") << false;
    }
    void enablingRunsFiveToolsInOrder()
    {
        QFETCH(bool, withWindow);
        TestHome home;
        FakePlatform platform(home.path());
        platform.pluginKitTool = home.file("pluginkit");
        platform.killAllTool = home.file("killall");
        // The listing says "enabled" once "-e use" has run; "-e" itself complains.
        writeScript(platform.pluginKitTool, R"(echo "pluginkit $*" >> "$HOME/tools.log"
case "$1" in
  -e) touch "$HOME/elected"; echo "pluginkit: cannot elect" ;;
  -mAD) [ -e "$HOME/elected" ] && printf '+    %s(1)\n' )" + extensionId.toUtf8() + R"( || printf '-    %s(1)\n' )" + extensionId.toUtf8() + R"( ;;
esac)");
        writeScript(platform.killAllTool, R"(echo "killall $*" >> "$HOME/tools.log")");
        AppDelegate delegate(platform);
        if (withWindow)
            delegate.showWindow();
        QFile::remove(home.file("tools.log"));

        delegate.enableExtension();
        const QString bundle = home.path() + "/PlugIns/BrindlemarkFinderSync.appex";
        QCOMPARE(QString::fromUtf8(readFile(home.file("tools.log"))),
                 "pluginkit -a " + bundle + "\n"
                 "pluginkit -mAD -p com.apple.FinderSync\n"
                 "pluginkit -e use -i " + extensionId + "\n"
                 "killall Finder\n"
                 "pluginkit -mAD -p com.apple.FinderSync\n");
        QCOMPARE(bool(delegate.statusLabel()), withWindow);
        if (withWindow) {
            QCOMPARE(delegate.statusLabel()->text(), QString("Finder extension enabled."));
            QCOMPARE(delegate.extensionStateLabel()->text(), QString("Enabled"));
            QCOMPARE(delegate.extensionStateLabel()->palette().color(delegate.extensionStateLabel()->foregroundRole()),
                     QColor(52, 199, 89));
            delegate.restartFinder();
            QCOMPARE(delegate.statusLabel()->text(), QString("Finder restarted."));
        }
    }

    void registeringReportsOnTheStatusLine_data()
    {
        QTest::addColumn<QByteArray>("toolSays");
        QTest::addColumn<QString>("expected");
        QTest::newRow("silent") << QByteArray() << "Extension registered.";
        QTest::newRow("complaint") << QByteArray("no bundle there") << "no bundle there\n";
    }
    void registeringReportsOnTheStatusLine()
    {
        QFETCH(QByteArray, toolSays);
        QFETCH(QString, expected);
        TestHome home;
        FakePlatform platform(home.path());
        platform.pluginKitTool = home.file("pluginkit");
        writeScript(platform.pluginKitTool, "[ \"$1\" = -a ] && echo '" + toolSays + "' | grep .; exit 0");
        AppDelegate delegate(platform);
        delegate.showWindow();
        delegate.registerExtension();
        QCOMPARE(delegate.statusLabel()->text(), expected);
        QCOMPARE(delegate.extensionStateLabel()->text(), QString("Not registered"));
    }

    void registryToolRoundTrip()
    {
        TestHome home;
        const QString bundle = BRINDLEMARK_PLUGINS_DIR "/BrindlemarkFinderSync.appex";
        const QString listed = extensionId + "(" BRINDLEMARK_VERSION ")\n";
        QCOMPARE(pluginKit({"-mAD", "-p", "com.apple.FinderSync"}).output, QString());
        QCOMPARE(pluginKit({"-e", "use", "-i", extensionId}).exitCode, 1);
        QCOMPARE(pluginKit({"-a", bundle}).output, QString());
        QCOMPARE(pluginKit({"-mAD", "-p", "com.apple.FinderSync"}).output, "-    " + listed);
        QCOMPARE(pluginKit({"-e", "use", "-i", extensionId}).exitCode, 0);
        QCOMPARE(pluginKit({"-mAD", "-p", "com.apple.FinderSync"}).output, "+    " + listed);
        QCOMPARE(pluginKit({"-a", bundle}).output, QString()); // registering again keeps the election
        QCOMPARE(pluginKit({"-mAD", "-i", extensionId}).output, "+    " + listed);
        QCOMPARE(pluginKit({"-mAD", "-p", "com.example.Other"}).output, QString());
        QCOMPARE(pluginKit({"-e", "ignore", "-i", extensionId}).exitCode, 0);
        QCOMPARE(pluginKit({"-m", "-p", "com.apple.FinderSync"}).output, "-    " + listed);
        QCOMPARE(pluginKit({"-r", bundle}).exitCode, 0);
        QCOMPARE(pluginKit({"-mAD"}).output, QString());
        QVERIFY(QFile::exists(home.file("data/brindlemark/plugin-registry.json")));
        QCOMPARE(entries(home.path()), (QStringList{"data", "run"})); // nothing outside the data folder
    }

    void registryToolRefusals_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        QTest::newRow("not a bundle") << QStringList{"-a", "/tmp"} << 1 << "pluginkit: /tmp is not an extension bundle (it has no Info.ini)\n";
        QTest::newRow("nothing to remove") << QStringList{"-r", "/tmp"} << 1 << "pluginkit: no plug-in is registered at /tmp\n";
        QTest::newRow("unknown election") << QStringList{"-e", "maybe", "-i", "x"} << 64 << "";
        QTest::newRow("no arguments") << QStringList{} << 64 << "";
        QTest::newRow("dangling option") << QStringList{"-mAD", "-p"} << 64 << "";
        QTest::newRow("unknown flag letter") << QStringList{"-mX"} << 64 << "";
    }
    void registryToolRefusals()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        TestHome home;
        const ToolRun run = pluginKit(arguments);
        QCOMPARE(run.exitCode, exitCode);
        if (exitCode == 64)
            QVERIFY(run.output.startsWith("usage: brindlemark-pluginkit"));
        else
            QCOMPARE(run.output, output);
    }

    void registryToolRunsTheBundleSteps()
    {
        TestHome home;
        const QString bundle = home.file("Some.appex");
        QVERIFY(writeFile(bundle + "/Info.ini", "[Extension]\nIdentifier=x.y\nProtocol=p\nVersion=2\n"));
        writeScript(bundle + "/install", "echo installed > \"$HOME/step\"; echo done installing");
        writeScript(bundle + "/uninstall", "echo uninstalled > \"$HOME/step\"");
        QVERIFY(writeFile(home.file("data/brindlemark/plugin-registry.json"), "{ broken"));
        QCOMPARE(pluginKit({"-a", bundle}).exitCode, 0); // a broken registry is rebuilt
        QCOMPARE(pluginKit({"-e", "use", "-i", "x.y"}).output, QString("done installing\n"));
        QCOMPARE(readFile(home.file("step")), QByteArray("installed\n"));
        QCOMPARE(pluginKit({"-e", "ignore", "-i", "x.y"}).exitCode, 0);
        QCOMPARE(readFile(home.file("step")), QByteArray("uninstalled\n"));
    }

    void enablingWithTheRealTools()
    {
        TestHome home;
        FakePlatform platform(home.path());
        platform.pluginKitTool = BRINDLEMARK_PLUGINKIT_TOOL;
        platform.killAllTool = BRINDLEMARK_KILLALL_TOOL;
        platform.plugInsFolder = BRINDLEMARK_PLUGINS_DIR;
        AppDelegate delegate(platform);
        delegate.showWindow();
        QCOMPARE(delegate.extensionStateLabel()->text(), QString("Not registered"));
        delegate.enableExtension();
        QCOMPARE(delegate.extensionStateLabel()->text(), QString("Enabled"));
        QCOMPARE(delegate.statusLabel()->text(), QString("Finder extension enabled."));
        QVERIFY(pluginKit({"-mAD", "-p", "com.apple.FinderSync"}).output.startsWith("+    " + extensionId));
    }

    void folderCommands()
    {
        TestHome home;
        FakePlatform platform(home.path());
        platform.openTool = home.file("open");
        writeScript(platform.openTool, R"(echo "$*" >> "$HOME/open.log")");
        const QString desktop = home.file("Desktop");
        QDir().mkpath(desktop);
        AppDelegate delegate(platform);

        delegate.createInFinderFolder();
        QPushButton button; // a sender without a template
        delegate.createTemplateInFinderFolder(&button);
        QAction item;
        item.setData(Template{{"id", "x"}, {"prefix", "run"}, {"suffix", "sh"}, {"executable", true}});
        delegate.createTemplateInFinderFolder(&item);
        QObject carrier;
        carrier.setProperty("representedObject", QVariantMap{{"prefix", "notes"}, {"suffix", "md"}});
        delegate.createTemplateInFinderFolder(&carrier);
        delegate.openTerminalInFinderFolder();
        delegate.openITermInFinderFolder();
        QCOMPARE(entries(desktop), (QStringList{"New Text File 1.txt", "New Text File.txt", "notes.md", "run.sh"}));
        QVERIFY(QFileInfo(desktop + "/run.sh").isExecutable());
        QCOMPARE(QString::fromUtf8(readFile(home.file("open.log"))), "-a Terminal " + desktop + "\n-a iTerm2 " + desktop + "\n");

        platform.frontFolder = home.file("front");
        QDir().mkpath(*platform.frontFolder);
        delegate.createInFinderFolder();
        QCOMPARE(entries(*platform.frontFolder), QStringList{"New Text File.txt"});

        platform.frontFolder.reset();
        QDir(desktop).removeRecursively(); // a Desktop that does not exist: the usual alert
        delegate.createInFinderFolder();
        QCoreApplication::processEvents();
        QCOMPARE(platform.alerts, QStringList{"New Text File failed: Not a folder: " + desktop});
    }

    void linuxDesktopFolder()
    {
        TestHome home;
        LinuxPlatform platform;
        QCOMPARE(platform.desktopFolder(), home.file("Desktop"));
        QVERIFY(writeFile(home.file("config/user-dirs.dirs"), "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n"));
        QCOMPARE(platform.desktopFolder(), home.file("Schreibtisch"));
        QVERIFY(!platform.frontFileManagerFolder().has_value());
    }
};

BRINDLEMARK_WIDGET_TEST_MAIN(ExtensionTest)
#include "tst_extension.moc"
