// The Linux platform for real: the five places in a temporary home, the places under faults on
// small file systems (needs root, else skipped), the launch channel, and the installed programs
// as the desktop runs them (the launcher, a running instance, later launches forwarding to it).
#include "TestSupport.h"

#include "platform/linux/InstanceChannel.h"
#include "platform/linux/InstanceServer.h"
#include "platform/linux/LinuxPlatform.h"
#include "templates/TemplateStore.h"

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QScopeGuard>
#include <QSettings>
#include <QStorageInfo>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace brindlemark;

namespace {

bool run(const QString& program, const QStringList& arguments) {
    return QProcess::execute(program, arguments) == 0;
}

// One launch of brindlemark, run to its end: its exit code.
int launch(const QStringList& arguments) {
    return QProcess::execute(BRINDLEMARK_EXECUTABLE, arguments);
}

void store(AppDelegate& app, const TemplateList& templates) {
    app.setTemplates(templates);
    app.saveTemplates();
}

} // namespace

class LinuxTest : public QObject {
    Q_OBJECT

private slots:
    void places() {
        for (bool xdgVariables : {true, false}) {
            TestHome home;
            if (!xdgVariables) {
                qunsetenv("XDG_CONFIG_HOME");
                qunsetenv("XDG_DATA_HOME");
            }
            const QString config = home.file(xdgVariables ? "config" : ".config"),
                          data = home.file(xdgVariables ? "data" : ".local/share");
            // A stored value that reads back as a list, not as text, counts as nothing stored.
            QVERIFY(writeFile(config + "/org.brindlemark.Brindlemark.conf",
                              "[General]\nTemplatesJSON=a, b\n"));
            LinuxPlatform platform;
            start(platform, true);
            for (const char* id : {"org.brindlemark.Brindlemark",
                                   "org.brindlemark.Brindlemark.BrindlemarkFinderSync"}) {
                QCOMPARE(storedSetting(config + "/" + id + ".conf"), builtInTemplatesJSON);
                QCOMPARE(readFile(data + "/" + id + "/Templates.json"), builtInTemplatesJSON);
            }
            QCOMPARE(readFile(config + "/Brindlemark/Templates.json"), builtInTemplatesJSON);
            QCOMPARE(platform.desktopFolder(), home.file("Desktop"));
        }
    }

