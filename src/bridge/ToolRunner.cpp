#include "bridge/ToolRunner.h"

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QProcess>
#include <QStringDecoder>
#include <QTimer>

namespace brindlemark {

namespace {

QString utf8OrEmpty(const QByteArray& bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    return decoder.hasError() ? QString("") : text;
}

void startProcess(QProcess& process, const QString& path, const QStringList& arguments)
{
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(path, arguments);
}

QString startFailure(const QProcess& process)
{
    const QString reason = process.errorString();
    return reason.isEmpty() ? QStringLiteral("Command failed.") : reason;
}

QString stoppedOutput(const QString& path, const QByteArray& soFar, int timeoutMilliseconds)
{
    const QString text = utf8OrEmpty(soFar);
    return text + (text.isEmpty() || text.endsWith(u'\n') ? "" : "\n") +
           QStringLiteral("%1 did not finish within %2 seconds and was stopped.")
               .arg(QFileInfo(path).fileName(), QString::number(timeoutMilliseconds / 1000.0));
}

} // namespace

QString runTool(const QString& path, const QStringList& arguments, int timeoutMilliseconds)
{
    QProcess process;
    startProcess(process, path, arguments);
    if (!process.waitForStarted(-1))
        return startFailure(process);
    process.closeWriteChannel();

    // waitForFinished() keeps reading the pipe while it waits, so a tool that prints more than
    // a pipe holds cannot stall on a full pipe.
    if (!process.waitForFinished(timeoutMilliseconds)) {
        process.kill();
        process.waitForFinished(-1);
        return stoppedOutput(path, process.readAll(), timeoutMilliseconds);
    }
    return utf8OrEmpty(process.readAll());
}

ToolSequence::ToolSequence(std::function<void()> finished, int timeoutMilliseconds)
    : m_finished(std::move(finished)), m_timeoutMilliseconds(timeoutMilliseconds)
{
}

ToolSequence::~ToolSequence()
{
    if (!m_process)
        return;
    // Installing or removing the menus is left to end rather than cut off halfway through.
    m_process->disconnect();
    m_process->waitForFinished(int(m_timeout->remainingTime()));
}

void ToolSequence::append(const QString& path, const QStringList& arguments, Done done)
{
    m_steps.append({path, arguments, std::move(done)});
}

void ToolSequence::start()
{
    if (!m_process)
        startNext();
}

void ToolSequence::startNext()
{
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
    QObject::connect(m_process.get(), &QProcess::readyRead, m_process.get(), [this] { m_output += m_process->readAll(); });
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
        finishStep(m_timeout->isActive() ? utf8OrEmpty(m_output)
                                         : stoppedOutput(m_steps.constFirst().path, m_output, m_timeoutMilliseconds));
    });
    QObject::connect(m_timeout.get(), &QTimer::timeout, m_process.get(), [this] { m_process->kill(); });
    m_timeout->start(m_timeoutMilliseconds);
    startProcess(*m_process, step.path, step.arguments);
    m_process->closeWriteChannel();
}

void ToolSequence::finishStep(const QString& output)
{
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
