#include "PeerSession_p.h"

#include "TestCertificate.h"

#include <QThread>

#ifdef Q_OS_LINUX
#include <poll.h>
#endif

namespace {

const int kSliceMs = 50;
const int kCloseGraceMs = 1000;

int slice(const QDeadlineTimer& deadline)
{
    return int(qBound<qint64>(1, deadline.remainingTime(), kSliceMs));
}

// Bytes as C-style text for failure messages, cut after 200.
QString printable(const QByteArray& bytes)
{
    QString text;
    for (const char c : bytes.left(200)) {
        if (c == '\r' || c == '\n' || c == '\\')
            text += QLatin1String(c == '\r' ? "\\r" : c == '\n' ? "\\n" : "\\\\");
        else if (uchar(c) < 0x20 || uchar(c) >= 0x7f)
            text += QStringLiteral("\\x%1").arg(uchar(c), 2, 16, QLatin1Char('0'));
        else
            text += QLatin1Char(c);
    }
    return bytes.size() > 200 ? text + QStringLiteral("... (%1 bytes)").arg(bytes.size()) : text;
}

} // namespace

PeerSession::PeerSession(int stepTimeout, const std::atomic<bool>& stop)
    : m_stepTimeout(stepTimeout)
    , m_stop(stop)
{
}

void PeerSession::run(qintptr descriptor, bool implicitTls, const QVector<PeerStep>& steps)
{
    if (!m_socket.setSocketDescriptor(descriptor)) {
        m_result.failure = QStringLiteral("cannot take the connection: %1").arg(m_socket.errorString());
        return;
    }
    const QString tlsProblem = implicitTls ? handshake(QDeadlineTimer(m_stepTimeout)) : QString();
    if (!tlsProblem.isEmpty())
        m_result.failure = QStringLiteral("TLS from the first byte: %1").arg(tlsProblem);
    while (tlsProblem.isEmpty() && m_result.stepsPlayed < steps.size()
           && runStep(steps.at(m_result.stepsPlayed), m_result.stepsPlayed + 1))
        ++m_result.stepsPlayed;
    m_result.completed = tlsProblem.isEmpty() && m_result.stepsPlayed == steps.size();
    closeConnection();
    m_result.encrypted = m_tls;
}

QString PeerSession::outcomeText(Outcome outcome) const
{
    if (outcome == Outcome::Closed)
        return QStringLiteral("the client closed the connection");
    if (outcome == Outcome::TimedOut)
        return QStringLiteral("timed out after %1 ms").arg(m_stepTimeout);
    return QStringLiteral("the peer was stopped");
}

bool PeerSession::runStep(const PeerStep& step, int number)
{
    const QDeadlineTimer deadline(m_stepTimeout);
    QString problem;
    switch (step.kind) {
    case PeerStep::Send:
        problem = sendAll(step.bytes.repeated(int(step.count)), deadline);
        break;
    case PeerStep::Expect:
    case PeerStep::ExpectAny:
    case PeerStep::ExpectOptional: {
        QByteArray line;
        const Outcome outcome = readLine(deadline, &line);
        if (outcome == Outcome::Closed && step.kind == PeerStep::ExpectOptional && line.isEmpty())
            return true;
        const QString wanted = step.kind == PeerStep::ExpectAny
            ? QStringLiteral("a line")
            : QStringLiteral("\"%1\"").arg(printable(step.bytes));
        if (outcome != Outcome::Data) {
            problem = QStringLiteral("expected %1, but %2").arg(wanted, outcomeText(outcome));
            if (!line.isEmpty())
                problem += QStringLiteral(" (partial line \"%1\")").arg(printable(line));
            break;
        }
        m_result.clientLines.append(QString::fromLatin1(line.chopped(line.endsWith("\r\n") ? 2 : 1)));
        if (step.kind != PeerStep::ExpectAny && line != step.bytes + "\r\n")
            problem = QStringLiteral("expected %1, got \"%2\"").arg(wanted, printable(line));
        break;
    }
    case PeerStep::ReadData: {
        QByteArray body;
        const Outcome outcome = readData(deadline, &body);
        if (outcome == Outcome::Data)
            m_result.data.append(body);
        else
            problem = QStringLiteral("expected a message ending in \"\\r\\n.\\r\\n\", but %1 after %2 bytes")
                          .arg(outcomeText(outcome))
                          .arg(m_buffer.size() - m_pos);
        break;
    }
    case PeerStep::Wait:
        for (const QDeadlineTimer until(step.count); !until.hasExpired() && !m_stop;)
            QThread::msleep(ulong(slice(until)));
        break;
    case PeerStep::Close:
        closeConnection();
        break;
    case PeerStep::StartTls:
        // Plain bytes already read after the command are not part of the TLS
        // stream. Nothing more is read here: what comes now may already be
        // the client's first handshake record.
        m_buffer.clear();
        m_pos = 0;
        problem = handshake(deadline);
        break;
    case PeerStep::ExpectClose:
        for (Outcome outcome = Outcome::Data; outcome != Outcome::Closed;) {
            outcome = readMore(deadline);
            if (outcome == Outcome::TimedOut)
                problem = QStringLiteral("the client did not close within %1 ms").arg(m_stepTimeout);
            if (outcome == Outcome::TimedOut || outcome == Outcome::Stopped)
                break;
        }
        break;
    case PeerStep::Stall:
        stall(deadline);
        break;
    }
    if (problem.isEmpty() && m_stop)
        problem = outcomeText(Outcome::Stopped);
    if (problem.isEmpty())
        return true;
    m_result.failure = QStringLiteral("step %1 \"%2\": %3").arg(number).arg(step.source, problem);
    return false;
}

