#pragma once

#include <QList>
#include <QString>

#include <functional>

namespace brindlemark::bench {

double median(QList<double> values);

// The milliseconds one call of `work` takes.
double millisecondsOf(const std::function<void()>& work);

struct Samples {
    QList<double> measured, baseline;
};

// The measured work and its baseline, alternately: `warmUps` rounds that are not recorded, then
// `rounds` that are. Each call gets its round's number (negative in a warm-up) and gives its
// figure. Which of the two goes first changes from round to round, so that neither always runs
// after the other, and a machine that gets busier or quieter meanwhile affects both alike.
Samples interleaved(int rounds, const std::function<double(int round)>& measured,
                    const std::function<double(int round)>& baseline, int warmUps = 1);

// Processes this thread's events, sleeping while there are none, until `done` holds; false when
// it still does not after `limitMilliseconds`.
bool processEventsUntil(const std::function<bool()>& done, int limitMilliseconds);

// Processes events for that long: what a row's work left queued runs before the next round.
void processEventsFor(int milliseconds);

// The longest time, in milliseconds, that the event loop goes without running a 1 ms timer from
// the moment `action` is posted to it until `finished` holds: how long a user would find the
// window frozen. The time from the last tick to the finish counts too, so that work which blocks
// until it is finished shows in full. Throws Unmeasurable after `limitMilliseconds`.
double longestEventLoopBlock(const std::function<void()>& action,
                             const std::function<bool()>& finished, int limitMilliseconds);

// What a row must reach: a ratio to its baseline, or a number of milliseconds.
struct Goal {
    enum Kind { None, AtMostRatio, AtMostMilliseconds };
    Kind kind = None;
    double limit = 0;
};

struct Row {
    QString what;
    QString unit; // of the figure and of its baseline
    QString baselineName;
    Goal goal;
    Samples samples;
    QString problem; // why the row could not be measured; empty when it was
};

// Measures a row; an Unmeasurable thrown by `measure` becomes the row's problem.
Row measureRow(const QString& what, const QString& unit, const QString& baselineName, Goal goal,
               const std::function<Samples()>& measure);

// One line per row: the medians, the ratio, and the goal with whether it is met.
void printTable(const QList<Row>& rows);

} // namespace brindlemark::bench
