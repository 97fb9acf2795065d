// Collects and prints the outcomes that the SMTP client reports.
#ifndef QUILLET_SEND_OUTCOMEREPORT_H
#define QUILLET_SEND_OUTCOMEREPORT_H

#include <QElapsedTimer>
#include <QMutex>
#include <QString>

#include <cstdio>

namespace send {

/// Receives every outcome of a run, from any thread. Each one is printed at
/// once as "job J: CODE TEXT" to the output stream (buffered by stdio).
/// With progress on, a line "sent A of N" is kept up to date on standard
/// error, redrawn at most ten times a second.
class OutcomeReport
{
public:
    OutcomeReport(int expected, std::FILE *output, bool progress);

    /// One outcome. accepted tells a message the server took from every
    /// other report (refusals, connection and TLS failures, exceptions).
    void record(int jobId, int code, const QString &text, bool accepted);

    /// Ends the progress line and flushes the output.
    void finish();

    int accepted() const;
    int failures() const;
    int expected() const { return m_expected; }
    /// True when every expected message was accepted.
    bool allAccepted() const;

private:
    void drawProgress(bool force);

    mutable QMutex m_mutex;
    const int m_expected;
    std::FILE *const m_output;
    const bool m_progress;
    const bool m_outputOnTerminal;
    int m_accepted = 0;
    int m_failures = 0;
    QElapsedTimer m_sinceDrawn;
};

} // namespace send

#endif
