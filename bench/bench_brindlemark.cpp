// Speed of the URL path, each figure the median of several runs with its baseline measured in
// the same run:
//  - a URL handed to the running instance by a second launch, until the file exists, against
//    running `touch` on a file in the same folder;
//  - creating a file when the base name and the numbers 1 to 10,000 are taken, against creating
//    one in an empty folder.
// Everything runs in a temporary home; nothing of the user's is touched.
#include "actions/FileCreation.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
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

void row(const char* what, double value, const char* baselineName, double baseline)
{
    std::printf("%-46s %10.3f ms   %-28s %10.3f ms   ratio %6.2f\n", what, value, baselineName, baseline,
                value / baseline);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QTemporaryDir home;
    const QString root = home.path();
    qputenv("HOME", root.toUtf8());
    qputenv("XDG_CONFIG_HOME", (root + "/config").toUtf8());
    qputenv("XDG_DATA_HOME", (root + "/data").toUtf8());
    QDir().mkpath(root + "/run");
    QFile::setPermissions(root + "/run", QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", (root + "/run").toUtf8());
    qputenv("QT_QPA_PLATFORM", "offscreen");
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

    std::printf("Brindlemark benchmarks, median of %d runs each\n", runs);
    row("URL to file via the running instance", median(viaUrl), "touch in the same folder", median(viaTouch));
    row("create with the base name and 1..10000 taken", median(crowdedTimes), "create in an empty folder",
        median(emptyTimes));
    return 0;
}
