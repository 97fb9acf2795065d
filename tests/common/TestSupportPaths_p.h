#pragma once

// Where the helper scripts and Debian's python3 are. The build passes both;
// the environment variable QUILLET_PYTHON3 overrides the interpreter.

#include <QDir>
#include <QString>

inline QString testSupportPython()
{
    const QString configured = qEnvironmentVariable("QUILLET_PYTHON3");
    if (!configured.isEmpty())
        return configured;
    return QStringLiteral(QUILLET_TESTSUPPORT_PYTHON);
}

inline QString testSupportScript(const QString& name)
{
    return QDir(QStringLiteral(QUILLET_TESTSUPPORT_SCRIPTS_DIR)).filePath(name);
}
