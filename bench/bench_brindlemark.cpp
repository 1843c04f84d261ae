// Brindlemark's speed and memory, each figure the median of several runs, with its baseline
// measured in the same run where it has one:
//  - start-up until the window is shown and the instance answers;
//  - a URL handed to the running instance by a second launch, until the file exists, against
//    running `touch` on a file in the same folder;
//  - creating a file when the base name and the numbers 1 to 10,000 are taken, against creating
//    one in an empty folder;
//  - saving the templates to every place, against writing the same text to one file;
//  - opening the tray menu (the extension's state read from the registry tool, the New File
//    submenu rebuilt), against running /bin/true;
//  - the running application's resident memory when idle.
// Everything runs in a temporary home; nothing of the user's is touched.
#include "actions/FileCreation.h"
#include "app/AppDelegate.h"
#include "bridge/ToolRunner.h"
#include "templates/AtomicFile.h"
#include "Identifiers.h"
#include "platform/linux/InstanceChannel.h"
#include "platform/linux/LinuxPlatform.h"
#include "templates/TemplateStore.h"

#include <QApplication>
#include <QMenu>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <functional>

using namespace brindlemark;

namespace {

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    const qsizetype n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// Milliseconds for each of `runs` calls of `work`, after one warm-up call.
QList<double> timeRuns(int runs, const std::function<void(int)>& work)
{
    work(-1);
    QList<double> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        work(i);
        times << timer.nsecsElapsed() / 1e6;
    }
    return times;
}

