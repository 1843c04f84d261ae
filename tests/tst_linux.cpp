// The Linux platform for real: the five places in a temporary home, the places under faults on
// small file systems (needs root, else skipped), the launch channel, and the installed programs
// as the desktop runs them (the launcher, a running instance, later launches forwarding to it).
#include "TestSupport.h"

#include "platform/linux/InstanceChannel.h"
#include "platform/linux/InstanceServer.h"
#include "platform/linux/LinuxPlatform.h"
#include "templates/TemplateStore.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace brindlemark;

namespace {

// One launch of brindlemark, run to its end: its exit code.
int launch(const QStringList& arguments) {
    return QProcess::execute(BRINDLEMARK_EXECUTABLE, arguments);
}

// A URL command for a folder, the folder percent-encoded as the file managers' menus give it.
QString url(const QString& command, const QString& folder, const QString& more = QString()) {
    return "brindlemark://" + command + "?path=" + QUrl::toPercentEncoding(folder, "/") + more;
}

void store(AppDelegate& app, const TemplateList& templates) {
    app.setTemplates(templates);
    app.saveTemplates();
}

// A launch's message on the channel, as hex digits for a Python client.
QString hexMessage(const std::vector<std::string>& urls) {
    return QByteArray::fromStdString(channel::encodeMessage(urls)).toHex();
}

// A Python client or server of the socket given as its first argument: connect(data) opens a
// connection to it and sends what it can of the data, listen() listens there and then prints an
// empty line.
void python(QProcess& process, const QString& program, const QStringList& arguments) {
    process.start("python3", QStringList{"-c", R"py(import os,resource,select,socket,sys,time
def connect(data=b''):
 s=socket.socket(socket.AF_UNIX);s.connect(sys.argv[1])
 try: s.sendall(data)
 except OSError: pass
 return s
def listen():
 s=socket.socket(socket.AF_UNIX);s.bind(sys.argv[1]);s.listen();print(flush=True);return s
)py" + program} + arguments);
}

// What a process printed by the time it ended; this process's event loop runs meanwhile.
QByteArray output(QProcess& process, int milliseconds = 10'000) {
    if (!QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, milliseconds))
        return "<still running>";
    return process.readAll() + process.readAllStandardError();
}

// What the stand-in file managers were asked to show, in order of the text.
QStringList shown(const TestHome& home) {
    return sortedLines(home.file("shown.log"));
}

} // namespace

