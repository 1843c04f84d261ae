#include "bridge/ToolRunner.h"

#include <QFileInfo>
#include <QProcess>
#include <QStringDecoder>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <signal.h>
#include <unistd.h>
#include <vector>

namespace brindlemark {

namespace {

QString utf8OrEmpty(const QByteArray& bytes) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    return decoder.hasError() ? QString("") : text;
}

void startProcess(QProcess& process, const QString& path, const QStringList& arguments) {
    process.setProcessChannelMode(QProcess::MergedChannels);
    // Each tool leads a session of its own, so that whatever it starts can be stopped with it.
    process.setChildProcessModifier([] { ::setsid(); });
    process.start(path, arguments);
}

// The processes of a session that have not ended, as /proc lists them (where there is one).
std::vector<pid_t> sessionMembers(pid_t session) {
    std::vector<pid_t> members;
    DIR* processes = ::opendir("/proc");
    if (!processes)
        return members;
    while (const dirent* entry = ::readdir(processes)) {
        if (entry->d_name[0] < '1' || entry->d_name[0] > '9')
            continue;
        char path[300], line[512];
        std::snprintf(path, sizeof path, "/proc/%s/stat", entry->d_name);
        FILE* file = std::fopen(path, "re");
        if (!file)
            continue;
        line[std::fread(line, 1, sizeof line - 1, file)] = '\0';
        std::fclose(file);
        // "pid (name) state parent group session ...": the name may hold anything, parentheses too.
        const char* afterName = std::strrchr(line, ')');
        char state = 0;
        int parent = 0, group = 0, itsSession = 0;
        if (afterName &&
            std::sscanf(afterName + 1, " %c %d %d %d", &state, &parent, &group, &itsSession) == 4 &&
            itsSession == session && state != 'Z')
            members.push_back(pid_t(std::atoi(entry->d_name)));
    }
    ::closedir(processes);
    return members;
}

// Stops a tool that has not ended and everything it started: its process group, then the other
// groups in its session (the registry tool runs a bundle's step in a group of its own), until no
// process is left that has not been told to stop. Only a process that left the session is beyond
// reach.
void stopSession(qint64 tool) {
    const pid_t session = pid_t(tool);
    if (session <= 0)
        return;
    ::kill(-session, SIGKILL);
    ::kill(session, SIGKILL); // the tool itself, should it not lead its group after all
    std::vector<pid_t> stopped;
    for (int round = 0; round < 10; ++round) {
        bool more = false;
        for (const pid_t member : sessionMembers(session)) {
            if (std::find(stopped.begin(), stopped.end(), member) != stopped.end())
                continue;
            ::kill(member, SIGKILL);
            stopped.push_back(member);
            more = true;
        }
        if (!more)
            break;
    }
}

QString startFailure(const QProcess& process) {
    const QString reason = process.errorString();
    return reason.isEmpty() ? QStringLiteral("Command failed.") : reason;
}

QString stoppedOutput(const QString& path, const QByteArray& soFar, int timeoutMilliseconds) {
    const QString text = utf8OrEmpty(soFar);
    return text + (text.isEmpty() || text.endsWith(u'\n') ? "" : "\n") +
           QStringLiteral("%1 did not finish within %2 seconds and was stopped.")
               .arg(QFileInfo(path).fileName(), QString::number(timeoutMilliseconds / 1000.0));
}

} // namespace

QString runTool(const QString& path, const QStringList& arguments, int timeoutMilliseconds) {
    QProcess process;
    startProcess(process, path, arguments);
    if (!process.waitForStarted(-1))
        return startFailure(process);
    process.closeWriteChannel();

    // waitForFinished() keeps reading the pipe while it waits, so a tool that prints more than
    // a pipe holds cannot stall on a full pipe.
    if (!process.waitForFinished(timeoutMilliseconds)) {
        stopSession(process.processId());
        process.waitForFinished(-1);
        return stoppedOutput(path, process.readAll(), timeoutMilliseconds);
    }
    return utf8OrEmpty(process.readAll());
}

ToolSequence::ToolSequence(std::function<void()> finished, int timeoutMilliseconds)
    : m_finished(std::move(finished)), m_timeoutMilliseconds(timeoutMilliseconds) {}

ToolSequence::~ToolSequence() {
    if (!m_process)
        return;
    // Installing or removing the menus is left to end rather than cut off halfway through.
    m_process->disconnect();
    if (!m_process->waitForFinished(int(m_timeout->remainingTime())))
        stopSession(m_process->processId());
}

void ToolSequence::append(const QString& path, const QStringList& arguments, Done done) {
    m_steps.append({path, arguments, std::move(done)});
}

void ToolSequence::start() {
    if (!m_process)
        startNext();
}

void ToolSequence::startNext() {
    if (m_steps.isEmpty()) {
        if (m_finished)
            m_finished(); // last: it may delete this sequence
        return;
    }
    const Step& step = m_steps.constFirst();
    m_process = std::make_unique<QProcess>();
    m_timeout = std::make_unique<QTimer>();
    m_timeout->setSingleShot(true);
    m_output.clear();
    // The output is read while the tool runs, so a tool that prints more than a pipe holds
    // cannot stall on a full pipe.
    QObject::connect(m_process.get(), &QProcess::readyRead, m_process.get(),
                     [this] { m_output += m_process->readAll(); });
    // Queued: a start that fails at once reports it from inside start().
    QObject::connect(
        m_process.get(), &QProcess::errorOccurred, m_process.get(),
        [this](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart)
                finishStep(startFailure(*m_process));
        },
        Qt::QueuedConnection);
    QObject::connect(m_process.get(), &QProcess::finished, m_process.get(), [this] {
        m_output += m_process->readAll();
        finishStep(m_timeout->isActive()
                       ? utf8OrEmpty(m_output)
                       : stoppedOutput(m_steps.constFirst().path, m_output, m_timeoutMilliseconds));
    });
    QObject::connect(m_timeout.get(), &QTimer::timeout, m_process.get(),
                     [this] { stopSession(m_process->processId()); });
    m_timeout->start(m_timeoutMilliseconds);
    startProcess(*m_process, step.path, step.arguments);
    m_process->closeWriteChannel();
}

void ToolSequence::finishStep(const QString& output) {
    // The process is in the middle of telling its news: it goes once it has returned.
    m_timeout->stop();
    m_process->disconnect();
    m_process.release()->deleteLater();
    const Step step = m_steps.takeFirst();
    if (step.done)
        step.done(output);
    startNext();
}

} // namespace brindlemark
