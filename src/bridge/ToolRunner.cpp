#include "bridge/ToolRunner.h"

#include <QFileInfo>
#include <QProcess>
#include <QStringDecoder>

namespace brindlemark {

namespace {

QString utf8OrEmpty(const QByteArray& bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    return decoder.hasError() ? QString("") : text;
}

} // namespace

QString runTool(const QString& path, const QStringList& arguments, int timeoutMilliseconds)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(path, arguments);
    if (!process.waitForStarted(-1)) {
        const QString reason = process.errorString();
        return reason.isEmpty() ? QStringLiteral("Command failed.") : reason;
    }
    process.closeWriteChannel();

    // waitForFinished() keeps reading the pipe while it waits, so a tool that prints more than
    // a pipe holds cannot stall on a full pipe.
    if (!process.waitForFinished(timeoutMilliseconds)) {
        process.kill();
        process.waitForFinished(-1);
        const QString soFar = utf8OrEmpty(process.readAll());
        return soFar + (soFar.isEmpty() || soFar.endsWith(u'\n') ? "" : "\n") +
               QStringLiteral("%1 did not finish within %2 seconds and was stopped.")
                   .arg(QFileInfo(path).fileName(), QString::number(timeoutMilliseconds / 1000.0));
    }
    return utf8OrEmpty(process.readAll());
}

} // namespace brindlemark
