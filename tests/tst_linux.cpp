// The Linux platform for real: the five places in a temporary home, the places under faults on
// small file systems (needs root, else skipped), the launch channel, and the installed programs
// as the desktop runs them (the launcher, a running instance, later launches forwarding to it).
#include "TestSupport.h"

#include "platform/linux/InstanceChannel.h"
#include "platform/linux/LinuxPlatform.h"
#include "templates/TemplateStore.h"

#include <QApplication>
#include <QProcess>
#include <QScopeGuard>
#include <QSettings>

#include <csignal>

using namespace brindlemark;

namespace {

bool run(const QString& program, const QStringList& arguments) { return QProcess::execute(program, arguments) == 0; }

// One launch of brindlemark, run to its end: its exit code.
int launch(const QStringList& arguments) { return QProcess::execute(BRINDLEMARK_EXECUTABLE, arguments); }

// The running instance's process id, from its lock file.
pid_t instancePid() { return pid_t(readFile(qEnvironmentVariable("XDG_RUNTIME_DIR") + "/org.brindlemark.Brindlemark.socket.lock").split('\n')[0].toLongLong()); }


} // namespace

class LinuxTest : public QObject {
    Q_OBJECT

private slots:
    void places()
    {
        for (bool xdgVariables : {true, false}) {
            TestHome home;
            if (!xdgVariables) {
                qunsetenv("XDG_CONFIG_HOME");
                qunsetenv("XDG_DATA_HOME");
            }
            const QString config = home.file(xdgVariables ? "config" : ".config"), data = home.file(xdgVariables ? "data" : ".local/share");
            // A stored value that reads back as a list, not as text, counts as nothing stored.
            QVERIFY(writeFile(config + "/org.brindlemark.Brindlemark.conf", "[General]\nTemplatesJSON=a, b\n"));
            LinuxPlatform platform;
            start(platform, true);
            for (const char* id : {"org.brindlemark.Brindlemark", "org.brindlemark.Brindlemark.BrindlemarkFinderSync"}) {
                QCOMPARE(QSettings(config + "/" + id + ".conf", QSettings::IniFormat).value("TemplatesJSON").toString(), builtInTemplatesJSON);
                QCOMPARE(readFile(data + "/" + id + "/Templates.json"), builtInTemplatesJSON);
            }
            QCOMPARE(readFile(config + "/Brindlemark/Templates.json"), builtInTemplatesJSON);
            QCOMPARE(platform.desktopFolder(), home.file("Desktop"));
        }
    }

    void placesUnderFaults()
    {
        TestHome home;
        QDir().mkpath(home.file("config"));
        if (!run("mount", {"-t", "tmpfs", "-o", "size=64k", "tmpfs", home.file("config")}))
            QSKIP("cannot mount a tmpfs here (needs root)");
        QDir().mkpath(home.file("data/org.brindlemark.Brindlemark"));
        QVERIFY(QFile::link(home.file("elsewhere.json"), home.file("data/org.brindlemark.Brindlemark/Templates.json")));
        LinuxPlatform platform;
        const auto app = start(platform, true);
        const QByteArray settingsBefore = readFile(LinuxPlatform::userDefaultsFilePath());
        QVERIFY(!run("dd", {"if=/dev/zero", "of=" + home.file("config/filler"), "bs=4k"})); // the disk is full
        app->setTemplates(TemplateList(app->templates()) << Template{{"id", "big"}, {"title", QString(3000, u'x')}});
        app->saveTemplates();
        const QByteArray after = templatesJSONText(app->templates()).toUtf8();
        QCOMPARE(readFile(LinuxPlatform::userDefaultsFilePath()), settingsBefore); // the old files, whole
        QCOMPARE(readFile(home.file("config/Brindlemark/Templates.json")), QByteArray(builtInTemplatesJSON));
        QCOMPARE(readFile(home.file("elsewhere.json")), after); // a link's target gets the text, the link stays
        QVERIFY(QFileInfo(home.file("data/org.brindlemark.Brindlemark/Templates.json")).isSymLink());
        QFile::remove(home.file("config/filler")); // with room again, the next save writes every place
        app->saveTemplates();
        QCOMPARE(readFile(home.file("config/Brindlemark/Templates.json")), after);
        QVERIFY(run("umount", {home.file("config")}));
    }