void PeerSession::takeAvailable()
{
    const QByteArray chunk = m_socket.readAll();
    m_buffer.append(chunk);
    m_result.received.append(chunk);
    if (m_tls)
        m_result.receivedAfterTls.append(chunk);
}

PeerSession::Outcome PeerSession::readMore(const QDeadlineTimer& deadline)
{
    for (;;) {
        if (m_stop)
            return Outcome::Stopped;
        if (m_socket.bytesAvailable() > 0) {
            takeAvailable();
            return Outcome::Data;
        }
        if (!isConnected())
            return Outcome::Closed;
        if (deadline.hasExpired())
            return Outcome::TimedOut;
        m_socket.waitForReadyRead(slice(deadline));
    }
}

// Moves the read position to end and drops consumed bytes now and then.
void PeerSession::consume(int end)
{
    m_pos = end;
    if (m_pos * 2 >= m_buffer.size()) {
        m_buffer.remove(0, m_pos);
        m_pos = 0;
    }
}

PeerSession::Outcome PeerSession::readLine(const QDeadlineTimer& deadline, QByteArray* line)
{
    for (int from = m_pos;;) {
        const int end = m_buffer.indexOf('\n', from);
        if (end >= 0) {
            *line = m_buffer.mid(m_pos, end + 1 - m_pos);
            consume(end + 1);
            return Outcome::Data;
        }
        from = m_buffer.size();
        const Outcome outcome = readMore(deadline);
        if (outcome != Outcome::Data) {
            *line = m_buffer.mid(m_pos);
            return outcome;
        }
    }
}

PeerSession::Outcome PeerSession::readData(const QDeadlineTimer& deadline, QByteArray* body)
{
    for (int from = m_pos;;) {
        // An empty body: the terminating line comes first.
        if (m_buffer.size() - m_pos >= 3 && m_buffer.mid(m_pos, 3) == ".\r\n") {
            body->clear();
            consume(m_pos + 3);
            return Outcome::Data;
        }
        const int end = m_buffer.indexOf("\r\n.\r\n", from);
        if (end >= 0) {
            *body = m_buffer.mid(m_pos, end + 2 - m_pos);
            consume(end + 5);
            return Outcome::Data;
        }
        from = qMax(m_pos, m_buffer.size() - 4);
        const Outcome outcome = readMore(deadline);
        if (outcome != Outcome::Data)
            return outcome;
    }
}

QString PeerSession::sendAll(const QByteArray& bytes, const QDeadlineTimer& deadline)
{
    if (!isConnected())
        return QStringLiteral("cannot send: the connection is closed");
    if (m_socket.write(bytes) != bytes.size())
        return QStringLiteral("write failed: %1").arg(m_socket.errorString());
    while (m_socket.bytesToWrite() > 0 || m_socket.encryptedBytesToWrite() > 0) {
        if (m_stop)
            return outcomeText(Outcome::Stopped);
        if (!isConnected())
            return QStringLiteral("the client closed the connection while %1 bytes were being sent").arg(bytes.size());
        if (deadline.hasExpired())
            return QStringLiteral("could not send %1 bytes within %2 ms (%3 still queued)")
                .arg(bytes.size())
                .arg(m_stepTimeout)
                .arg(m_socket.bytesToWrite() + m_socket.encryptedBytesToWrite());
        m_socket.waitForBytesWritten(slice(deadline));
    }
    return QString();
}

QString PeerSession::handshake(const QDeadlineTimer& deadline)
{
    const TestCertificate& certificate = TestCertificate::shared();
    if (!certificate.isValid())
        return QStringLiteral("no TLS certificate: %1").arg(certificate.error());
    if (!isConnected())
        return QStringLiteral("cannot start TLS: the connection is closed");
    m_socket.setLocalCertificate(certificate.certificate());
    m_socket.setPrivateKey(certificate.key());
    m_socket.setPeerVerifyMode(QSslSocket::VerifyNone);
    m_socket.startServerEncryption();
    while (!m_socket.isEncrypted()) {
        if (m_stop)
            return outcomeText(Outcome::Stopped);
        if (!isConnected() || m_socket.error() == QAbstractSocket::SslHandshakeFailedError)
            return QStringLiteral("TLS handshake failed: %1").arg(m_socket.errorString());
        if (deadline.hasExpired())
            return QStringLiteral("TLS handshake timed out after %1 ms").arg(m_stepTimeout);
        m_socket.waitForEncrypted(slice(deadline));
    }
    m_tls = true;
    return QString();
}

void PeerSession::stall(const QDeadlineTimer& deadline)
{
    while (!m_stop && !deadline.hasExpired() && isConnected()) {
#ifdef Q_OS_LINUX
        // Watch for the client's close on the descriptor itself, so that
        // nothing is read from the socket meanwhile.
        pollfd watch{int(m_socket.socketDescriptor()), POLLRDHUP, 0};
        if (watch.fd < 0 || (::poll(&watch, 1, slice(deadline)) > 0 && (watch.revents & (POLLRDHUP | POLLHUP | POLLERR))))
            return;
#else
        QThread::msleep(ulong(slice(deadline)));
#endif
    }
}

void PeerSession::closeConnection()
{
    // Reading what has arrived first keeps the kernel from answering the
    // close with a reset, which could discard our last reply at the client.
    takeAvailable();
    if (m_socket.state() == QAbstractSocket::UnconnectedState)
        return;
    m_socket.disconnectFromHost();
    for (const QDeadlineTimer grace(kCloseGraceMs);
         m_socket.state() != QAbstractSocket::UnconnectedState && !grace.hasExpired() && !m_stop;)
        m_socket.waitForDisconnected(slice(grace));
    takeAvailable();
    if (m_socket.state() != QAbstractSocket::UnconnectedState)
        m_socket.abort();
}