bool runToEnd(QProcess& process, const QString& program, const QStringList& arguments)
{
    process.start(program, arguments);
    return process.waitForFinished(30'000) && process.exitCode() == 0;
}

void row(const char* what, double value, const char* baselineName, double baseline, const char* unit = "ms")
{
    if (baseline > 0)
        std::printf("%-46s %10.3f %s   %-28s %10.3f ms   ratio %7.2f\n", what, value, unit, baselineName,
                    baseline, value / baseline);
    else
        std::printf("%-46s %10.3f %s   %-28s\n", what, value, unit, baselineName);
}

// The platform of this machine, with the tools taken from the build.
class BuiltToolsPlatform final : public LinuxPlatform {
public:
    QString toolPath(Tool tool) override
    {
        return QStringLiteral(BRINDLEMARK_TOOLS_DIR "/") + QFileInfo(LinuxPlatform::toolPath(tool)).fileName();
    }
    QString builtInPlugInsPath() override { return QStringLiteral(BRINDLEMARK_TOOLS_DIR "/PlugIns"); }
};

double residentMegabytes(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
    return -1;
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QTemporaryDir home;
    const QString root = home.path();
    qputenv("HOME", root.toUtf8());
    qputenv("XDG_CONFIG_HOME", (root + "/config").toUtf8());
    qputenv("XDG_DATA_HOME", (root + "/data").toUtf8());
    QDir().mkpath(root + "/run");
    QFile::setPermissions(root + "/run", QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", (root + "/run").toUtf8());
    qunsetenv("DBUS_SESSION_BUS_ADDRESS");
    // The new files are shown through xdg-open: a silent one keeps the benchmark off the desktop.
    QDir().mkpath(root + "/bin");
    QFile opener(root + "/bin/xdg-open");
    opener.open(QIODevice::WriteOnly);
    opener.write("#!/bin/sh\nexit 0\n");
    opener.close();
    opener.setPermissions(opener.permissions() | QFileDevice::ExeOwner);
    qputenv("PATH", (root + "/bin:" + qEnvironmentVariable("PATH")).toUtf8());

    const int runs = argc > 1 ? QByteArray(argv[1]).toInt() : 31;
    const QString folder = root + "/folder";
    QDir().mkpath(folder);

    // URL to file through a running instance, against touch.
    QProcess instance;
    instance.start(BRINDLEMARK_EXECUTABLE, {});
    QElapsedTimer ready;
    ready.start();
    while (!QFile::exists(root + "/config/Brindlemark/Templates.json") && ready.elapsed() < 20'000)
        QThread::msleep(5);
    QThread::msleep(200);
    const QString touch = QStandardPaths::findExecutable("touch");
    const QList<double> viaUrl = timeRuns(runs, [&](int i) {
        const QString prefix = QStringLiteral("u%1").arg(i + 1);
        QProcess launch;
        if (!runToEnd(launch, BRINDLEMARK_EXECUTABLE,
                      {"brindlemark://template?path=" + folder + "&prefix=" + prefix + "&suffix=txt"}))
            qFatal("the forwarding launch failed");
        while (!QFile::exists(folder + "/" + prefix + ".txt"))
            QThread::usleep(100);
    });
    const QList<double> viaTouch = timeRuns(runs, [&](int i) {
        QProcess process;
        if (!runToEnd(process, touch, {folder + QStringLiteral("/t%1.txt").arg(i + 1)}))
            qFatal("touch failed");
    });
    instance.kill();
    instance.waitForFinished();

    // Creation when 10,000 numbered names are taken, against an empty folder.
    const QString crowded = root + "/crowded";
    const QString empty = root + "/empty";
    QDir().mkpath(crowded);
    QDir().mkpath(empty);
    const Template text{{"prefix", "New Text File"}, {"suffix", "txt"}};
    for (int n = 0; n <= 10'000; ++n) {
        QFile taken(crowded + (n == 0 ? QString("/New Text File.txt") : QStringLiteral("/New Text File %1.txt").arg(n)));
        taken.open(QIODevice::WriteOnly);
    }
    auto createAndRemove = [&](const QString& where) {
        const FileCreation made = createFileFromTemplate(text, where);
        if (made.status != FileCreation::Created)
            qFatal("creation failed");
        QFile::remove(made.filePath);
    };
    const QList<double> crowdedTimes = timeRuns(runs, [&](int) { createAndRemove(crowded); });
    const QList<double> emptyTimes = timeRuns(runs, [&](int) { createAndRemove(empty); });

    // Start-up: from starting the application until it answers a reopen, which it handles only
    // after the start-up sequence (window shown) has run.
    std::string problem;
    const std::string socket = channel::socketPath(ApplicationBundleIdentifier, problem);
    double rss = -1;
    const QList<double> startUps = timeRuns(qMin(runs, 15), [&](int i) {
        QProcess app;
        app.start(BRINDLEMARK_APP, {});
        while (channel::forward(socket, {}, 10'000) != channel::Forwarding::Delivered)
            QThread::usleep(200);
        if (i == 0) {
            QThread::msleep(1000); // idle
            rss = residentMegabytes(app.processId());
        }
        app.kill();
        app.waitForFinished();
    });

    // Saving to every place, and opening the tray menu, in this process.
    BuiltToolsPlatform platform;
    AppDelegate delegate(platform);
    delegate.setHandledURLLaunch(true);
    delegate.applicationDidFinishLaunching();
    const QByteArray savedText = templatesJSONText(delegate.templates()).toUtf8();
    const QList<double> saves = timeRuns(runs, [&](int) { delegate.saveTemplates(); });
    const QList<double> oneFile = timeRuns(runs, [&](int) { writeFileAtomically(root + "/one.json", savedText); });
    const QList<double> menus = timeRuns(runs, [&](int) { emit delegate.statusMenu()->aboutToShow(); });
    const QList<double> trues = timeRuns(runs, [&](int) { runTool(QStandardPaths::findExecutable("true"), {}); });

    std::printf("Brindlemark benchmarks, median of %d runs each\n", runs);
    row("start-up until the window is shown", median(startUps), "(no baseline)", 0);
    row("URL to file via the running instance", median(viaUrl), "touch in the same folder", median(viaTouch));
    row("create with the base name and 1..10000 taken", median(crowdedTimes), "create in an empty folder",
        median(emptyTimes));
    row("save the templates to all five places", median(saves), "write the text to one file", median(oneFile));
    row("open the tray menu (registry + submenu)", median(menus), "run /bin/true", median(trues));
    row("idle memory of the running application", rss, "(no baseline)", 0, "MB");
    return 0;
}
