// Brindlemark's speed and memory. Every row is the median of several rounds, and every round
// runs the row's baseline too, alternating with it, so that both see the same machine:
//  - start-up: the launcher as the desktop starts it, until its window is mapped, against a bare
//    Qt window program (bare_window.cpp);
//  - the registry tool through the tool runner, against /bin/true the same way;
//  - opening the tray menu until it has painted, against the same menu whose registry tool is
//    /bin/true;
//  - how long "Enable Extension" freezes the event loop, against a click on a label;
//  - the save after one edit in the template table, against writing the same text to one file;
//  - the idle memory of the shown application, against the bare window program's;
//  - a URL handed to the running instance by a second launch, until the file exists, against
//    `touch` of a file in the same folder; and one to a template with 4 KiB of content, against
//    `cp` of the same 4 KiB;
//  - the same for a URL sent right after one launch of 5,000 URLs into the same folder, while the
//    instance handles them and once they are answered, against a URL to the idle instance;
//  - creating a file when the base name and the numbers 1 to 10,000 are taken, against creating
//    one in an empty folder.
// Everything runs in a temporary home on an X server of its own (Xvfb), without a session bus,
// with stand-ins for the tools that would reach the real desktop: nothing of the user's is
// touched.
//
//   bench_brindlemark [ROUNDS]
#include "ChildProcess.h"
#include "Identifiers.h"
#include "Measurement.h"
#include "XDisplay.h"

#include "actions/FileCreation.h"
#include "app/AppDelegate.h"
#include "app/Launcher.h"
#include "bridge/ExtensionManagement.h"
#include "bridge/ToolRunner.h"
#include "platform/linux/InstanceChannel.h"
#include "platform/linux/LinuxPlatform.h"
#include "templates/AtomicFile.h"
#include "templates/TemplateStore.h"
#include "templates/TemplateTableModel.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QLockFile>
#include <QMenu>
#include <QPushButton>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QWindow>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

using namespace brindlemark;
using namespace brindlemark::bench;
using namespace std::chrono_literals;

