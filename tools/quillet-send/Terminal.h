// The little terminal handling quillet-send needs.
#ifndef QUILLET_SEND_TERMINAL_H
#define QUILLET_SEND_TERMINAL_H

#include <QString>

namespace send {

enum Stream { StandardInput, StandardOutput, StandardError };

/// True when the stream is connected to a terminal.
bool isTerminal(Stream stream);

/// Writes prompt to standard error and reads one line from standard input
/// with echo turned off; the line end is not part of the result. False at
/// the end of input.
bool readHiddenLine(const QString &prompt, QString *line);

} // namespace send

#endif
