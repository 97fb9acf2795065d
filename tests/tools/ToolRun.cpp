#include "ToolRun.h"

#include <QFile>
#include <QProcess>

QStringList ToolResult::outcomeLines() const
{
    QStringList lines;
    const QStringList all = out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString& line : all) {
        if (line.startsWith(QLatin1String("job ")))
            lines << line;
    }
    return lines;
}

QString ToolResult::describe() const
{
    return QStringLiteral("finished %1, exit %2\n--- stdout\n%3--- stderr\n%4")
        .arg(finished)
        .arg(exitCode)
        .arg(out, err);
}

QProcessEnvironment toolEnvironment()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"QUILLET_PASSWORD", "ProgramFiles", "ProgramFiles(x86)", "DISPLAY", "WAYLAND_DISPLAY"})
        environment.remove(QLatin1String(name));
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    return environment;
}

ToolResult runTool(const QStringList& arguments, const QProcessEnvironment& environment,
                   const QByteArray& input, int timeoutMs)
{
    ToolResult result;
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(QUILLET_SEND_PROGRAM), arguments);
    if (!process.waitForStarted(10000)) {
        result.err = process.errorString();
        return result;
    }
    if (!input.isEmpty())
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

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

QByteArray patternBytes(int size, int seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = quint32(seed) * 2654435761u + 1;
    for (int i = 0; i < size; ++i) {
        state = state * 1103515245u + 12345u;
        bytes[i] = char(state >> 24);
    }
    return bytes;
}