namespace {

const std::string Launcher = BRINDLEMARK_EXECUTABLE;
const std::string BareWindow = BRINDLEMARK_BARE_WINDOW;
const QString ToolsFolder = QStringLiteral(BRINDLEMARK_TOOLS_DIR);
const QString EnabledText = QStringLiteral("Finder extension enabled.");
constexpr int IdleMilliseconds = 1500;
// How long a step of a round may take before the round cannot be measured; enabling the extension
// installs the menus and may take longer.
constexpr int GiveUpMilliseconds = 10'000;
constexpr int EnablingGiveUpMilliseconds = 30'000;
// The goal of a URL handed in during or after a launch of 5,000 URLs.
constexpr int BurstUrlGoalMilliseconds = 2000;

// ---- the temporary home --------------------------------------------------------------------

void writeScript(const QString& path, const QByteArray& text) {
    QFile script(path);
    if (!script.open(QIODevice::WriteOnly) || script.write(text) != text.size())
        qFatal("cannot write %s", qPrintable(path));
    script.setPermissions(script.permissions() | QFileDevice::ExeOwner);
}

// Points HOME and the XDG folders into `root`, drops the session bus and session manager, and
// puts stand-ins first on PATH: a silent xdg-open (new files are shown with it) and a pgrep that
// finds nothing (so that restarting the file manager never quits a real one).
void useTemporaryHome(const QString& root) {
    for (const char* folder : {"bin", "cache", "config", "data", "run"})
        QDir().mkpath(root + u'/' + QLatin1String(folder));
    QFile::setPermissions(root + "/run",
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    writeScript(root + "/bin/xdg-open", "#!/bin/sh\nexit 0\n");
    writeScript(root + "/bin/pgrep", "#!/bin/sh\nexit 1\n");
    qputenv("HOME", root.toUtf8());
    qputenv("XDG_CACHE_HOME", (root + "/cache").toUtf8());
    qputenv("XDG_CONFIG_HOME", (root + "/config").toUtf8());
    qputenv("XDG_DATA_HOME", (root + "/data").toUtf8());
    qputenv("XDG_RUNTIME_DIR", (root + "/run").toUtf8());
    qputenv("PATH", (root + "/bin:" + qEnvironmentVariable("PATH")).toUtf8());
    for (const char* variable : {"DBUS_SESSION_BUS_ADDRESS", "SESSION_MANAGER", "WAYLAND_DISPLAY"})
        qunsetenv(variable);
    // Enabling the extension then installs the menus of these file managers (into the temporary
    // data folder), whether or not they are installed: the real work of enabling is measured.
    qputenv("BRINDLEMARK_FILE_MANAGERS", "nautilus nemo dolphin");
}

// ---- the platform of the in-process rows ---------------------------------------------------

// This machine's platform, with the tools and the extension bundle taken from the build.
class BuiltToolsPlatform : public LinuxPlatform {
public:
    QString toolPath(Tool tool) override {
        return ToolsFolder + u'/' + QFileInfo(LinuxPlatform::toolPath(tool)).fileName();
    }
    QString builtInPlugInsPath() override { return ToolsFolder + QStringLiteral("/PlugIns"); }
};

// The same, with /bin/true for every tool: the tray menu's baseline, whose registry tool does
// nothing and says nothing.
class DoNothingToolsPlatform final : public BuiltToolsPlatform {
public:
    QString toolPath(Tool) override {
        return QStandardPaths::findExecutable(QStringLiteral("true"));
    }
};

// ---- programs with a window ----------------------------------------------------------------

// A program started until its first window is mapped. Stopping it stops its process group and
// the window's own process, should the program have left the window to another one.
class WindowedRun {
public:
    WindowedRun(WindowMapWatch& watch, const std::string& program)
        : m_started((watch.forgetEarlierMaps(), std::chrono::steady_clock::now())),
          m_process({program}) {
        const std::optional<WindowMapWatch::Mapped> mapped = watch.waitForWindow(20s, ::getpid());
        if (!mapped)
            throw Unmeasurable(program + " mapped no window within 20 s");
        m_mapped = *mapped;
    }
    ~WindowedRun() {
        try {
            stop();
        } catch (const Unmeasurable&) {
        }
    }

    double millisecondsToMap() const {
        return std::chrono::duration<double, std::milli>(m_mapped.at - m_started).count();
    }
    pid_t windowPid() const { return m_mapped.pid > 0 ? m_mapped.pid : m_process.pid(); }
    void stop() {
        m_process.stop();
        if (m_mapped.pid > 0 && m_mapped.pid != m_process.pid())
            killAndWaitUntilGone(m_mapped.pid);
    }

private:
    std::chrono::steady_clock::time_point m_started;
    ChildProcess m_process;
    WindowMapWatch::Mapped m_mapped;
};

// After a kill the instance's lock and socket stay behind, which they do not after a Quit: once
// the lock's holder is gone (the lock can be taken), both are removed, so that every start finds
// what a start after Quit finds.
void clearStoppedInstance() {
    std::string problem;
    const QString socket =
        QString::fromStdString(channel::socketPath(ApplicationBundleIdentifier, problem));
    QLockFile lock(socket + QStringLiteral(".lock"));
    if (!lock.tryLock(GiveUpMilliseconds))
        throw Unmeasurable("the stopped instance still holds " + lock.fileName().toStdString());
    lock.unlock();
    QFile::remove(socket);
}

// The launcher with no arguments, as the desktop starts it; its instance gone afterwards.
double brindlemarkStartUp(WindowMapWatch& watch) {
    WindowedRun run(watch, Launcher);
    run.stop();
    clearStoppedInstance();
    return run.millisecondsToMap();
}

double bareWindowStartUp(WindowMapWatch& watch) {
    WindowedRun run(watch, BareWindow);
    return run.millisecondsToMap();
}

// The resident memory of the program's window process once it has been shown and idle.
double idleMemory(WindowMapWatch& watch, const std::string& program) {
    WindowedRun run(watch, program);
    QThread::msleep(IdleMilliseconds);
    const double mebibytes = residentMebibytes(run.windowPid());
    run.stop();
    if (program == Launcher)
        clearStoppedInstance();
    return mebibytes;
}

// ---- the rows ------------------------------------------------------------------------------

Samples startUpRounds(WindowMapWatch& watch, int rounds) {
    // The warm-up start also saves the templates, so every measured one finds them saved.
    return interleaved(
        rounds, [&](int) { return brindlemarkStartUp(watch); },
        [&](int) { return bareWindowStartUp(watch); });
}

Samples idleMemoryRounds(WindowMapWatch& watch, int rounds) {
    return interleaved(
        rounds, [&](int) { return idleMemory(watch, Launcher); },
        [&](int) { return idleMemory(watch, BareWindow); }, 0);
}

void waitForFile(const QString& path) {
    const QDeadlineTimer deadline(GiveUpMilliseconds);
    while (!QFileInfo::exists(path)) {
        if (deadline.hasExpired())
            throw Unmeasurable(path.toStdString() + " did not appear");
        QThread::usleep(100);
    }
}

// A URL handed to the running instance until its file exists, against `touch` of a file in the
// same folder; or, with `content`, a URL to a template with that content, against `cp` of it.
Samples urlToFileRounds(WindowMapWatch& watch, const QString& folder, int rounds,
                        const QByteArray& content = {}) {
    const QString source = QDir::homePath() + QStringLiteral("/content-source");
    if (!content.isEmpty() &&
        !(writeFileAtomically(source, content) &&
          writeFileAtomically(qEnvironmentVariable("XDG_DATA_HOME") +
                                  QStringLiteral("/brindlemark/content/letter"),
                              content)))
        throw Unmeasurable("cannot write the content");
    WindowedRun instance(watch, Launcher);
    const std::string touch = QStandardPaths::findExecutable(QStringLiteral("touch")).toStdString();
    const std::string cp = QStandardPaths::findExecutable(QStringLiteral("cp")).toStdString();
    const QString tag = content.isEmpty() ? QStringLiteral("url") : QStringLiteral("content");
    auto viaUrl = [&](int round) {
        const QString prefix = tag + QString::number(round + 1);
        const std::string url = "brindlemark://template?path=" + folder.toStdString() +
                                (content.isEmpty() ? "" : "&id=letter") +
                                "&prefix=" + prefix.toStdString() + "&suffix=txt";
        return millisecondsOf([&] {
            runToSuccess({Launcher, url});
            waitForFile(folder + u'/' + prefix + QStringLiteral(".txt"));
        });
    };
    auto viaTool = [&](int round) {
        const QString file = folder + QStringLiteral("/%1-tool%2.txt").arg(tag).arg(round + 1);
        return millisecondsOf([&] {
            if (content.isEmpty())
                runToSuccess({touch, file.toStdString()});
            else
                runToSuccess({cp, source.toStdString(), file.toStdString()});
            waitForFile(file);
        });
    };
    Samples samples = interleaved(rounds, viaUrl, viaTool);
    instance.stop();
    clearStoppedInstance();
    QFile first(folder + u'/' + tag + QStringLiteral("1.txt"));
    if (!content.isEmpty() && (!first.open(QIODevice::ReadOnly) || first.readAll() != content))
        throw Unmeasurable("the file made from the template does not hold its content");
    return samples;
}

// A URL to the running instance right after a launch of BurstSize URLs into the same folder, until
// its file exists: sent while the instance handles the launch (once its first file exists), or
// once the launch has been answered. The baseline is a URL to the idle instance.
constexpr int BurstSize = 5000;

Samples urlAfterBurstRounds(WindowMapWatch& watch, const QString& root, bool afterAnswer,
                            int rounds) {
    WindowedRun instance(watch, Launcher);
    const auto url = [](const QString& folder, const QString& prefix) {
        return "brindlemark://template?path=" + folder.toStdString() +
               "&prefix=" + prefix.toStdString() + "&suffix=txt";
    };
    const auto urlToFile = [&](const QString& folder, const QString& prefix) {
        return millisecondsOf([&] {
            runToSuccess({Launcher, url(folder, prefix)});
            waitForFile(folder + u'/' + prefix + QStringLiteral(".txt"));
        });
    };
    int bursts = 0;
    auto afterBurst = [&](int) {
        const QString folder = root + QStringLiteral("/burst%1").arg(++bursts);
        QDir().mkpath(folder);
        std::vector<std::string> command(BurstSize + 1,
                                         url(folder, QStringLiteral("New Text File")));
        command[0] = Launcher;
        ChildProcess burst(command);
        if (afterAnswer && burst.waitForExit(60s) != 0)
            throw Unmeasurable("the launch of " + std::to_string(BurstSize) + " URLs failed");
        if (!afterAnswer)
            waitForFile(folder + QStringLiteral("/New Text File.txt"));
        const double milliseconds = urlToFile(folder, QStringLiteral("next"));
        if (!afterAnswer && burst.waitForExit(60s) != 0)
            throw Unmeasurable("the launch of " + std::to_string(BurstSize) + " URLs failed");
        return milliseconds;
    };
    int idle = 0;
    const QString idleFolder = root + QStringLiteral("/idle");
    QDir().mkpath(idleFolder);
    auto toIdle = [&](int) { return urlToFile(idleFolder, QStringLiteral("idle%1").arg(++idle)); };
    Samples samples = interleaved(rounds, afterBurst, toIdle);
    instance.stop();
    clearStoppedInstance();
    return samples;
}

Samples registryToolRounds(int rounds) {
    const QString pluginKit = ToolsFolder + QStringLiteral("/brindlemark-pluginkit");
    const QString doNothing = QStandardPaths::findExecutable(QStringLiteral("true"));
    return interleaved(
        rounds,
        [&](int) {
            return millisecondsOf([&] {
                runTool(pluginKit, {QStringLiteral("-mAD"), QStringLiteral("-p"),
                                    FileManagerExtensionProtocol});
            });
        },
        [&](int) { return millisecondsOf([&] { runTool(doNothing, {}); }); });
}

// Notes that a widget has painted: its paint event has been delivered, and the paint is done by
// the time the event loop returns.
class PaintWatch final : public QObject {
public:
    bool painted = false;
    bool eventFilter(QObject*, QEvent* event) override {
        painted = painted || event->type() == QEvent::Paint;
        return false;
    }
};

// From popup() until the menu is shown and has painted once; then it is hidden again.
double openMenu(QMenu* menu) {
    PaintWatch paints;
    menu->installEventFilter(&paints);
    const double milliseconds = millisecondsOf([&] {
        menu->popup(QPoint(40, 40));
        if (!processEventsUntil([&] { return menu->isVisible() && paints.painted; },
                                GiveUpMilliseconds))
            throw Unmeasurable("the tray menu did not show");
    });
    menu->removeEventFilter(&paints);
    menu->hide();
    processEventsFor(20);
    return milliseconds;
}

Samples trayMenuRounds(AppDelegate& delegate, AppDelegate& doNothingDelegate, int rounds) {
    return interleaved(
        rounds, [&](int) { return openMenu(delegate.statusMenu()); },
        [&](int) { return openMenu(doNothingDelegate.statusMenu()); });
}

// Every place the templates are saved to holds the title.
bool everyPlaceHolds(LinuxPlatform& platform, const QString& title) {
    const QStringList places = QStringList{LinuxPlatform::userDefaultsFilePath(),
                                           LinuxPlatform::extensionPreferencesFilePath()} +
                               platform.templateConfigFilePaths();
    return std::all_of(places.begin(), places.end(), [&](const QString& place) {
        QFile file(place);
        return file.open(QIODevice::ReadOnly) && file.readAll().contains(title.toUtf8());
    });
}

Samples saveRounds(AppDelegate& delegate, LinuxPlatform& platform, const QString& root,
                   int rounds) {
    TemplateTableModel* model = delegate.templateTableModel();
    const auto& columns = model->columns();
    const auto title =
        std::find_if(columns.begin(), columns.end(), [](const TemplateTableModel::Column& c) {
            return c.identifier == TemplateKey::title;
        });
    if (title == columns.end() || model->rowCount() == 0)
        throw Unmeasurable("the template table has no title cell");
    const QModelIndex cell = model->index(0, int(title - columns.begin()));
    // Two titles in turn, so that every save changes the text; the baseline writes the same texts.
    const QString titles[2] = {QStringLiteral("Benchmark Title A"),
                               QStringLiteral("Benchmark Title B")};
    QByteArray texts[2];
    for (int i : {0, 1}) {
        model->setData(cell, titles[i], Qt::EditRole);
        texts[i] = templatesJSONText(delegate.templates()).toUtf8();
    }
    auto edit = [&](int round) {
        const QString& text = titles[round & 1];
        QElapsedTimer clock;
        clock.start();
        model->setData(cell, text, Qt::EditRole);
        // A save that finishes later counts until every place holds the text; the check itself
        // is not timed when the save was already done.
        double milliseconds = clock.nsecsElapsed() / 1e6;
        while (!everyPlaceHolds(platform, text)) {
            if (clock.hasExpired(GiveUpMilliseconds))
                throw Unmeasurable("the edited title did not reach every place");
            QCoreApplication::processEvents();
            milliseconds = clock.nsecsElapsed() / 1e6;
        }
        return milliseconds;
    };
    const QString oneFile = root + QStringLiteral("/one-file.json");
    auto write = [&](int round) {
        return millisecondsOf([&] { writeFileAtomically(oneFile, texts[round & 1]); });
    };
    return interleaved(rounds, edit, write);
}

template <typename Widget> Widget* childWithText(QWidget* window, const QString& text) {
    const QList<Widget*> children = window->findChildren<Widget*>();
    const auto found = std::find_if(children.begin(), children.end(), [&](Widget* child) {
        return child->text().remove(u'&') == text;
    });
    return found == children.end() ? nullptr : *found;
}

Samples enableExtensionRounds(AppDelegate& delegate, int rounds) {
    QPushButton* button =
        childWithText<QPushButton>(delegate.window(), QStringLiteral("Enable Extension"));
    QLabel* status = delegate.statusLabel();
    if (!button || !status)
        throw Unmeasurable("the window has no \"Enable Extension\" button or no status line");
    auto enable = [&](int) {
        // The button may be unavailable while an earlier enabling finishes.
        if (!processEventsUntil([&] { return button->isEnabled(); }, EnablingGiveUpMilliseconds))
            throw Unmeasurable("the \"Enable Extension\" button stays disabled");
        status->clear();
        const double milliseconds = longestEventLoopBlock(
            [&] { QTest::mouseClick(button, Qt::LeftButton); },
            [&] { return status->text() == EnabledText; }, EnablingGiveUpMilliseconds);
        processEventsFor(20); // an enabling that ends in the background has ended before the next
        return milliseconds;
    };
    auto clickLabel = [&](int) {
        bool clicked = false;
        return longestEventLoopBlock(
            [&] {
                QTest::mouseClick(status, Qt::LeftButton);
                clicked = true;
            },
            [&] { return clicked; }, EnablingGiveUpMilliseconds);
    };
    Samples samples = interleaved(rounds, enable, clickLabel);
    // The figure counts only if enabling did its real work: the menus are installed.
    QFile installed(qEnvironmentVariable("XDG_DATA_HOME") +
                    QStringLiteral("/brindlemark/installed-integration"));
    const QByteArray list =
        installed.open(QIODevice::ReadOnly) ? installed.readAll() : QByteArray();
    if (!list.contains("/nautilus-python/extensions/brindlemark_menu.py") ||
        !list.contains("/brindlemark-new-file.desktop"))
        throw Unmeasurable("enabling did not install the file managers' menus");
    return samples;
}

Samples crowdedFolderRounds(const QString& root, int rounds) {
    const QString crowded = root + QStringLiteral("/crowded");
    const QString empty = root + QStringLiteral("/empty");
    QDir().mkpath(crowded);
    QDir().mkpath(empty);
    const Template text{{"prefix", "New Text File"}, {"suffix", "txt"}};
    for (int n = 0; n <= 10'000; ++n) {
        QFile taken(crowded + (n == 0 ? QStringLiteral("/New Text File.txt")
                                      : QStringLiteral("/New Text File %1.txt").arg(n)));
        if (!taken.open(QIODevice::WriteOnly))
            throw Unmeasurable("cannot fill the crowded folder");
    }
    auto createIn = [&](const QString& folder) {
        FileCreation made;
        const double milliseconds =
            millisecondsOf([&] { made = createFileFromTemplate(text, folder); });
        if (made.status != FileCreation::Created)
            throw Unmeasurable("cannot create a file in " + folder.toStdString());
        QFile::remove(made.filePath);
        return milliseconds;
    };
    return interleaved(
        rounds, [&](int) { return createIn(crowded); }, [&](int) { return createIn(empty); });
}

// Every row, measured in an order that keeps them apart (the save comes before enabling the
// extension, whose Dolphin menus a save would then rewrite), printed in the table's order.
void measureAndPrint(const VirtualDisplay& display, const QString& root, int rounds) {
    const int memoryRounds = std::min(rounds, 7); // each round idles for 1.5 s per program
    const QString ms = QStringLiteral("ms");
    WindowMapWatch watch(display.name());
    const QString folder = root + QStringLiteral("/folder");
    QDir().mkpath(folder);

    const Row startUp =
        measureRow("start-up", ms, "bare Qt window program", {Goal::AtMostRatio, 1.5},
                   [&] { return startUpRounds(watch, rounds); });
    const Row memory =
        measureRow("idle memory", "MiB", "bare Qt window program", {Goal::AtMostRatio, 1.1},
                   [&] { return idleMemoryRounds(watch, memoryRounds); });
    const Row urlToFile =
        measureRow("URL to file", ms, "touch in the same folder", {Goal::AtMostRatio, 3},
                   [&] { return urlToFileRounds(watch, folder, rounds); });
    const Row contentToFile =
        measureRow("URL to file, 4 KiB content", ms, "cp of the same 4 KiB", {Goal::AtMostRatio, 2},
                   [&] { return urlToFileRounds(watch, folder, rounds, QByteArray(4096, 'x')); });
    const int burstRounds = std::min(rounds, 5); // each round makes 5,000 files
    const Row duringBurst =
        measureRow("URL during 5,000 URLs", ms, "URL to the idle instance",
                   {Goal::AtMostMilliseconds, BurstUrlGoalMilliseconds},
                   [&] { return urlAfterBurstRounds(watch, root, false, burstRounds); });
    const Row afterBurst =
        measureRow("URL after 5,000 URLs", ms, "URL to the idle instance",
                   {Goal::AtMostMilliseconds, BurstUrlGoalMilliseconds},
                   [&] { return urlAfterBurstRounds(watch, root, true, burstRounds); });
    const Row registryTool =
        measureRow("registry tool", ms, "/bin/true through runTool", {Goal::AtMostRatio, 1.2},
                   [&] { return registryToolRounds(rounds); });

    // The in-process rows: the controller as the application runs it, and a second one whose
    // tools all do nothing. Their windows stay hidden until the rows that click and edit in one.
    BuiltToolsPlatform platform;
    DoNothingToolsPlatform doNothingPlatform;
    AppDelegate delegate(platform);
    AppDelegate doNothingDelegate(doNothingPlatform);
    for (AppDelegate* launching : {&delegate, &doNothingDelegate}) {
        launching->setHandledURLLaunch(true);
        launching->applicationDidFinishLaunching();
    }
    const Row trayMenu = measureRow(
        "tray menu", ms, "menu with /bin/true as registry", {Goal::AtMostMilliseconds, 8},
        [&] { return trayMenuRounds(delegate, doNothingDelegate, rounds); });
    delegate.showWindow();
    const QWindow* shown = delegate.window()->windowHandle();
    if (!processEventsUntil([&] { return shown && shown->isExposed(); }, GiveUpMilliseconds))
        std::fprintf(stderr,
                     "bench: the window was not exposed; the rows that use it go on regardless\n");
    const Row save = measureRow("save after one table edit", ms, "writeFileAtomically, one file",
                                {Goal::AtMostRatio, 4},
                                [&] { return saveRounds(delegate, platform, root, rounds); });
    const Row enable =
        measureRow("Enable Extension", ms, "click on a QLabel", {Goal::AtMostMilliseconds, 60},
                   [&] { return enableExtensionRounds(delegate, rounds); });
    const Row crowded = measureRow("crowded folder", ms, "create in an empty folder", {},
                                   [&] { return crowdedFolderRounds(root, rounds); });

    std::printf("Brindlemark benchmarks: medians of interleaved rounds with their baselines\n");
    printTable({startUp, registryTool, trayMenu, enable, save, memory, urlToFile, contentToFile,
                duringBurst, afterBurst, crowded});
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(1, QByteArray(argv[1]).toInt()) : 31;
    QTemporaryDir home;
    const QString root = home.path();
    useTemporaryHome(root);
    try {
        // The children and this process itself (menus, window, clicks) all use the benchmark's
        // own X server, through xcb as on a desktop; it runs before the application connects.
        const VirtualDisplay display((root + QStringLiteral("/xvfb.log")).toStdString());
        qputenv("DISPLAY", QByteArray::fromStdString(display.name()));
        qputenv("QT_QPA_PLATFORM", "xcb");
        QApplication application(argc, argv);
        // As the application sets itself up, so that the menus and the window look up the same
        // icons and draw in the same style here.
        setUpApplication(application);
        measureAndPrint(display, root, rounds);
    } catch (const Unmeasurable& problem) {
        std::fprintf(stderr, "bench: %s\n", problem.what());
        return 1;
    }
    return 0;
}