    void channel()
    {
        const std::string body = channel::encodeMessage({"a", "", "brindlemark://x"}).substr(4);
        std::vector<std::string> urls;
        QVERIFY(channel::decodeBody(body, urls) && urls == (std::vector<std::string>{"a", "", "brindlemark://x"}));
        for (const std::string& broken : {body + "x", body.substr(0, body.size() - 1), std::string("\0\0\0\1", 4), std::string("\0\0", 2)})
            QVERIFY(!channel::decodeBody(broken, urls)); // trailing bytes, cut short, a URL missing, no count
        TestHome home;
        QCOMPARE(channel::handOff(home.file("nobody.socket").toStdString(), {}), std::nullopt);
        // An instance that takes the message and goes away without an answer: the launch fails.
        QProcess mute;
        mute.start("python3", {"-c", "import socket,sys;s=socket.socket(socket.AF_UNIX);s.bind(sys.argv[1]);s.listen();print(flush=True);s.accept()[0].close()", home.file("mute.socket")});
        QVERIFY(mute.waitForReadyRead(10'000));
        QCOMPARE(channel::handOff(home.file("mute.socket").toStdString(), {"x"}), std::optional<int>(1));
        qunsetenv("XDG_RUNTIME_DIR"); // the fallback: the temporary folder, with the user id in the name
        qputenv("TMPDIR", "/x//");
        QCOMPARE(channel::socketPath("a.b"), "/x/a.b-" + std::to_string(::getuid()) + ".socket");
        qunsetenv("TMPDIR");
    }

    void laterLaunchesForwardToTheRunningOne()
    {
        TestHome home;
        const auto stop = qScopeGuard([] { instancePid() > 0 && ::kill(instancePid(), SIGKILL); }); // also when the test fails early
        writeScript(home.file("bin/xdg-open"), "echo \"$1\" >> \"$HOME/xdg-open.log\"");
        qputenv("PATH", home.file("bin").toUtf8() + ":" + qgetenv("PATH"));
        qunsetenv("DBUS_SESSION_BUS_ADDRESS"); // no file manager: new files go to the fake xdg-open
        const QString folder = home.file("Pro jects");
        auto url = [&](const QString& command, const QString& more = QString()) { return "brindlemark://" + command + "?path=" + QUrl::toPercentEncoding(folder, "/") + more; };
        QVERIFY(writeFile(folder + "/New Text File 7.txt", "kept")); // the folder, with a numbered name taken
        const QString dolphinMenu = home.file("data/kio/servicemenus/brindlemark-new-file.desktop");
        QVERIFY(writeFile(home.file("data/brindlemark/installed-integration"), dolphinMenu.toUtf8() + "\n"));

        // A launch for a URL returns at once; Brindlemark goes on in the background.
        QCOMPARE(launch({url("template", "&id=markdown")}), 0);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(folder + "/MarkdownDocument.md") && QFile::exists(home.file("config/Brindlemark/Templates.json")), 20'000);
        const pid_t first = instancePid();
        QTRY_VERIFY_WITH_TIMEOUT(readFile(dolphinMenu).contains("Name=Markdown Document"), 20'000); // every save refreshes it
        QVERIFY(readFile(home.file("data/brindlemark/plugin-registry.json")).contains("org.brindlemark.Brindlemark.BrindlemarkFinderSync"));
        // A forwarding launch answers once its URLs are handled, in order, and loads no GUI: with a
        // platform plugin that does not exist it still succeeds.
        qputenv("QT_QPA_PLATFORM", "none");
        QCOMPARE(launch({url("template", "&prefix=p&executable=yes"), "-x", url("template", "&prefix=p")}), 0);
        qputenv("QT_QPA_PLATFORM", "offscreen");
        QVERIFY(QFileInfo(folder + "/p.txt").isExecutable() && !QFileInfo(folder + "/p 1.txt").isExecutable());

        // 300 separate launches at once against one instance: every URL handled, names distinct.
        writeScript(home.file("burst.sh"), "for i in $(seq 300); do \"$1\" \"$2\" || touch \"$HOME/failed\" & done; wait");
        QCOMPARE(QProcess::execute(home.file("burst.sh"), {BRINDLEMARK_EXECUTABLE, url("create")}), 0);
        QVERIFY(!QFile::exists(home.file("failed"))); // every launch said its URL was handled
        QCOMPARE(entries(folder).filter(QRegularExpression("^New Text File( \\d+)?\\.txt$")).size(), 301);
        QCOMPARE(readFile(folder + "/New Text File 7.txt"), QByteArray("kept"));

        QCOMPARE(QProcess::execute(QFileInfo(BRINDLEMARK_EXECUTABLE).path() + "/brindlemark-app", {url("create")}), 0); // forwards too
        QCOMPARE(launch({}), 0); // a reopen
        QCOMPARE(launch({"brindlemark://Create?path=/tmp", "not a url"}), 0);
        QTRY_VERIFY_WITH_TIMEOUT(readFile(home.file("xdg-open.log")).count('\n') == 304, 20'000);
        QCOMPARE(instancePid(), first);

        // An instance that died leaves its socket and lock behind; the next launch takes over.
        QCOMPARE(::kill(first, SIGKILL), 0);
        QTRY_VERIFY_WITH_TIMEOUT(::kill(first, 0) != 0, 20'000);
        QCOMPARE(launch({url("create")}), 0);
        QTRY_VERIFY_WITH_TIMEOUT(entries(folder).size() == 306, 20'000);
        QCOMPARE(launch({url("create")}), 0); // the new instance answers
        QCOMPARE(entries(folder).size(), 307);
        QVERIFY(instancePid() != first);
    }
};

BRINDLEMARK_WIDGET_TEST_MAIN(LinuxTest)
#include "tst_linux.moc"
