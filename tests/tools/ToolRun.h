#pragma once

// Runs the quillet-send program the way a user does and captures what it
// printed. Every wait is bounded.

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

struct ToolResult
{
    bool finished = false;  //!< false: killed after the time-out
    int exitCode = -1;
    QString out;
    QString err;

    //! The stdout lines that report an outcome ("job J: CODE TEXT").
    QStringList outcomeLines() const;
    //! For failure messages.
    QString describe() const;
};

//! The environment a test run starts from: the test's own, without the
//! password variable and the program roots, so nothing leaks in.
QProcessEnvironment toolEnvironment();

ToolResult runTool(const QStringList& arguments,
                   const QProcessEnvironment& environment = toolEnvironment(),
                   const QByteArray& input = QByteArray(), int timeoutMs = 60000);

//! Writes bytes to a file; false when that fails.
bool writeFile(const QString& path, const QByteArray& bytes);
//! Deterministic bytes of every value, for attachments.
QByteArray patternBytes(int size, int seed);
