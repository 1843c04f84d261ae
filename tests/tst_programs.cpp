// The installed programs as the desktop runs them: brindlemark handling URLs as the running
// instance and as later launches that forward to it, and brindlemark-open starting terminals.
// Everything runs in a temporary home with fake terminals and a fake xdg-open.
#include "TestEnvironment.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QThread>

#include <csignal>

namespace {


bool waitFor(const std::function<bool()>& condition, int milliseconds = 10'000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > milliseconds)
            return false;
        QThread::msleep(10);
    }
    return true;
}


QString url(const QString& command, const QString& folder, const QString& more = QString())
{
    return "brindlemark://" + command + "?path=" + QString::fromUtf8(QUrl::toPercentEncoding(folder, "/")) + more;
}

// The process id of the running instance, from its lock file.
pid_t instancePid()
{
    const QString lock = qEnvironmentVariable("XDG_RUNTIME_DIR") + "/org.brindlemark.Brindlemark.socket.lock";
    return pid_t(readFile(lock).split('\n').value(0).toLongLong());
}

// Stops the instance a test started in the background, also when the test fails early.
struct StopInstanceAtEnd {
    ~StopInstanceAtEnd()
    {
        if (const pid_t pid = instancePid(); pid > 0)
            ::kill(pid, SIGKILL);
    }
};

} // namespace

class ProgramsTest : public QObject {
    Q_OBJECT

