#pragma once

// Runs quillet-send the way a user does and captures what it printed.
// Every wait is bounded.

#include "mailto/FakeProgram.h"

#include <QProcessEnvironment>
#include <QStringList>

struct ToolResult
{
    bool finished = false; //!< false: killed after the time-out
    int exitCode = -1;
    QString out;
    QString err;

    //! The stdout lines that report an outcome ("job J: CODE TEXT").
    QStringList outcomeLines() const;
    QString describe() const; //!< for failure messages
};

//! The test's own environment without the program roots, a display, or a
//! password other than the one given.
QProcessEnvironment toolEnvironment(const QString& password = QString());

ToolResult runTool(const QStringList& arguments, const QProcessEnvironment& environment = toolEnvironment(),
                   const QByteArray& input = QByteArray(), int timeoutMs = 60000);
