#include "ToolRun.h"

#include <QProcess>
#include <QRegularExpression>

QStringList ToolResult::outcomeLines() const
{
    return out.split(QLatin1Char('\n')).filter(QRegularExpression(QStringLiteral("^job ")));
}

QString ToolResult::describe() const
{
    return QStringLiteral("finished %1, exit %2\n--- stdout\n%3--- stderr\n%4").arg(finished).arg(exitCode).arg(out, err);
}

QProcessEnvironment toolEnvironment(const QString& password)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"QUILLET_PASSWORD", "ProgramFiles", "ProgramFiles(x86)", "DISPLAY", "WAYLAND_DISPLAY"})
        environment.remove(QLatin1String(name));
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    if (!password.isEmpty())
        environment.insert(QStringLiteral("QUILLET_PASSWORD"), password);
    return environment;
}

ToolResult runTool(const QStringList& arguments, const QProcessEnvironment& environment, const QByteArray& input,
                   int timeoutMs)
{
    ToolResult result;
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(QUILLET_SEND_PROGRAM), arguments);
    if (!process.waitForStarted(10000)) {
        result.err = process.errorString();
        return result;
    }
    process.write(input);
    process.closeWriteChannel();
    result.finished = process.waitForFinished(timeoutMs);
    if (!result.finished) {
        process.kill();
        process.waitForFinished(5000);
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    result.err = QString::fromLocal8Bit(process.readAllStandardError());
    return result;
}
