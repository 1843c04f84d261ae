#pragma once

#include <QStringList>

#include <functional>
#include <memory>

class QProcess;
class QTimer;

namespace brindlemark {

// How long a tool may run before it is stopped. The tools Brindlemark runs end at once; the
// bound only keeps a tool that hangs from freezing the application.
inline constexpr int ToolTimeoutMilliseconds = 10'000;

// Runs the executable directly (no shell) with the arguments, each passed unchanged, waits for
// it and returns everything it wrote to standard output and standard error, merged in order.
// Output that is not UTF-8 gives "". A tool that cannot be started gives the reason, or
// "Command failed.". Each tool runs in a session of its own; one still running after
// `timeoutMilliseconds` is killed with every process of that session (what it started, in any
// process group), and the text is its output so far followed by a line saying it was stopped.
// Its standard input is empty.
QString runTool(const QString& path, const QStringList& arguments,
                int timeoutMilliseconds = ToolTimeoutMilliseconds);

// Tools run one after another without blocking the thread's event loop: each starts when the one
// before has ended, and its output, as runTool gives it, goes to its step's function. For work
// that runs several tools, some of them slow (installing the file-manager menus), while the
// window must go on answering.
class ToolSequence final {
public:
    using Done = std::function<void(const QString& output)>;

    // `finished` is called once the last step's function has run. Each tool has
    // `timeoutMilliseconds` to end, as with runTool.
    explicit ToolSequence(std::function<void()> finished = {},
                          int timeoutMilliseconds = ToolTimeoutMilliseconds);
    // A tool still running is given the rest of its time to end, not killed halfway through;
    // then it is stopped as at its limit.
    ~ToolSequence();
    ToolSequence(const ToolSequence&) = delete;
    ToolSequence& operator=(const ToolSequence&) = delete;

    void append(const QString& path, const QStringList& arguments, Done done = {});
    void start();

private:
    struct Step {
        QString path;
        QStringList arguments;
        Done done;
    };
    void startNext();
    void finishStep(const QString& output);

    QList<Step> m_steps;
    std::function<void()> m_finished;
    int m_timeoutMilliseconds;
    std::unique_ptr<QProcess> m_process;
    std::unique_ptr<QTimer> m_timeout;
    QByteArray m_output;
};

} // namespace brindlemark