class LinuxTest : public QObject {
    Q_OBJECT

private slots:
    void placesUnderFaults() {
        // Records that normalise to about 100 bytes each: the list takes more than 64 KiB.
        TemplateList thousand;
        for (int i = 0; i < 1000; ++i)
            thousand << json(QString(R"({"id":"%1","title":"Template %1"})").arg(i));
        const QByteArray thousandJSON = templatesJSONText(thousand).toUtf8();
        const QString rest = templatesJSONText(thousand.mid(1));
        // With the disk full, and with 64 KiB free (less than a file of 1000 templates takes), a
        // start and a save leave every place on that disk whole: old or new, never cut. The save
        // waits, and is written by itself once there is room.
        for (const qint64 freeKiB : {0, 64}) {
            TestHome home;
            const QString config = home.file("config");
            if (!QDir().mkpath(config) ||
                QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=1m", "tmpfs", config}) != 0)
                QSKIP("cannot mount a tmpfs here (needs root)");
            const auto unmount = qScopeGuard([&] { QProcess::execute("umount", {config}); });
            // A chain of links: each stays a link, the last target gets the text.
            QVERIFY(QDir().mkpath(home.file("data/org.brindlemark.Brindlemark")) &&
                    QFile::link(home.file("final.json"), home.file("hop.json")) &&
                    QFile::link(home.file("hop.json"),
                                home.file("data/org.brindlemark.Brindlemark/Templates.json")));
            LinuxPlatform platform;
            store(*start(platform, true), thousand);
            const QByteArray settings = readFile(LinuxPlatform::userDefaultsFilePath());
            QCOMPARE(readFile(home.file("final.json")), thousandJSON);
            QVERIFY(QFileInfo(home.file("hop.json")).isSymLink());

            const qint64 fill = QStorageInfo(config).bytesAvailable() - freeKiB * 1024;
            QVERIFY(writeFile(config + "/filler", QByteArray(fill, 'f')));
            const auto app = start(platform, true);
            QCOMPARE(app->templates().size(), 1000);
            store(*app, thousand.mid(1));
            QVERIFY(app->isSavePending());
            QCOMPARE(readFile(LinuxPlatform::userDefaultsFilePath()), settings);
            QCOMPARE(readFile(config + "/Brindlemark/Templates.json"), thousandJSON);
            // No half-written file left beside them.
            QCOMPARE(entries(config).size() + entries(config + "/Brindlemark").size(), 5);
            // The data folder took the list: a start shows it, never the older one in the settings.
            QCOMPARE(start(platform, true)->templates().size(), 999);

            // No edit needed: every place gets it.
            QVERIFY(QFile::remove(config + "/filler"));
            QTRY_VERIFY_WITH_TIMEOUT(!app->isSavePending(), 10'000);
            for (const QString& place : platform.templateStoreFilePaths())
                QCOMPARE(place.endsWith(".conf") ? storedSetting(place) : readFile(place), rest);
        }
    }

    void twoInstancesOnOneHomeKeepEveryEdit() {
        // One user logged in twice: one home, a runtime folder each, a running Brindlemark in both.
        TestHome home;
        Child a, b;
        for (QProcess* editor : {&a, &b}) {
            qputenv("XDG_RUNTIME_DIR", home.file(editor == &a ? "run-a" : "run-b").toUtf8());
            QVERIFY(QDir().mkpath(qEnvironmentVariable("XDG_RUNTIME_DIR")));
            editor->start(TEMPLATE_EDITOR, {});
            QVERIFY(editor->waitForReadyRead(20'000) && editor->readLine() == "ready\n");
        }
        const auto list = [](QProcess& editor) {
            editor.write("list\n");
            (void)QTest::qWaitFor([&] { return editor.canReadLine(); }, 5000);
            return QString::fromUtf8(editor.readLine()).trimmed();
        };
        const auto cells = [&](QProcess& editor, const char* member) {
            QStringList values;
            for (const QJsonValue& row : QJsonDocument::fromJson(list(editor).toUtf8()).array())
                values << row[member].toVariant().toString();
            return values.join(',');
        };
        // At the same time, 100 edits each: A titles, B prefixes and ticks; each last one stays.
        for (int i = 0; i < 100; ++i) {
            const QString edit = i % 2   ? "prefix B" + QString::number(i)
                                 : i % 4 ? "executable true"
                                         : "executable false";
            a.write(QString("set %1 title A%2\n").arg(i % 6).arg(i).toUtf8());
            b.write(QString("set %1 %2\n").arg(i % 6).arg(edit).toUtf8());
        }
        QTRY_VERIFY_WITH_TIMEOUT(
            cells(a, "title") == "A96,A97,A98,A99,A94,A95" && list(a) == list(b) &&
                cells(b, "prefix") == "New Text File,B97,JSONFile,B99,script,B95",
            10'000);
        QCOMPARE(cells(a, "executable"), "false,false,true,true,true,true");
        QCOMPARE(readFile(home.file("config/Brindlemark/Templates.json")), list(a).toUtf8());
        // A row added in one and one removed in the other, at once: both stay so.
        a.write("add fromA\n");
        b.write("remove 2\n");
        QTRY_VERIFY_WITH_TIMEOUT(cells(a, "id") == "text,markdown,shell,python,ruby,fromA" &&
                                     list(a) == list(b),
                                 10'000);
        QCOMPARE(storedSetting(LinuxPlatform::userDefaultsFilePath()), list(b));
    }

    void placesOfOneHome() {
        // The places without XDG variables: the usual folders of the home (with them: every other
        // case). A settings file that cannot be read; what killed saves left; only changed places
        // written again.
        TestHome home;
        qunsetenv("XDG_CONFIG_HOME");
        qunsetenv("XDG_DATA_HOME");
        const QString config = home.file(".config"), data = home.file(".local/share"),
                      id = "org.brindlemark.Brindlemark", settings = config + "/" + id + ".conf";
        // A stored value that reads back as a list, not as text, counts as nothing stored.
        QVERIFY(writeFile(settings, "[General]\nTemplatesJSON=a, b\n"));
        LinuxPlatform platform;
        TemplateList edited = start(platform)->templates();
        for (const QString& name : {id, id + ".BrindlemarkFinderSync"}) {
            QCOMPARE(storedSetting(config + "/" + name + ".conf"), builtInTemplatesJSON);
            QCOMPARE(readFile(data + "/" + name + "/Templates.json"), builtInTemplatesJSON);
        }
        QCOMPARE(readFile(config + "/Brindlemark/Templates.json"), builtInTemplatesJSON);
        QCOMPARE(platform.desktopFolder(), home.file("Desktop"));

        edited[0]["title"] = "Mine";
        store(*start(platform, true), edited);
        // The settings file exists but cannot be read (here: a folder in its place).
        QVERIFY(QFile::rename(settings, settings + ".away") && QDir().mkpath(settings));
        const auto unreadable = start(platform, true);
        // The list from the Templates.json copies.
        QCOMPARE(unreadable->templates().value(0)["title"], "Mine");
        edited[1]["title"] = "Later";
        store(*unreadable, edited);
        QVERIFY(unreadable->isSavePending());
        QCOMPARE(readFile(config + "/Brindlemark/Templates.json"),
                 templatesJSONText(edited).toUtf8());
        // Readable again, as it was: the next start shows this session's edit, and stores it.
        QVERIFY(QDir().rmdir(settings) && QFile::rename(settings + ".away", settings));
        QFile(settings).setFileTime(QDateTime::currentDateTime().addSecs(-60),
                                    QFileDevice::FileModificationTime);
        const auto again = start(platform, true);
        QCOMPARE(again->templates().value(1)["title"], "Later");
        QCOMPARE(storedSetting(settings), templatesJSONText(edited));
        QVERIFY(!again->isSavePending());

        // The settings files first, then the three Templates.json.
        const QStringList places = platform.templateStoreFilePaths();
        // What killed saves left beside each place and the plugin registry goes at the next start,
        // and nothing else there.
        const QStringList saved = places + QStringList{data + "/brindlemark/plugin-registry.json"};
        QMap<QString, QStringList> before;
        for (const QString& place : saved)
            before[QFileInfo(place).path()] = entries(QFileInfo(place).path());
        for (QString place : saved)
            QVERIFY(writeFile(place.replace(QRegularExpression("/([^/]*)$"), "/.\\1.tmp-k1LLed"),
                              "half"));
        const auto app = start(platform, true);
        for (const QString& folder : before.keys())
            QCOMPARE(entries(folder), before[folder]);

        // Which places were written since the last look (a new file renamed over a place gives it
        // a new inode): "w" for each that was, "-" for the others, "?" for one that is missing.
        QList<ino_t> inodes(places.size());
        const auto written = [&] {
            QString which;
            for (int i = 0; i < places.size(); ++i) {
                struct stat info {};
                const bool found = ::stat(qPrintable(places[i]), &info) == 0;
                which += !found ? '?' : info.st_ino == inodes[i] ? '-' : 'w';
                inodes[i] = info.st_ino;
            }
            return which;
        };
        QCOMPARE(written(), "wwwww");
        const QString text = templatesJSONText(app->templates());
        QVERIFY(!platform.storeTemplatesJSONText("TemplatesJSON", text).written);
        QCOMPARE(written(), "-----");
        // A place changed behind the application's back (written in place: its inode stays) is
        // written again, and only that one. A new file always gets a new inode, as the old file
        // still exists when its replacement is made.
        QVERIFY(writeFile(places[3], "[]"));
        QVERIFY(platform.storeTemplatesJSONText("TemplatesJSON", text).written);
        QCOMPARE(written(), "---w-");
        edited[0]["title"] = "Edited";
        store(*app, edited);
        QCOMPARE(written(), "wwwww");
        QCOMPARE(readFile(places[4]), templatesJSONText(edited).toUtf8());
        QVERIFY(storedSetting(places[0]).contains("Edited"));
    }

    void channelWithNoOtherUserAtEitherEnd() {
        const std::string body = channel::encodeMessage({"a", "", "brindlemark://x"}).substr(4);
        std::vector<std::string> urls;
        QVERIFY(channel::decodeBody(body, urls) &&
                urls == (std::vector<std::string>{"a", "", "brindlemark://x"}));
        // Trailing bytes, cut short, a URL missing, no count.
        for (const std::string& broken : {body + "x", body.substr(0, body.size() - 1),
                                          std::string("\0\0\0\1", 4), std::string("\0\0", 2)})
            QVERIFY(!channel::decodeBody(broken, urls));
        TestHome home;
        const QString socket = home.file("run/s.socket");
        QCOMPARE(channel::handOff(socket.toStdString(), {}), std::nullopt);
        // An instance that takes the message and goes away without an answer: the launch fails.
        QProcess mute;
        python(mute, "listen().accept()[0].close()", {home.file("mute.socket")});
        QVERIFY(mute.waitForReadyRead(10'000));
        QCOMPARE(channel::handOff(home.file("mute.socket").toStdString(), {"x"}),
                 std::optional<int>(1));

        InstanceServer server;
        // A socket that cannot be made there: refused, and nothing held open for it.
        const qsizetype openFiles = entries("/proc/self/fd").size();
        QVERIFY(!server.listen(home.file("no such folder/s.socket")));
        QCOMPARE(entries("/proc/self/fd").size(), openFiles);
        QStringList parts;
        connect(&server, &InstanceServer::urlsReceived, [&](const QStringList& urls) {
            parts << (urls.size() == 1 ? urls[0]
                                       : QString("%1 from %2").arg(urls.size()).arg(urls[0]));
        });
        QVERIFY(server.listen(socket));
        // A length beyond any message is dropped at once, not left to idle out.
        QProcess greedy;
        python(greedy, R"py(print(connect(b'\0\x40\0\1').recv(1)))py", {socket});
        QCOMPARE(output(greedy, 2000), "b''\n");
        // Unfinished messages of 3 MB each: the third is more than the instance holds at once, and
        // what a dropped one held is free again for the next round.
        for (int round = 0; round < 2; ++round) {
            python(greedy, R"py(a,b,c=[connect(b'\0\x40\0\0'+b'x'*3000000) for _ in 'abc']
print([bool(select.select([s],[],[],1)[0]) for s in (a,c)]))py",
                   {socket});
            QCOMPARE(output(greedy, 4000), "[False, True]\n");
        }

        // 600 URLs, then a launch of one, both sent before the server looks at its socket: the one
        // is handled, and answered, between the long launch's parts, which the server hands on one
        // per pass of the event loop. Nothing of the dropped connections above was handed on.
        std::vector<std::string> many;
        for (int i = 0; i < 600; ++i)
            many.push_back("a" + std::to_string(i));
        QProcess launches;
        python(launches, R"py(a,b=[connect(bytes.fromhex(hex)) for hex in sys.argv[2:]]
print(flush=True);print(a.recv(1)+b.recv(1)))py",
               {socket, hexMessage(many), hexMessage({"b"})});
        QVERIFY(launches.waitForReadyRead(10'000));
        QCOMPARE(output(launches), "\nb'kk'\n");
        QCOMPARE(parts.join(", "), "256 from a0, b, 256 from a256, 88 from a512");

        // No other user at either end. Without a runtime folder the socket goes into a folder of
        // the temporary folder that only this user can enter: made private, or refused when it is
        // not this user's own folder.
        qunsetenv("XDG_RUNTIME_DIR");
        // TMPDIR as it was for the later tests' homes.
        const auto restore = qScopeGuard([was = qgetenv("TMPDIR")] {
            was.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", was);
        });
        qputenv("TMPDIR", home.file("tmp//").toUtf8());
        const QString folder = home.file("tmp/brindlemark-" + QString::number(::getuid()));
        QVERIFY(QDir().mkpath(folder) && ::chmod(qPrintable(folder), 0777) == 0);
        std::string problem;
        QCOMPARE(channel::socketPath("a.b", problem), (folder + "/a.b.socket").toStdString());
        QCOMPARE(int(QFileInfo(folder).permissions() & 0x0077), 0);
        const auto squatted = [&](const QString& why) {
            QProcess launcher;
            launcher.start(BRINDLEMARK_EXECUTABLE, {"brindlemark://create"});
            QVERIFY(launcher.waitForFinished(20'000) && launcher.exitCode() == 1);
            QVERIFY2(launcher.readAllStandardError().contains(why.toUtf8()), qPrintable(why));
        };
        QVERIFY(QDir(folder).removeRecursively() && QFile::link(home.path(), folder));
        squatted("is not a folder");
        if (::getuid() != 0)
            QSKIP("another user's folder, socket and connection need root");
        QVERIFY(QFile::remove(folder) && QDir().mkpath(folder) &&
                ::chown(qPrintable(folder), 65534, 65534) == 0);
        squatted("belongs to another user");

        // Another user listening where this user's instance would be: it is sent nothing.
        qputenv("XDG_RUNTIME_DIR", home.file("shared").toUtf8());
        QVERIFY(QDir().mkpath(home.file("shared")) && ::chmod(qPrintable(home.path()), 0711) == 0 &&
                ::chmod(qPrintable(home.file("shared")), 0777) == 0);
        const QString shared = home.file("shared/org.brindlemark.Brindlemark.socket");
        QProcess squatter;
        python(squatter, "os.setuid(65534);print(len(listen().accept()[0].recv(99)),flush=True)",
               {shared});
        QVERIFY(squatter.waitForReadyRead(10'000) && squatter.readLine() == "\n");
        QCOMPARE(launch({"brindlemark://create?path=/secret"}), 1);
        QCOMPARE(output(squatter), "0\n");

        // And this user's instance handles nothing another user sends it.
        QVERIFY(server.listen(shared) && ::chmod(qPrintable(shared), 0777) == 0);
        QProcess stranger;
        python(stranger, R"py(os.setuid(65534);s=connect(bytes.fromhex(sys.argv[2]))
try: print('answered' if s.recv(1) else 'refused')
except OSError: print('refused'))py",
               {shared, hexMessage({"x"})});
        QCOMPARE(output(stranger), "refused\n");
        QCOMPARE(parts.size(), 4);
    }

    void alertTextShortenedInTheMiddle() {
        // "limit|text": the start and the end kept, never half a character outside the basic plane.
        expectEach(
            [](const QString& s) { return shortenedInTheMiddle(s.mid(2), s[0].digitValue()); },
            {{"6|abcdef", "abcdef"},
             {"5|abcdef", "ab…ef"},
             {"4|abcdef", "a…ef"},
             {"3|ab😀", "a…"},
             {"4|😀😀😀", "…😀"},
             {"5|😀😀😀", "😀…😀"}});
    }

    void commandLineAndBackgroundStart() {
        TestHome home;
        const auto stop = instanceStopper();
        // Help and a wrong option answer at once and start nothing.
        QProcess help, bogus;
        help.start(BRINDLEMARK_EXECUTABLE, {"--help"});
        bogus.start(BRINDLEMARK_EXECUTABLE, {"--new-file", "--bogus"});
        QVERIFY(help.waitForFinished(20'000) && bogus.waitForFinished(20'000));
        QCOMPARE(help.exitCode(), 0);
        QVERIFY(help.readAllStandardOutput().contains("\n  --new-file[=ID] "));
        QCOMPARE(bogus.exitCode(), 2);
        QCOMPARE(bogus.readAllStandardError(), "brindlemark: unknown option '--bogus'\nTry "
                                               "'brindlemark --help' for more information.\n");
        QCOMPARE(instancePid(), 0);
        // The first command starts the instance in the background, given a folder of its own: a
        // caller that reads the launcher's output to its end is done as soon as the launcher is,
        // since the instance keeps none of the caller's descriptors.
        const QString folder = home.file("a b"), terminals = home.file("terminals");
        QVERIFY(QDir().mkpath(folder));
        writeScript(home.file("bin/xdg-open"), "exit 0");
        writeScript(home.file("bin/terminal"), "pwd >> \"$HOME/terminals\"");
        qputenv("PATH", home.file("bin").toUtf8() + ":" + qgetenv("PATH"));
        qputenv("TERMINAL", home.file("bin/terminal").toUtf8());
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        QProcess caller;
        caller.setWorkingDirectory(home.path());
        caller.start("sh", {"-c",
                            "out=$(\"$0\" --new-file=markdown --in \"$1\" --open-terminal); "
                            "echo \"[$out]\"",
                            BRINDLEMARK_EXECUTABLE, "a b"});
        QVERIFY(caller.waitForFinished(20'000));
        QCOMPARE(caller.readAllStandardOutput(), "[]\n");
        QTRY_COMPARE_WITH_TIMEOUT(readFile(terminals), folder.toUtf8() + "\n", 20'000);
        QCOMPARE(entries(folder), QStringList{"MarkdownDocument.md"});
        for (int standard = 0; standard <= 2; ++standard)
            QCOMPARE(
                QFile::symLinkTarget(QString("/proc/%1/fd/%2").arg(instancePid()).arg(standard)),
                QString("/dev/null"));
    }

    void laterLaunchesForwardToTheRunningOne() {
        TestHome home;
        const auto stop = instanceStopper();
        // The instance started below inherits the usual limit of 1024 descriptors.
        rlimit descriptors{};
        QVERIFY(::getrlimit(RLIMIT_NOFILE, &descriptors) == 0 &&
                (descriptors.rlim_cur = std::min<rlim_t>(1024, descriptors.rlim_max)) &&
                ::setrlimit(RLIMIT_NOFILE, &descriptors) == 0);
        // No session bus: xdg-open stands in for the file manager, writing down the folders of new
        // files it is asked to show.
        writeScript(home.file("bin/xdg-open"), "echo \"$1\" >> \"$HOME/shown.log\"");
        qputenv("PATH", home.file("bin").toUtf8() + ":" + qgetenv("PATH"));
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        // The folder, with a numbered name taken.
        const QString folder = home.file("Pro jects"), a = home.file("a"), bb = home.file("b b"),
                      c = home.file("c");
        QVERIFY(writeFile(folder + "/New Text File 7.txt", "kept"));
        const QString dolphinMenu = home.file("data/kio/servicemenus/brindlemark-new-file.desktop");
        // The install step's list, the Dolphin menu after another file.
        QVERIFY(writeFile(home.file("data/brindlemark/installed-integration"),
                          "/d/brindlemark/launcher\n" + dolphinMenu.toUtf8() + "\n"));

        // "-style Fusion" holds no URL: the launcher becomes brindlemark-app in the foreground (the
        // same process, no fork into the background), which gets the options as they were given.
        Child launcher;
        launcher.setProcessChannelMode(QProcess::ForwardedChannels);
        launcher.start(BRINDLEMARK_EXECUTABLE, {"-style", "Fusion"});
        QTRY_COMPARE_WITH_TIMEOUT(instancePid(), pid_t(launcher.processId()), 20'000);
        const pid_t first = instancePid();
        QCOMPARE(readFile(QString("/proc/%1/cmdline").arg(first)).split('\0').mid(1),
                 (QByteArrayList{"-style", "Fusion", ""}));
        QCOMPARE(launch({url("template", folder, "&id=markdown")}), 0);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(folder + "/MarkdownDocument.md"), 20'000);
        // Every save refreshes Dolphin's menu; the start registered the extension.
        QTRY_VERIFY_WITH_TIMEOUT(readFile(dolphinMenu).contains("Name=Markdown Document"), 20'000);
        QVERIFY(readFile(home.file("data/brindlemark/plugin-registry.json"))
                    .contains("org.brindlemark.Brindlemark.BrindlemarkFinderSync"));
        // One launch of 600 URLs into two folders, handed on in three parts, then one more launch:
        // each folder is shown once (xdg-open gets the folder). A forwarding launch answers once
        // its URLs are handled, and loads no GUI: with a platform plugin that does not exist it
        // still succeeds.
        QStringList burst;
        for (int i = 0; i < 600; ++i)
            burst << url("create", i % 2 ? bb : a);
        QVERIFY(QDir().mkpath(a) && QDir().mkpath(bb) && QDir().mkpath(c));
        qputenv("QT_QPA_PLATFORM", "none");
        QCOMPARE(launch(burst), 0);
        qputenv("QT_QPA_PLATFORM", "offscreen");
        QCOMPARE(entries(a).size() + entries(bb).size(), 600);
        QCOMPARE(launch({url("create", c)}), 0);
        QTRY_COMPARE_WITH_TIMEOUT(shown(home), (QStringList{folder, a, bb, c}), 20'000);

        // 300 separate launches at once against one instance: every URL handled (every launch
        // says so), names distinct.
        writeScript(home.file("burst.sh"),
                    "for i in $(seq 300); do \"$1\" \"$2\" || touch \"$HOME/failed\" & done; wait");
        QCOMPARE(QProcess::execute(home.file("burst.sh"),
                                   {BRINDLEMARK_EXECUTABLE, url("create", folder)}),
                 0);
        QVERIFY(!QFile::exists(home.file("failed")));
        const QRegularExpression newTextFile("^New Text File( \\d+)?\\.txt$");
        QCOMPARE(entries(folder).filter(newTextFile).size(), 301);
        QCOMPARE(readFile(folder + "/New Text File 7.txt"), QByteArray("kept"));

        // A flood of 1100 connections held open, sending nothing or part of a message: each is
        // dropped (the last few once idle too long), and a launch in the middle of it gets
        // through. A socket file that goes is made again.
        const QString socket = home.file("run/org.brindlemark.Brindlemark.socket");
        QProcess flood;
        python(flood, R"py(hard=resource.getrlimit(resource.RLIMIT_NOFILE)[1]
resource.setrlimit(resource.RLIMIT_NOFILE,(min(4096,hard),hard))
held={s.fileno():s for s in (connect([b'',b'\0\0\0\x10\0'][i%2]) for i in range(1100))}
print('open',flush=True);waiting=select.poll();end=time.time()+20
for fd in held: waiting.register(fd,select.POLLIN)
while held and time.time()<end:
 for fd,_ in waiting.poll(500): waiting.unregister(fd);held.pop(fd)
print(1100-len(held),'dropped'))py",
               {socket});
        QVERIFY2(flood.waitForReadyRead(60'000), flood.readAllStandardError());
        QCOMPARE(launch({url("create", folder)}), 0);
        QCOMPARE(output(flood, 30'000), "open\n1100 dropped\n");
        QVERIFY(QFile::remove(socket));
        QCOMPARE(launch({url("create", folder)}), 0);
        QTRY_COMPARE_WITH_TIMEOUT(entries(folder).filter(newTextFile).size(), 303, 20'000);

        // brindlemark-app forwards too; a URL for nothing is taken.
        const QString application = QFileInfo(BRINDLEMARK_EXECUTABLE).path() + "/brindlemark-app";
        QCOMPARE(QProcess::execute(application, {url("create", folder)}), 0);
        QCOMPARE(launch({"brindlemark://Create?path=/tmp"}), 0);
        QCOMPARE(instancePid(), first);

        // An instance that died leaves its socket and lock behind; the next launch takes over. It
        // finds a session bus: without a file manager on it, xdg-open shows the folder; once one
        // offers FileManager1.ShowItems, that shows the last file a launch made in a folder.
        QCOMPARE(::kill(first, SIGKILL), 0);
        QTRY_VERIFY_WITH_TIMEOUT(::kill(first, 0) != 0, 20'000);
        Child bus, manager;
        const QString address = startSessionBus(bus, home.path());
        QVERIFY2(!address.isEmpty(), "no dbus-daemon (Debian package dbus-daemon)");
        qputenv("DBUS_SESSION_BUS_ADDRESS", address.toUtf8());
        QCOMPARE(launch({url("create", c)}), 0);
        QTRY_COMPARE_WITH_TIMEOUT(shown(home).count(c), 2, 20'000);
        QVERIFY(instancePid() != first);
        const QJsonObject showItems{{"kind", "showitems"}, {"log", home.file("shown.log")}};
        manager.start(FAKE_FILE_MANAGER, {QJsonDocument(showItems).toJson()});
        QVERIFY(manager.waitForReadyRead(20'000));
        // The new instance answers once the files are made.
        QCOMPARE(launch({url("create", c), url("create", c)}), 0);
        QCOMPARE(entries(c).size(), 4);
        const QString last =
            QUrl::fromLocalFile(c + "/New Text File 3.txt").toString(QUrl::FullyEncoded);
        QTRY_VERIFY_WITH_TIMEOUT(shown(home).contains(last), 20'000);
        QCOMPARE(shown(home).count(c), 2);
        // Only the folders of new files were shown, or the last file there (how often varies: once
        // per burst, and how many launches come in together varies).
        QStringList once = shown(home);
        once.removeDuplicates();
        QCOMPARE(once, (QStringList{folder, a, bb, c, last}));
    }
};

BRINDLEMARK_WIDGET_TEST_MAIN(LinuxTest)
#include "tst_linux.moc"