    void placesUnderFaults() {
        TemplateList thousand;
        for (int i = 0; i < 1000; ++i)
            thousand << Template{{"id", QString::number(i)},
                                 {"title", QString("Template %1").arg(i)},
                                 {"prefix", "p"},
                                 {"suffix", "txt"},
                                 {"enabled", true}};
        // With the disk full, and with 64 KiB free (less than a file of 1000 templates takes), a
        // start and a save leave every place on that disk whole: old or new, never cut. The save
        // waits, and is written by itself once there is room.
        for (const qint64 freeKiB : {0, 64}) {
            TestHome home;
            const QString config = home.file("config");
            QDir().mkpath(config);
            if (!run("mount", {"-t", "tmpfs", "-o", "size=1m", "tmpfs", config}))
                QSKIP("cannot mount a tmpfs here (needs root)");
            const auto unmount = qScopeGuard([&] { run("umount", {config}); });
            // A chain of links: each stays a link, the last target gets the text.
            QDir().mkpath(home.file("data/org.brindlemark.Brindlemark"));
            QVERIFY(QFile::link(home.file("final.json"), home.file("hop.json")));
            QVERIFY(QFile::link(home.file("hop.json"),
                                home.file("data/org.brindlemark.Brindlemark/Templates.json")));
            LinuxPlatform platform;
            store(*start(platform, true), thousand);
            const QByteArray thousandJSON = templatesJSONText(thousand).toUtf8(),
                             settings = readFile(LinuxPlatform::userDefaultsFilePath());
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
            QCOMPARE(entries(config).size(), 4); // no half-written file left beside them
            // The data folder took the list: a start shows it, never the older one in the settings.
            QCOMPARE(start(platform, true)->templates().size(), 999);

            QVERIFY(QFile::remove(config + "/filler"));
            QTRY_VERIFY_WITH_TIMEOUT(!app->isSavePending(), 10'000); // no edit needed
            for (const QString& place : QStringList{LinuxPlatform::extensionPreferencesFilePath(),
                                                    LinuxPlatform::userDefaultsFilePath()})
                QCOMPARE(storedSetting(place), templatesJSONText(thousand.mid(1)));
            QCOMPARE(readFile(config + "/Brindlemark/Templates.json"),
                     templatesJSONText(thousand.mid(1)).toUtf8());
        }
    }

    void twoInstancesOnOneHomeKeepEveryEdit() {
        // One user logged in twice: one home, a runtime folder each, a running Brindlemark in both.
        TestHome home;
        std::vector<std::unique_ptr<QProcess>> editors;
        for (const QString run : {"run-a", "run-b"}) {
            QVERIFY(QDir().mkpath(home.file(run)));
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert("XDG_RUNTIME_DIR", home.file(run));
            auto& editor = editors.emplace_back(std::make_unique<QProcess>());
            editor->setProcessEnvironment(environment);
            editor->start(TEMPLATE_EDITOR, {});
            QVERIFY(editor->waitForReadyRead(20'000) && editor->readLine() == "ready\n");
        }
        QProcess &a = *editors[0], &b = *editors[1];
        auto list = [](QProcess& editor) {
            editor.write("list\n");
            while (!editor.canReadLine() && editor.waitForReadyRead(5000)) {
            }
            return QString::fromUtf8(editor.readLine()).trimmed();
        };
        auto cells = [](const QString& text, const char* member) {
            QStringList values;
            for (const QJsonValue& row : QJsonDocument::fromJson(text.toUtf8()).array())
                values << row[member].toVariant().toString();
            return values.join(',');
        };
        // At the same time, 100 edits each: A titles, B prefixes and ticks; each last one stays.
        for (int i = 0; i < 100; ++i) {
            a.write(QString("set %1 title A%2\n").arg(i % 6).arg(i).toUtf8());
            b.write(QString("set %1 %2\n")
                        .arg(i % 6)
                        .arg(i % 2 ? QString("prefix B%1").arg(i)
                                   : QString("executable %1").arg(i % 4 ? "true" : "false"))
                        .toUtf8());
        }
        const QString titles = "A96,A97,A98,A99,A94,A95",
                      prefixes = "New Text File,B97,JSONFile,B99,script,B95",
                      ticks = "false,false,true,true,true,true";
        QTRY_VERIFY_WITH_TIMEOUT(cells(list(a), "title") == titles && list(a) == list(b) &&
                                     cells(list(b), "prefix") == prefixes,
                                 10'000);
        QCOMPARE(cells(list(a), "executable"), ticks);
        QCOMPARE(readFile(home.file("config/Brindlemark/Templates.json")), list(a).toUtf8());
        // A row added in one and one removed in the other, at once: both stay so.
        a.write("add fromA\n");
        b.write("remove 2\n");
        QTRY_VERIFY_WITH_TIMEOUT(cells(list(a), "id") == "text,markdown,shell,python,ruby,fromA" &&
                                     list(a) == list(b),
                                 10'000);
        QCOMPARE(storedSetting(LinuxPlatform::userDefaultsFilePath()), list(b));
        for (auto& editor : editors) {
            editor->closeWriteChannel();
            QVERIFY(editor->waitForFinished(10'000));
        }
    }

    void unreadableSettingsAreNeitherLostNorWrittenOver() {
        TestHome home;
        LinuxPlatform platform;
        TemplateList edited = start(platform)->templates();
        edited[0]["title"] = "Mine";
        store(*start(platform, true), edited);
        // The settings file exists but cannot be read (here: a folder in its place).
        const QString settings = LinuxPlatform::userDefaultsFilePath();
        QVERIFY(QFile::rename(settings, settings + ".away") && QDir().mkpath(settings));
        const auto unreadable = start(platform, true);
        QCOMPARE(unreadable->templates().value(0)["title"],
                 "Mine"); // from the Templates.json copies
        edited[1]["title"] = "Later";
        store(*unreadable, edited);
        QVERIFY(unreadable->isSavePending());
        QCOMPARE(readFile(home.file("config/Brindlemark/Templates.json")),
                 templatesJSONText(edited).toUtf8());
        // Readable again, as it was: the next start shows this session's edit, and stores it.
        QVERIFY(QDir().rmdir(settings) && QFile::rename(settings + ".away", settings));
        QFile(settings).setFileTime(QDateTime::currentDateTime().addSecs(-60),
                                    QFileDevice::FileModificationTime);
        const auto again = start(platform, true);
        QCOMPARE(again->templates().value(1)["title"], "Later");
        QCOMPARE(storedSetting(settings), templatesJSONText(edited));
        QVERIFY(!again->isSavePending());
    }

    void aStartRemovesWhatKilledSavesLeft() {
        TestHome home;
        LinuxPlatform platform;
        start(platform, true);
        QStringList places = platform.templateStoreFilePaths()
                             << home.file("data/brindlemark/plugin-registry.json");
        QMap<QString, QStringList> before;
        for (const QString& place : places) {
            const QFileInfo info(place);
            before[info.path()] = entries(info.path());
            QVERIFY(writeFile(info.path() + "/." + info.fileName() + ".tmp-k1LLed", "half"));
        }
        QVERIFY(writeFile(home.file("config/Brindlemark/Templates.json.tmp-k1LLed"),
                          "not ours")); // not hidden: not ours
        start(platform, true);
        before[home.file("config/Brindlemark")] << "Templates.json.tmp-k1LLed";
        for (auto folder = before.cbegin(); folder != before.cend(); ++folder) {
            QStringList now = entries(folder.key()), expected = folder.value();
            now.sort();
            expected.sort();
            QCOMPARE(now, expected);
        }
    }

    void savesWriteOnlyChangedPlaces() {
        TestHome home;
        LinuxPlatform platform;
        const auto app = start(platform, true);
        QStringList places = platform.templateConfigFilePaths();
        places << LinuxPlatform::userDefaultsFilePath()
               << LinuxPlatform::extensionPreferencesFilePath();
        // Each place's inode: a place written again (a new file renamed over it) gets a new one.
        auto inodes = [&] {
            QList<quint64> numbers;
            for (const QString& place : places) {
                struct stat info {};
                numbers << (::stat(QFile::encodeName(place).constData(), &info) == 0
                                ? quint64(info.st_ino)
                                : 0);
            }
            return numbers;
        };
        const QList<quint64> first = inodes();
        QVERIFY(!first.contains(0));
        QVERIFY(
            !platform.storeTemplatesJSONText("TemplatesJSON", templatesJSONText(app->templates()))
                 .written);
        QCOMPARE(inodes(), first);

        // A place changed behind the application's back (written in place: its inode stays) is
        // written again, and only that one. A new file always gets a new inode, as the old file
        // still exists when its replacement is made.
        QVERIFY(writeFile(places[1], "[]"));
        QVERIFY(
            platform.storeTemplatesJSONText("TemplatesJSON", templatesJSONText(app->templates()))
                .written);
        const QList<quint64> repaired = inodes();
        for (int i = 0; i < places.size(); ++i)
            QVERIFY2((repaired[i] == first[i]) == (i != 1), qPrintable(places[i]));

        TemplateList edited = app->templates();
        edited[0]["title"] = "Edited";
        store(*app, edited);
        const QList<quint64> afterEdit = inodes();
        for (int i = 0; i < places.size(); ++i)
            QVERIFY2(afterEdit[i] != repaired[i], qPrintable(places[i]));
        QCOMPARE(readFile(places[2]), templatesJSONText(edited).toUtf8());
        QVERIFY(storedSetting(places[3]).contains("Edited"));
    }

    void dolphinMenusFollowChangedTemplates() {
        // Only an installed Dolphin menu (named in the install step's list) is written again.
        for (const auto& [manifest, started] : QList<std::pair<QByteArray, bool>>{
                 {QByteArray(), false},
                 {"/d/nautilus-python/extensions/brindlemark_menu.py\n", false},
                 {"/d/brindlemark/launcher\n/d/kio/servicemenus/brindlemark-new-file.desktop\n",
                  true},
                 {"/d/kio/servicemenus/brindlemark-new-file.desktop.old\n", false}}) {
            TestHome home;
            const QString bundle = home.file("Bundle.appex");
            writeScript(bundle + "/brindlemark-menu-action",
                        "echo \"$@\" >> \"$HOME/ran\"; echo /some/path");
            if (!manifest.isNull())
                QVERIFY(writeFile(home.file("data/brindlemark/installed-integration"), manifest));
            LinuxPlatform().templatesChanged(bundle);
            if (started)
                QTRY_COMPARE(readFile(home.file("ran")), "write-service-menu\n");
            else
                QTest::qWait(100);
            QCOMPARE(QFile::exists(home.file("ran")), started);
        }
    }

    void channel() {
        const std::string body = channel::encodeMessage({"a", "", "brindlemark://x"}).substr(4);
        std::vector<std::string> urls;
        QVERIFY(channel::decodeBody(body, urls) &&
                urls == (std::vector<std::string>{"a", "", "brindlemark://x"}));
        for (const std::string& broken : {body + "x", body.substr(0, body.size() - 1),
                                          std::string("\0\0\0\1", 4), std::string("\0\0", 2)})
            QVERIFY(!channel::decodeBody(
                broken, urls)); // trailing bytes, cut short, a URL missing, no count
        TestHome home;
        QCOMPARE(channel::handOff(home.file("nobody.socket").toStdString(), {}), std::nullopt);
        // An instance that takes the message and goes away without an answer: the launch fails.
        QProcess mute;
        mute.start("python3", {"-c",
                               "import "
                               "socket,sys;s=socket.socket(socket.AF_UNIX);s.bind(sys.argv[1]);s."
                               "listen();print(flush=True);s.accept()[0].close()",
                               home.file("mute.socket")});
        QVERIFY(mute.waitForReadyRead(10'000));
        QCOMPARE(channel::handOff(home.file("mute.socket").toStdString(), {"x"}),
                 std::optional<int>(1));
        // A length beyond any message is dropped at once, not left to idle out.
        InstanceServer server;
        QVERIFY(server.listen(home.file("run/s.socket")));
        QProcess greedy;
        greedy.start("python3", {"-c",
                                 "import "
                                 "socket,sys;s=socket.socket(socket.AF_UNIX);s.connect(sys.argv[1])"
                                 ";s.send(b'\\0\\x40\\0\\1');print(s.recv(1))",
                                 home.file("run/s.socket")});
        QTRY_COMPARE_WITH_TIMEOUT(greedy.state(), QProcess::NotRunning, 2000);
        QCOMPARE(greedy.readAll(), "b''\n");
        // Unfinished messages of 3 MB each: the third is more than the instance holds at once, and
        // what a dropped one held is free again for the next round.
        for (int round = 0; round < 2; ++round) {
            greedy.start("python3", {"-c",
                                     "import select,socket,sys\ndef big():\n "
                                     "s=socket.socket(socket.AF_UNIX);s.connect(sys.argv[1])\n"
                                     " try: s.sendall(b'\\0\\x40\\0\\0'+b'x'*3000000)\n except "
                                     "OSError: pass\n return s\n"
                                     "a,b,c=big(),big(),big();print([bool(select.select([s],[],[],"
                                     "1)[0]) for s in (a,c)])",
                                     home.file("run/s.socket")});
            QTRY_COMPARE_WITH_TIMEOUT(greedy.state(), QProcess::NotRunning, 4000);
            QCOMPARE(greedy.readAll(), "[False, True]\n");
        }
    }

    void longLaunchInParts() {
        // 600 URLs, then a launch of one: the one is handled, and answered, between the long
        // launch's parts, which the server hands on one per pass of the event loop.
        TestHome home;
        InstanceServer server;
        QStringList parts;
        connect(&server, &InstanceServer::urlsReceived, [&](const QStringList& urls) {
            parts << (urls.size() == 1 ? urls[0]
                                       : QString("%1 from %2").arg(urls.size()).arg(urls[0]));
        });
        QVERIFY(server.listen(home.file("run/s.socket")));
        std::vector<std::string> many;
        for (int i = 0; i < 600; ++i)
            many.push_back("a" + std::to_string(i));
        const auto hex = [](const std::vector<std::string>& urls) {
            return QByteArray::fromStdString(channel::encodeMessage(urls)).toHex();
        };
        QProcess launches; // both sent before the server looks at its socket
        launches.start(
            "python3",
            {"-c",
             "import socket,sys\ndef send(hex):\n "
             "s=socket.socket(socket.AF_UNIX);s.connect(sys.argv[1]);s.sendall(bytes.fromhex(hex));"
             "return s\n"
             "a,b=send(sys.argv[2]),send(sys.argv[3]);print(flush=True);print(a.recv(1)+b.recv(1))",
             home.file("run/s.socket"), hex(many), hex({"b"})});
        QVERIFY(launches.waitForReadyRead(10'000));
        QTRY_COMPARE_WITH_TIMEOUT(launches.state(), QProcess::NotRunning, 10'000);
        QCOMPARE(launches.readAll(), "\nb'kk'\n");
        QCOMPARE(parts.join(", "), "256 from a0, b, 256 from a256, 88 from a512");
    }

    void noOtherUserAtEitherEnd() {
        // Without a runtime folder the socket goes into a folder of the temporary folder that only
        // this user can enter: made private, or refused when it is not this user's own folder.
        TestHome home;
        qunsetenv("XDG_RUNTIME_DIR");
        qputenv("TMPDIR", home.file("tmp//").toUtf8());
        const QString folder = home.file("tmp/brindlemark-" + QString::number(::getuid()));
        QDir().mkpath(folder);
        QVERIFY(QFile::setPermissions(folder, QFileDevice::Permissions(0x7777)));
        std::string problem;
        QCOMPARE(channel::socketPath("a.b", problem), (folder + "/a.b.socket").toStdString());
        QCOMPARE(int(QFileInfo(folder).permissions() & 0x0077), 0);
        const auto squatted = [&](const QString& why) {
            QProcess launcher;
            launcher.start(BRINDLEMARK_EXECUTABLE, {"brindlemark://create"});
            QVERIFY(launcher.waitForFinished(20'000) && launcher.exitCode() == 1);
            QVERIFY2(launcher.readAllStandardError().contains(why.toUtf8()), qPrintable(why));
            QVERIFY(channel::socketPath("a.b", problem).empty() &&
                    problem.find(why.toStdString()) != std::string::npos);
        };
        QVERIFY(QDir(folder).removeRecursively() && QFile::link(home.path(), folder));
        squatted("is not a folder");
        if (::getuid() != 0)
            QSKIP("another user's folder, socket and connection need root");
        QVERIFY(QFile::remove(folder) && QDir().mkpath(folder) &&
                ::chown(qPrintable(folder), 65534, 65534) == 0);
        squatted("belongs to another user");

        // Another user listening where this user's instance would be: it is sent nothing.
        QVERIFY(QFile::setPermissions(home.path(), QFileDevice::Permissions(0x7711)));
        qputenv("XDG_RUNTIME_DIR", home.file("shared").toUtf8());
        QDir().mkpath(home.file("shared"));
        QVERIFY(QFile::setPermissions(home.file("shared"), QFileDevice::Permissions(0x7777)));
        const QString socket = home.file("shared/org.brindlemark.Brindlemark.socket");
        QProcess squatter;
        squatter.start("python3",
                       {"-c",
                        "import "
                        "os,socket,sys;os.setuid(65534);s=socket.socket(socket.AF_UNIX);s.bind(sys."
                        "argv[1]);s.listen();"
                        "print(flush=True);print(len(s.accept()[0].recv(99)),flush=True)",
                        socket});
        QVERIFY(squatter.waitForReadyRead(10'000) && squatter.readLine() == "\n");
        QCOMPARE(launch({"brindlemark://create?path=/secret"}), 1);
        QVERIFY(squatter.waitForFinished(10'000));
        QCOMPARE(squatter.readAll(), "0\n");

        // And this user's instance handles nothing another user sends it.
        InstanceServer server;
        QSignalSpy received(&server, &InstanceServer::urlsReceived);
        QVERIFY(server.listen(socket));
        QVERIFY(QFile::setPermissions(socket, QFileDevice::Permissions(0x7777)));
        QProcess stranger;
        stranger.start("python3",
                       {"-c",
                        "import "
                        "os,socket,sys;os.setuid(65534);s=socket.socket(socket.AF_UNIX);s.connect("
                        "sys.argv[1])\n"
                        "try: s.sendall(bytes.fromhex(sys.argv[2])); print('answered' if s.recv(1) "
                        "else 'refused')\nexcept OSError: print('refused')",
                        socket, QByteArray::fromStdString(channel::encodeMessage({"x"})).toHex()});
        QTRY_COMPARE_WITH_TIMEOUT(stranger.state(), QProcess::NotRunning, 10'000);
        QCOMPARE(stranger.readAll() + stranger.readAllStandardError(), "refused\n");
        QCOMPARE(received.size(), 0);
    }

    void alertShortensALongText() {
        // "limit|text": the start and the end kept, never half a character outside the basic plane.
        expectEach(
            [](const QString& input) {
                return shortenedInTheMiddle(input.section('|', 1),
                                            input.section('|', 0, 0).toInt());
            },
            {{"6|abcdef", "abcdef"},
             {"5|abcdef", "ab…ef"},
             {"4|abcdef", "a…ef"},
             {"3|ab😀", "a…"},
             {"4|😀😀😀", "…😀"},
             {"5|😀😀😀", "😀…😀"}});
        // A folder path of 10 MB, and markup in it shown as it is.
        const QString message = "Not a folder: /" + QString(10'000'000, u'x') + "/<i>end";
        QString shown;
        std::optional<bool> plainText;
        QTimer::singleShot(0, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            QVERIFY(box);
            shown = box->informativeText();
            for (QLabel* label : box->findChildren<QLabel*>())
                if (label->text().endsWith("<i>end"))
                    plainText = label->textFormat() == Qt::PlainText;
            box->activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(box));
            QTest::keyClick(box, Qt::Key_C, Qt::ControlModifier);
            box->accept();
        });
        LinuxPlatform().runAlert("New Text File failed", message);
        QVERIFY(shown.size() <= 1000 && shown.startsWith("Not a folder: /xx") &&
                shown.endsWith("xx/<i>end"));
        QCOMPARE(plainText, true);
        QCOMPARE(QGuiApplication::clipboard()->text(), "New Text File failed\n\n" + message);
    }

    void qtOptionsAreNoURLs() {
        // "-style Fusion" holds no URL: the launcher becomes brindlemark-app in the foreground (the
        // same process, no fork into the background), which gets the options as they were given.
        TestHome home;
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        QProcess launcher;
        launcher.start(BRINDLEMARK_EXECUTABLE, {"-style", "Fusion"});
        const auto stop = qScopeGuard([&] {
            launcher.kill();
            launcher.waitForFinished();
        });
        QTRY_COMPARE_WITH_TIMEOUT(instancePid(), pid_t(launcher.processId()), 20'000);
        QCOMPARE(readFile(QString("/proc/%1/cmdline").arg(launcher.processId())).split('\0').mid(1),
                 (QByteArrayList{"-style", "Fusion", ""}));
    }

    void burstShowsEachFolderOnce_data() {
        QTest::addColumn<QString>("bus");
        QTest::newRow("no session bus: xdg-open") << "";
        QTest::newRow("no file manager on the bus: xdg-open") << "empty";
        QTest::newRow("FileManager1.ShowItems") << "showitems";
    }

    void burstShowsEachFolderOnce() {
        // One launch with 600 URLs into two folders (handed on in three parts), then one more
        // launch: each folder is shown once, with the last file made there (xdg-open gets the
        // folder, ShowItems the file).
        QFETCH(QString, bus);
        TestHome home;
        const auto stop = instanceStopper();
        const QString log = home.file("shown.log");
        writeScript(home.file("bin/xdg-open"), "echo \"$1\" >> \"$HOME/shown.log\"");
        qputenv("PATH", home.file("bin").toUtf8() + ":" + qgetenv("PATH"));
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        QProcess daemon, fileManager;
        const auto end = qScopeGuard([&] {
            for (QProcess* process : {&fileManager, &daemon}) {
                process->kill();
                process->waitForFinished();
            }
        });
        if (!bus.isEmpty()) {
            daemon.start("dbus-daemon", {"--session", "--nofork", "--print-address=1",
                                         "--address=unix:path=" + home.file("bus")});
            QVERIFY2(daemon.waitForReadyRead(20'000),
                     "dbus-daemon did not start (Debian package dbus-daemon)");
            qputenv("DBUS_SESSION_BUS_ADDRESS", daemon.readLine().trimmed());
        }
        if (bus == "showitems") {
            fileManager.start(FAKE_FILE_MANAGER,
                              {QJsonDocument(QJsonObject{{"kind", bus}, {"log", log}})
                                   .toJson(QJsonDocument::Compact)});
            QVERIFY(fileManager.waitForReadyRead(20'000));
        }
        const auto shown = [&](const QString& folder, const QString& name) {
            return bus == "showitems" ? QUrl::fromLocalFile(home.file(folder + '/' + name))
                                            .toString(QUrl::FullyEncoded)
                                      : home.file(folder);
        };
        QStringList burst;
        for (int i = 0; i < 600; ++i)
            burst << "brindlemark://create?path=" +
                         QUrl::toPercentEncoding(home.file(i % 2 ? "b b" : "a"), "/");
        for (const char* folder : {"a", "b b", "c"})
            QDir().mkpath(home.file(folder));

        // Starts the instance, which makes nothing for this URL; the burst goes once it listens.
        QCOMPARE(launch({"brindlemark://Create?path=/tmp"}), 0);
        const std::string socket =
            home.file("run/org.brindlemark.Brindlemark.socket").toStdString();
        QTRY_COMPARE_WITH_TIMEOUT(
            channel::forward(socket, {"brindlemark://Create?path=/tmp"}, 20'000),
            channel::Forwarding::Delivered, 20'000);
        QCOMPARE(launch(burst), 0);
        QCOMPARE(entries(home.file("a")).size() + entries(home.file("b b")).size(), 600);
        QCOMPARE(
            launch({"brindlemark://create?path=" + QUrl::toPercentEncoding(home.file("c"), "/")}),
            0);
        QStringList expected{shown("a", "New Text File 299.txt"),
                             shown("b b", "New Text File 299.txt"),
                             shown("c", "New Text File.txt")};
        expected.sort();
        QTRY_COMPARE_WITH_TIMEOUT(
            [&] {
                QStringList lines = QString(readFile(log)).split('\n', Qt::SkipEmptyParts);
                lines.sort();
                return lines;
            }(),
            expected, 20'000);
    }

    void laterLaunchesForwardToTheRunningOne() {
        TestHome home;
        const auto stop = instanceStopper();
        rlimit descriptors{}; // the instance started below inherits the usual limit of 1024
        QVERIFY(::getrlimit(RLIMIT_NOFILE, &descriptors) == 0 &&
                (descriptors.rlim_cur = std::min<rlim_t>(1024, descriptors.rlim_max)) &&
                ::setrlimit(RLIMIT_NOFILE, &descriptors) == 0);
        writeScript(home.file("bin/xdg-open"), "echo \"$1\" >> \"$HOME/xdg-open.log\"");
        qputenv("PATH", home.file("bin").toUtf8() + ":" + qgetenv("PATH"));
        qunsetenv("DBUS_SESSION_BUS_ADDRESS"); // no file manager: new files go to the fake xdg-open
        const QString folder = home.file("Pro jects");
        auto url = [&](const QString& command, const QString& more = QString()) {
            return "brindlemark://" + command + "?path=" + QUrl::toPercentEncoding(folder, "/") +
                   more;
        };
        QVERIFY(writeFile(folder + "/New Text File 7.txt",
                          "kept")); // the folder, with a numbered name taken
        const QString dolphinMenu = home.file("data/kio/servicemenus/brindlemark-new-file.desktop");
        QVERIFY(writeFile(home.file("data/brindlemark/installed-integration"),
                          dolphinMenu.toUtf8() + "\n"));

        // A launch for a URL returns at once; Brindlemark goes on in the background.
        QCOMPARE(launch({url("template", "&id=markdown")}), 0);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(folder + "/MarkdownDocument.md") &&
                                     QFile::exists(home.file("config/Brindlemark/Templates.json")),
                                 20'000);
        const pid_t first = instancePid();
        QTRY_VERIFY_WITH_TIMEOUT(readFile(dolphinMenu).contains("Name=Markdown Document"),
                                 20'000); // every save refreshes it
        QVERIFY(readFile(home.file("data/brindlemark/plugin-registry.json"))
                    .contains("org.brindlemark.Brindlemark.BrindlemarkFinderSync"));
        // A forwarding launch answers once its URLs are handled, in order, and loads no GUI: with a
        // platform plugin that does not exist it still succeeds.
        qputenv("QT_QPA_PLATFORM", "none");
        QCOMPARE(launch({url("template", "&prefix=p&executable=yes"), "-x",
                         url("template", "&prefix=p")}),
                 0);
        qputenv("QT_QPA_PLATFORM", "offscreen");
        QVERIFY(QFileInfo(folder + "/p.txt").isExecutable() &&
                !QFileInfo(folder + "/p 1.txt").isExecutable());

        // 300 separate launches at once against one instance: every URL handled, names distinct.
        writeScript(home.file("burst.sh"),
                    "for i in $(seq 300); do \"$1\" \"$2\" || touch \"$HOME/failed\" & done; wait");
        QCOMPARE(QProcess::execute(home.file("burst.sh"), {BRINDLEMARK_EXECUTABLE, url("create")}),
                 0);
        QVERIFY(!QFile::exists(home.file("failed"))); // every launch said its URL was handled
        QCOMPARE(entries(folder).filter(QRegularExpression("^New Text File( \\d+)?\\.txt$")).size(),
                 301);
        QCOMPARE(readFile(folder + "/New Text File 7.txt"), QByteArray("kept"));

        // A flood of 1100 connections held open, sending nothing or part of a message: each is
        // dropped (the last few once idle too long), and a launch in the middle of it gets
        // through. A socket file that goes is made again.
        const QString socket = home.file("run/org.brindlemark.Brindlemark.socket");
        QProcess flood;
        flood.start("python3",
                    {"-c",
                     "import resource,select,socket,sys,time\n"
                     "hard=resource.getrlimit(resource.RLIMIT_NOFILE)[1];resource.setrlimit("
                     "resource.RLIMIT_NOFILE,(min(4096,hard),hard))\n"
                     "def open_(data):\n s=socket.socket(socket.AF_UNIX);s.connect(sys.argv[1])\n "
                     "try: s.send(data)\n except OSError: pass\n return s\n"
                     "held={s.fileno():s for s in (open_([b'',b'\\0\\0\\0\\x10\\0'][i%2]) for i in "
                     "range(1100))}\n"
                     "print('open',flush=True);waiting=select.poll();end=time.time()+20\n"
                     "for fd in held: waiting.register(fd,select.POLLIN)\n"
                     "while held and time.time()<end:\n for fd,_ in waiting.poll(500): "
                     "waiting.unregister(fd);held.pop(fd)\n"
                     "print(1100-len(held),'dropped')",
                     socket});
        QVERIFY2(flood.waitForReadyRead(60'000), flood.readAllStandardError());
        QCOMPARE(launch({url("create")}), 0);
        QVERIFY(flood.waitForFinished(30'000));
        QCOMPARE(flood.readAll() + flood.readAllStandardError(), "open\n1100 dropped\n");
        QVERIFY(QFile::remove(socket));
        QCOMPARE(launch({url("create")}), 0);
        QTRY_COMPARE_WITH_TIMEOUT(
            entries(folder).filter(QRegularExpression("^New Text File( \\d+)?\\.txt$")).size(), 303,
            20'000);

        QCOMPARE(QProcess::execute(QFileInfo(BRINDLEMARK_EXECUTABLE).path() + "/brindlemark-app",
                                   {url("create")}),
                 0);             // forwards too
        QCOMPARE(launch({}), 0); // a reopen
        QCOMPARE(launch({"brindlemark://Create?path=/tmp", "not a url"}), 0);
        // The folder is shown (once per burst: how many launches came in together varies).
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(home.file("xdg-open.log")), 20'000);
        QStringList shown =
            QString(readFile(home.file("xdg-open.log"))).split('\n', Qt::SkipEmptyParts);
        shown.removeDuplicates();
        QCOMPARE(shown, QStringList{folder});
        QCOMPARE(instancePid(), first);

        // An instance that died leaves its socket and lock behind; the next launch takes over.
        QCOMPARE(::kill(first, SIGKILL), 0);
        QTRY_VERIFY_WITH_TIMEOUT(::kill(first, 0) != 0, 20'000);
        QCOMPARE(launch({url("create")}), 0);
        QTRY_VERIFY_WITH_TIMEOUT(entries(folder).size() == 308, 20'000);
        QCOMPARE(launch({url("create")}), 0); // the new instance answers
        QCOMPARE(entries(folder).size(), 309);
        QVERIFY(instancePid() != first);
    }
};

BRINDLEMARK_WIDGET_TEST_MAIN(LinuxTest)
#include "tst_linux.moc"