    QProcessEnvironment environment(const TestHome& home)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR"})
            env.insert(name, qEnvironmentVariable(name));
        env.insert("QT_QPA_PLATFORM", "offscreen");
        env.remove("DBUS_SESSION_BUS_ADDRESS"); // no file manager: the folder goes to xdg-open
        env.insert("PATH", home.file("bin") + ":" + env.value("PATH"));
        return env;
    }

    // Runs one launch of brindlemark to its end; returns its exit code.
    int launch(const TestHome& home, const QStringList& arguments, const char* platform = nullptr)
    {
        QProcess process;
        QProcessEnvironment env = environment(home);
        if (platform)
            env.insert("QT_QPA_PLATFORM", platform);
        process.setProcessEnvironment(env);
        process.start(BRINDLEMARK_EXECUTABLE, arguments);
        if (!process.waitForFinished(30'000)) {
            process.kill();
            return -1;
        }
        return process.exitCode();
    }

private slots:
    void laterLaunchesForwardToTheRunningOne()
    {
        TestHome home;
        StopInstanceAtEnd stop;
        writeScript(home.file("bin/xdg-open"), "echo \"$1\" >> \"$HOME/xdg-open.log\"");
        const QString folder = home.file("Pro jects");
        QDir().mkpath(folder);

        // A launch for a URL returns at once; Brindlemark goes on in the background.
        QCOMPARE(launch(home, {url("template", folder, "&id=markdown")}), 0);
        QVERIFY(waitFor([&] { return entries(folder, QDir::Files).contains("MarkdownDocument.md"); }));
        QVERIFY(waitFor([&] { return QFile::exists(home.file("config/Brindlemark/Templates.json")); }));
        const pid_t first = instancePid();
        QVERIFY(first > 0 && ::kill(first, 0) == 0);

        // A forwarding launch answers only after the running instance handled its URLs, and it
        // starts no GUI at all: with a platform plugin that does not exist it still succeeds.
        QCOMPARE(launch(home, {url("template", folder, "&prefix=p&executable=yes"),
                               url("template", folder, "&prefix=p")}, "no-such-platform"), 0);
        QCOMPARE(entries(folder, QDir::Files), (QStringList{"MarkdownDocument.md", "p 1.txt", "p.txt"}));
        QVERIFY(QFileInfo(folder + "/p.txt").isExecutable()); // handled in order
        QVERIFY(!QFileInfo(folder + "/p 1.txt").isExecutable());

        // A burst of launches at once: every URL handled, every name distinct.
        QList<QProcess*> burst;
        for (int i = 0; i < 40; ++i) {
            auto* process = new QProcess(this);
            process->setProcessEnvironment(environment(home));
            process->start(BRINDLEMARK_EXECUTABLE, {url("create", folder)});
            burst << process;
        }
        for (QProcess* process : burst) {
            QVERIFY(process->waitForFinished(60'000));
            QCOMPARE(process->exitCode(), 0);
            delete process;
        }
        QCOMPARE(entries(folder, QDir::Files).filter(QRegularExpression("^New Text File( \\d+)?\\.txt$")).size(), 40);

        QCOMPARE(launch(home, {}), 0); // a reopen
        QCOMPARE(launch(home, {"brindlemark://Create?path=/tmp", "not a url"}), 0);
        QVERIFY(waitFor([&] { return readFile(home.file("xdg-open.log")).count('\n') == 43; }));
        QVERIFY(readFile(home.file("xdg-open.log")).startsWith((folder + "\n").toUtf8()));
        QCOMPARE(instancePid(), first);

        // An instance that died leaves its socket and lock behind; the next launch takes over.
        QCOMPARE(::kill(first, SIGKILL), 0);
        QVERIFY(waitFor([&] { return ::kill(first, 0) != 0; }));
        QCOMPARE(launch(home, {url("create", folder)}), 0);
        QVERIFY(waitFor([&] { return entries(folder, QDir::Files).size() == 44; }));
        QCOMPARE(launch(home, {url("create", folder)}), 0);
        QCOMPARE(entries(folder, QDir::Files).size(), 45);
        const pid_t second = instancePid();
        QVERIFY(second != first);
    }

    void burstOf500Launches()
    {
        TestHome home;
        StopInstanceAtEnd stop;
        writeScript(home.file("bin/xdg-open"), "exit 0");
        const QString folder = home.file("burst");
        QDir().mkpath(folder);
        QVERIFY(writeFile(folder + "/New Text File 7.txt", "kept"));
        QCOMPARE(launch(home, {url("create", folder)}), 0);
        QVERIFY(waitFor([&] { return QFile::exists(home.file("config/Brindlemark/Templates.json")); }));

        // 500 separate processes, started as fast as the shell can, all against one instance.
        writeScript(home.file("burst.sh"), "for i in $(seq 500); do \"$1\" \"$2\" || echo failed & done; wait");
        QProcess shell;
        shell.setProcessEnvironment(environment(home));
        shell.setProcessChannelMode(QProcess::MergedChannels);
        shell.start(home.file("burst.sh"), {BRINDLEMARK_EXECUTABLE, url("create", folder)});
        QVERIFY(shell.waitForFinished(120'000));
        QCOMPARE(shell.readAll(), QByteArray());
        const QStringList made = entries(folder, QDir::Files).filter(QRegularExpression("^New Text File( \\d+)?\\.txt$"));
        QCOMPARE(made.size(), 502); // the first launch, the 500, and the file that was there
        QCOMPARE(readFile(folder + "/New Text File 7.txt"), QByteArray("kept"));
        QCOMPARE(launch(home, {url("create", folder)}), 0); // still answering
        QCOMPARE(entries(folder, QDir::Files).size(), 503);
    }

    void userLaunchStaysInTheForeground()
    {
        TestHome home;
        QProcess instance;
        instance.setProcessEnvironment(environment(home));
        instance.start(BRINDLEMARK_EXECUTABLE, {});
        QVERIFY(instance.waitForStarted());
        QVERIFY(waitFor([&] { return QFile::exists(home.file("config/Brindlemark/Templates.json")); }));
        QCOMPARE(launch(home, {}), 0); // reopen: the window is shown again, nothing else starts
        QCOMPARE(instance.state(), QProcess::Running);
        QCOMPARE(instancePid(), pid_t(instance.processId()));
        instance.kill();
        instance.waitForFinished();
    }

    void terminalTool_data()
    {
        QTest::addColumn<QStringList>("emulators"); // fake emulators on PATH
        QTest::addColumn<QString>("terminalVariable");
        QTest::addColumn<QString>("application");
        QTest::addColumn<QString>("expectedOutput");
        QTest::addColumn<QString>("expectedLaunch"); // name|working folder|arguments, "" for none
        QTest::newRow("TERMINAL first") << QStringList{"myterm", "x-terminal-emulator"} << "myterm" << "Terminal" << "" << "myterm|%1|";
        QTest::newRow("debian alternative") << QStringList{"x-terminal-emulator", "xterm"} << "" << "Terminal" << "" << "x-terminal-emulator|%1|";
        QTest::newRow("TERMINAL missing falls through") << QStringList{"xterm"} << "gone" << "Terminal" << "" << "xterm|%1|";
        QTest::newRow("gnome-terminal") << QStringList{"gnome-terminal"} << "" << "Terminal" << "" << "gnome-terminal|%1|--working-directory=%1";
        QTest::newRow("konsole") << QStringList{"konsole"} << "" << "iTerm" << "" << "konsole|%1|--workdir %1";
        QTest::newRow("kitty") << QStringList{"kitty"} << "" << "iTerm2" << "" << "kitty|%1|--directory %1";
        QTest::newRow("wezterm") << QStringList{"wezterm"} << "" << "Terminal" << "" << "wezterm|%1|start --cwd %1";
        QTest::newRow("none") << QStringList{} << "" << "Terminal"
            << "No terminal emulator was found. Install one (for example gnome-terminal, konsole or xterm) or name yours in the TERMINAL environment variable.\n" << "";
        QTest::newRow("other application") << QStringList{"xterm"} << "" << "Safari"
            << "Unable to find application named 'Safari'.\n" << "";
    }
    void terminalTool()
    {
        QFETCH(QStringList, emulators);
        QFETCH(QString, terminalVariable);
        QFETCH(QString, application);
        QFETCH(QString, expectedOutput);
        QFETCH(QString, expectedLaunch);
        TestHome home;
        // Only the fakes and the few commands the tool needs: no real terminal can start.
        const QString bin = home.file("bin");
        QDir().mkpath(bin);
        for (const char* tool : {"sh", "setsid", "basename", "nohup"})
            QFile::link(QStandardPaths::findExecutable(tool), bin + "/" + tool);
        for (const QString& emulator : emulators)
            writeScript(bin + "/" + emulator, "echo \"$(basename \"$0\")|$PWD|$*\" > \"$HOME/launched\"");
        const QString folder = home.file("a 'quoted' & folder");
        QDir().mkpath(folder);

        QProcess tool;
        QProcessEnvironment env;
        env.insert("PATH", bin);
        env.insert("HOME", home.path());
        if (!terminalVariable.isEmpty())
            env.insert("TERMINAL", terminalVariable);
        tool.setProcessEnvironment(env);
        tool.setWorkingDirectory(home.path());
        tool.start(BRINDLEMARK_OPEN_TOOL, {"-a", application, folder});
        QVERIFY(tool.waitForFinished(10'000));
        QCOMPARE(QString::fromUtf8(tool.readAll()), expectedOutput);
        if (expectedLaunch.isEmpty()) {
            QThread::msleep(100);
            QVERIFY(!QFile::exists(home.file("launched")));
        } else {
            QVERIFY(waitFor([&] { return readFile(home.file("launched")).endsWith('\n'); }));
            QCOMPARE(QString::fromUtf8(readFile(home.file("launched"))), expectedLaunch.arg(folder) + "\n");
        }
    }

    void terminalToolRefusesBadFolders()
    {
        TestHome home;
        QProcess tool;
        tool.start(BRINDLEMARK_OPEN_TOOL, {"-a", "Terminal", home.file("missing")});
        QVERIFY(tool.waitForFinished(10'000));
        QCOMPARE(QString::fromUtf8(tool.readAll()), "The folder " + home.file("missing") + " does not exist.\n");
        tool.start(BRINDLEMARK_OPEN_TOOL, {"Terminal"});
        QVERIFY(tool.waitForFinished(10'000));
        QVERIFY(tool.readAll().startsWith("Usage: brindlemark-open"));
    }
};

QTEST_GUILESS_MAIN(ProgramsTest)
#include "tst_programs.moc"
