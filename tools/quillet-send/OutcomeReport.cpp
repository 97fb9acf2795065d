#include "OutcomeReport.h"

#include "Terminal.h"

#include <QMutexLocker>

namespace send {

namespace {

const char kClearLine[] = "\r\033[K";

} // namespace

OutcomeReport::OutcomeReport(int expected, std::FILE *output, bool progress)
    : m_expected(expected)
    , m_output(output)
    , m_progress(progress)
    , m_outputOnTerminal(output == stdout && isTerminal(StandardOutput))
{
}

void OutcomeReport::record(int jobId, int code, const QString &text, bool accepted)
{
    // Server replies carry their line end; one outcome is one line.
    QString shown = text.trimmed();
    shown.replace(QLatin1Char('\r'), QLatin1Char(' '));
    shown.replace(QLatin1Char('\n'), QLatin1Char(' '));

    QMutexLocker lock(&m_mutex);
    if (accepted)
        ++m_accepted;
    else
        ++m_failures;
    if (m_progress && m_outputOnTerminal)
        std::fputs(kClearLine, stderr);
    const QByteArray line = QStringLiteral("job %1: %2 %3\n").arg(jobId).arg(code).arg(shown).toLocal8Bit();
    std::fwrite(line.constData(), 1, size_t(line.size()), m_output);
    if (m_progress) {
        if (m_outputOnTerminal)
            std::fflush(m_output);
        drawProgress(m_outputOnTerminal || m_accepted + m_failures >= m_expected);
    }
}

void OutcomeReport::drawProgress(bool force)
{
    if (!force && m_sinceDrawn.isValid() && m_sinceDrawn.elapsed() < 100)
        return;
    m_sinceDrawn.start();
    std::fprintf(stderr, "%ssent %d of %d", kClearLine, m_accepted, m_expected);
    if (m_failures > 0)
        std::fprintf(stderr, ", %d failed", m_failures);
    std::fflush(stderr);
}

void OutcomeReport::finish()
{
    QMutexLocker lock(&m_mutex);
    if (m_progress)
        std::fputs(kClearLine, stderr);
    std::fflush(m_output);
}

int OutcomeReport::accepted() const
{
    QMutexLocker lock(&m_mutex);
    return m_accepted;
}

int OutcomeReport::failures() const
{
    QMutexLocker lock(&m_mutex);
    return m_failures;
}

bool OutcomeReport::allAccepted() const
{
    QMutexLocker lock(&m_mutex);
    return m_accepted == m_expected;
}

} // namespace send
