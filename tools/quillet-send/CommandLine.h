// Command-line parsing, help and usage texts of quillet-send.
#ifndef QUILLET_SEND_COMMANDLINE_H
#define QUILLET_SEND_COMMANDLINE_H

#include "SendOptions.h"

#include <QString>
#include <QStringList>

namespace send {

/// Exit status of a run: every message accepted (or the hand-off started),
/// something refused or failed, or a bad command line.
enum ExitStatus { ExitOk = 0, ExitFailed = 1, ExitUsage = 2 };

struct ParseResult
{
    enum Action { Run, ShowHelp, ShowVersion, Error };
    Action action = Run;
    QString error;  // for Error: names the offending argument
    SendOptions options;
};

/// Parses the arguments (program name first). Checks what can be checked
/// without touching files or the network: known options, values present,
/// numbers in range, options that exclude each other.
ParseResult parseCommandLine(const QStringList &arguments);

/// The full --help text: every option with an example.
QString helpText();
/// The short usage lines printed after a command-line error.
QString usageText();

/// Prints "quillet-send: <error>" and the usage to standard error and
/// returns ExitUsage.
int usageError(const QString &error);

} // namespace send

#endif
