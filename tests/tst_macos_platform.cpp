// The macOS platform, run here with stand-ins for open, osascript, pluginkit and killall in a
// temporary home: its preferences domains and template files, the command line of every
// operation, the Finder's front folder, the settings fallback, and the URLs the system hands the
// application.
#include "TestSupport.h"

#include "platform/macos/MacPlatform.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileOpenEvent>

using namespace brindlemark;

class MacPlatformTest : public QObject {
    Q_OBJECT

    TestHome m_home;
    const QString m_bin = m_home.file("bin");
    QStringList m_openedLinks;
    bool m_linkOpens = true;
    std::function<bool(const QUrl&)> m_openLink = [this](const QUrl& url) {
        m_openedLinks << url.toString();
        return m_linkOpens;
    };

    // The stored text in a preferences domain: Qt's native settings name the domain
    // "org.brindlemark.Brindlemark" after these two.
    static QString stored(const QString& application) {
        const QSettings domain(QSettings::NativeFormat, QSettings::UserScope, "brindlemark.org",
                               application);
        return domain.value("TemplatesJSON").toString();
    }
    // Every tool's runs, one line each: its name and its arguments in brackets.
    QStringList toolRuns() {
        return QString(readFile(m_home.file("tools.log"))).split('\n', Qt::SkipEmptyParts);
    }
    void useTool(const QString& name, const QByteArray& then = "") {
        const QByteArray log = R"(line=${0##*/}; for a; do line="$line [$a]"; done; echo "$line")";
        writeScript(m_bin + '/' + name, log + " >>\"$HOME/tools.log\"\n" + then);
    }
    // osascript also keeps its arguments whole, the script's line breaks included.
    void useOsascript(const QByteArray& body) {
        writeScript(m_bin + "/osascript",
                    "printf '%s\\0' \"$@\" > \"$HOME/osascript.args\"\n" + body);
    }

private slots:
    void frontFolder() {
        // What osascript does, and the folder it gives ("-": none); then osascript missing.
        MacPlatform platform(m_bin, m_openLink);
        expectEach(
            [&](const QString& osascript) {
                useOsascript(osascript.toUtf8());
                return platform.frontFileManagerFolder().value_or("-");
            },
            {{"echo 'a warning' >&2; printf '/Users/me/a b \\303\\274/\\n'", "/Users/me/a b ü"},
             {"printf '/\\n'", "/"},
             {"printf '/Volumes/x /\\n'", "/Volumes/x "},
             {"true", "-"},
             {"printf '/tmp/\\n'; exit 1", "-"}}); // the Finder refused, or the user did
        // The script is one argument after "-e", its line breaks kept, none after its end.
        const QByteArray arguments = readFile(m_home.file("osascript.args"));
        QVERIFY2(arguments.startsWith(QByteArray("-e\0tell application \"Finder\"\n", 29)) &&
                     arguments.endsWith(QByteArray("\nend tell\0", 10)) &&
                     arguments.count('\0') == 2,
                 arguments);
        QVERIFY(QFile::remove(m_bin + "/osascript") && !platform.frontFileManagerFolder());
    }

    // The controller on this platform: the built-ins stored at its start, in the preferences
    // domains named after the bundle identifiers ("org.x.Y.Z": "x.org", "Y.Z") and in the three
    // files, then every tool it runs. The system keeps one instance: nothing is handed on.
    void controller() {
        const QString folder = m_home.file("a b");
        QDir().mkpath(folder);
        for (const char* name : {"open", "pluginkit", "killall"})
            useTool(name);
        useOsascript("printf '%s/\\n' \"$HOME/a b\"");
        MacPlatform platform(m_bin, m_openLink);
        QVERIFY(!platform.handOffToRunningInstance({"brindlemark://create?path=/tmp"}));
        const auto app = start(platform, true);
        platform.setExtensionPreferenceValue("TemplatesJSON", "[2]");
        QCOMPARE(stored("Brindlemark") + ' ' + stored("Brindlemark.BrindlemarkFinderSync") + ' ' +
                     platform.userDefaultsValue("TemplatesJSON").toString(),
                 builtInTemplatesJSON + QString(" [2] ") + builtInTemplatesJSON);
        QByteArray files;
        for (const QString& file : platform.templateConfigFilePaths())
            files += readFile(file);
        QCOMPARE(files, QByteArray(builtInTemplatesJSON).repeated(3));
        app->enableExtension();
        QTRY_VERIFY(!app->isEnablingExtension());
        app->openTerminalInFinderFolder();
        // The extensions pane; when the system cannot open that link, System Settings itself.
        app->openSettings();
        m_linkOpens = false;
        app->openSettings();
        QCOMPARE(
            m_openedLinks,
            QStringList(2, "x-apple.systempreferences:com.apple.LoginItems-Settings.extension"));
        // The new file is shown in the Finder without waiting for open, which takes its time.
        useTool("open", "[ \"$1\" != -R ] || { exec >/dev/null 2>&1; sleep 5; }");
        const QDeadlineTimer soon(2500);
        app->createInFinderFolder();
        QVERIFY(!soon.hasExpired());
        const QString list = "pluginkit [-mAD] [-p] [com.apple.FinderSync]",
                      add = "pluginkit [-a] [" +
                            QDir::cleanPath(qApp->applicationDirPath() + "/..") +
                            "/PlugIns/BrindlemarkFinderSync.appex]";
        QTRY_COMPARE(
            toolRuns(),
            QStringList(
                {list, add, list, add, list,
                 "pluginkit [-e] [use] [-i] [org.brindlemark.Brindlemark.BrindlemarkFinderSync]",
                 "killall [Finder]", list, "open [-a] [Terminal] [" + folder + "]",
                 "open [/System/Applications/System Settings.app]",
                 "open [-R] [" + folder + "/New Text File.txt]"}));
    }

    void urls() {
        const QString folder = m_home.file("urls"), path = QUrl::toPercentEncoding(folder);
        QDir().mkpath(folder);
        MacPlatform platform(m_bin, m_openLink);
        // The URL that launched the application comes with the event loop's first pass, which runs
        // while the controller installs its handler: it is handled first, and no window shows.
        QCoreApplication::postEvent(qApp,
                                    new QFileOpenEvent(QUrl("brindlemark://template?path=" + path +
                                                            "&prefix=a%26b&suffix=md")));
        AppDelegate app(platform);
        app.applicationWillFinishLaunching();
        QCOMPARE(entries(folder), QStringList{"a&b.md"});
        app.applicationDidFinishLaunching();
        QVERIFY(!app.window());

        // Later URLs, one at a time and fully encoded, through the scheme's handler and as
        // file-open events; another file opened with the application is left to others.
        QList<QStringList> delivered;
        platform.receiveLaterLaunches([&](const QStringList& urls) { delivered << urls; });
        const QString url = "brindlemark://template?path=%2Fa%26b%20c&title=a+b&payload=e30=";
        QVERIFY(QDesktopServices::openUrl(QUrl(url)));
        QFileOpenEvent later{QUrl(url)}, document{QUrl::fromLocalFile(folder + "/a&b.md")};
        QCoreApplication::sendEvent(qApp, &later);
        QCoreApplication::sendEvent(qApp, &document);
        QCOMPARE(delivered, QList<QStringList>({{url}, {url}}));
    }
};

BRINDLEMARK_WIDGET_TEST_MAIN(MacPlatformTest)
#include "tst_macos_platform.moc"
