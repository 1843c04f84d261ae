#include "Measurement.h"

#include "ChildProcess.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>
#include <cstdio>

namespace brindlemark::bench {

double median(QList<double> values) {
    if (values.isEmpty())
        return 0;
    std::sort(values.begin(), values.end());
    const qsizetype n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

double millisecondsOf(const std::function<void()>& work) {
    QElapsedTimer clock;
    clock.start();
    work();
    return clock.nsecsElapsed() / 1e6;
}

Samples interleaved(int rounds, const std::function<double(int)>& measured,
                    const std::function<double(int)>& baseline, int warmUps) {
    for (int round = -warmUps; round < 0; ++round) {
        measured(round);
        baseline(round);
    }
    Samples samples;
    for (int round = 0; round < rounds; ++round) {
        if (round % 2 == 0) {
            samples.measured << measured(round);
            samples.baseline << baseline(round);
        } else {
            samples.baseline << baseline(round);
            samples.measured << measured(round);
        }
    }
    return samples;
}

bool processEventsUntil(const std::function<bool()>& done, int limitMilliseconds) {
    const QDeadlineTimer deadline(limitMilliseconds);
    QTimer wake; // ends the last sleep at the deadline
    wake.setSingleShot(true);
    wake.start(limitMilliseconds);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

void processEventsFor(int milliseconds) {
    processEventsUntil([] { return false; }, milliseconds);
}

double longestEventLoopBlock(const std::function<void()>& action,
                             const std::function<bool()>& finished, int limitMilliseconds) {
    QElapsedTimer clock;
    qint64 lastTick = 0;
    qint64 longest = 0;
    auto tick = [&] {
        const qint64 now = clock.nsecsElapsed();
        longest = std::max(longest, now - lastTick);
        lastTick = now;
    };
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setInterval(1);
    QObject::connect(&ticker, &QTimer::timeout, tick);
    ticker.start();
    clock.start();
    QMetaObject::invokeMethod(QCoreApplication::instance(), action, Qt::QueuedConnection);
    if (!processEventsUntil(finished, limitMilliseconds))
        throw Unmeasurable("not finished after " + std::to_string(limitMilliseconds / 1000) + " s");
    tick();
    return longest / 1e6;
}

Row measureRow(const QString& what, const QString& unit, const QString& baselineName, Goal goal,
               const std::function<Samples()>& measure) {
    std::fprintf(stderr, "bench: %s\n", qPrintable(what));
    Row row{what, unit, baselineName, goal, {}, {}};
    try {
        row.samples = measure();
    } catch (const Unmeasurable& problem) {
        row.problem = QString::fromStdString(problem.what());
    }
    return row;
}

namespace {

QString goalText(const Goal& goal, double value, double ratio) {
    switch (goal.kind) {
    case Goal::None:
        return QStringLiteral("(no goal)");
    case Goal::AtMostRatio:
        return QStringLiteral("<= %1x %2")
            .arg(goal.limit)
            .arg(ratio <= goal.limit ? "met" : "NOT MET");
    case Goal::AtMostMilliseconds:
        return QStringLiteral("<= %1 ms %2")
            .arg(goal.limit)
            .arg(value <= goal.limit ? "met" : "NOT MET");
    }
    return {};
}

} // namespace

void printTable(const QList<Row>& rows) {
    std::printf("%-26s %10s      %-34s %10s      %8s  %-18s %s\n", "row", "median", "baseline",
                "median", "ratio", "goal", "runs");
    for (const Row& row : rows) {
        if (!row.problem.isEmpty()) {
            std::printf("%-26s not measured: %s\n", qPrintable(row.what), qPrintable(row.problem));
            continue;
        }
        const double value = median(row.samples.measured);
        const double baseline = median(row.samples.baseline);
        const double ratio = baseline > 0 ? value / baseline : 0;
        std::printf("%-26s %10.3f %-4s %-34s %10.3f %-4s %8.2f  %-18s %lld\n", qPrintable(row.what),
                    value, qPrintable(row.unit), qPrintable(row.baselineName), baseline,
                    qPrintable(row.unit), ratio, qPrintable(goalText(row.goal, value, ratio)),
                    static_cast<long long>(row.samples.measured.size()));
    }
}

} // namespace brindlemark::bench
