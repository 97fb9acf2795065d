#include "PeerSession_p.h"

#include <QSslSocket>
#include <QThread>

#include <limits>

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

// Bytes as a readable C-style text for failure messages, cut after 200.
QString printable(const QByteArray& bytes)
{
    const int limit = 200;
    const int shown = qMin(bytes.size(), limit);
    QString text;
    text.reserve(shown * 2 + 32);
    for (int i = 0; i < shown; ++i) {
        const uchar c = uchar(bytes.at(i));
        switch (c) {
        case '\r': text += QLatin1String("\\r"); break;
        case '\n': text += QLatin1String("\\n"); break;
        case '\t': text += QLatin1String("\\t"); break;
        case '\\': text += QLatin1String("\\\\"); break;
        default:
            if (c < 0x20 || c >= 0x7f)
                text += QStringLiteral("\\x%1").arg(c, 2, 16, QLatin1Char('0'));
            else
                text += QLatin1Char(char(c));
        }
    }
    if (bytes.size() > limit)
        text += QStringLiteral("... (%1 bytes)").arg(bytes.size());
    return text;
}

QByteArray withoutLineEnd(const QByteArray& line)
{
    if (line.endsWith("\r\n"))
        return line.left(line.size() - 2);
    if (line.endsWith('\n'))
        return line.left(line.size() - 1);
    return line;
}

} // namespace

PeerSession::PeerSession(QSslSocket* socket, const Settings& settings, const std::atomic<bool>& stop)
    : m_socket(socket)
    , m_settings(settings)
    , m_stop(stop)
{
}

QDeadlineTimer PeerSession::stepDeadline() const
{
    return QDeadlineTimer(m_settings.stepTimeout);
}

bool PeerSession::isConnected() const
{
    return m_socket->state() == QAbstractSocket::ConnectedState;
}

bool PeerSession::fail(int number, const PeerStep& step, const QString& what)
{
    m_result.failure = QStringLiteral("step %1 \"%2\": %3").arg(number).arg(step.source, what);
    return false;
}

QString PeerSession::outcomeText(Outcome outcome) const
{
    switch (outcome) {
    case Outcome::Closed:
        return QStringLiteral("the client closed the connection");
    case Outcome::TimedOut:
        return QStringLiteral("timed out after %1 ms").arg(m_settings.stepTimeout);
    case Outcome::Stopped:
        return QStringLiteral("the peer was stopped");
    case Outcome::Data:
        break;
    }
    return QString();
}

bool PeerSession::startImplicitTls()
{
    const QString problem = handshake(stepDeadline());
    if (problem.isEmpty())
        return true;
    m_result.failure = QStringLiteral("TLS from the first byte: %1").arg(problem);
    closeConnection();
    return false;
}

void PeerSession::play(const QVector<PeerStep>& steps)
{
    for (int i = 0; i < steps.size(); ++i) {
        if (!runStep(steps.at(i), i + 1))
            break;
        ++m_result.stepsPlayed;
    }
    m_result.completed = m_result.stepsPlayed == steps.size();
    closeConnection();
    m_result.encrypted = m_tls;
}

bool PeerSession::runStep(const PeerStep& step, int number)
{
    const QDeadlineTimer deadline = stepDeadline();
    switch (step.kind) {
    case PeerStep::Send:
    case PeerStep::SendRaw: {
        const QString problem = sendAll(step.bytes, deadline);
        return problem.isEmpty() || fail(number, step, problem);
    }
    case PeerStep::SendRepeated:
    case PeerStep::BigLine: {
        const QByteArray unit = step.kind == PeerStep::BigLine ? QByteArray("x") : step.bytes;
        if (unit.isEmpty() || step.count > std::numeric_limits<int>::max() / unit.size())
            return step.count == 0 || fail(number, step, QStringLiteral("too many bytes for one send"));
        QByteArray bytes;
        if (step.kind == PeerStep::BigLine) {
            bytes = QByteArray(int(step.count), 'x');
        } else {
            bytes.reserve(int(step.count) * unit.size());
            for (qint64 i = 0; i < step.count; ++i)
                bytes.append(unit);
        }
        const QString problem = sendAll(bytes, deadline);
        return problem.isEmpty() || fail(number, step, problem);
    }
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
            QString what = QStringLiteral("expected %1, but %2").arg(wanted, outcomeText(outcome));
            if (!line.isEmpty())
                what += QStringLiteral(" (partial line \"%1\")").arg(printable(line));
            return fail(number, step, what);
        }
        m_result.clientLines.append(QString::fromLatin1(withoutLineEnd(line)));
        if (step.kind != PeerStep::ExpectAny && line != step.bytes + "\r\n") {
            return fail(number, step,
                        QStringLiteral("expected %1, got \"%2\"").arg(wanted, printable(line)));
        }
        return true;
    }
    case PeerStep::ReadData: {
        QByteArray body;
        const Outcome outcome = readData(deadline, &body);
        if (outcome != Outcome::Data) {
            return fail(number, step, QStringLiteral("expected a message ending in \"\\r\\n.\\r\\n\", but %1 after %2 bytes")
                                          .arg(outcomeText(outcome))
                                          .arg(m_buffer.size() - m_pos));
        }
        m_result.data.append(body);
        return true;
    }
    case PeerStep::Wait: {
        const QDeadlineTimer until(step.count);
        while (!until.hasExpired()) {
            if (m_stop)
                return fail(number, step, outcomeText(Outcome::Stopped));
            QThread::msleep(ulong(slice(until)));
        }
        return true;
    }
    case PeerStep::Close:
        closeConnection();
        return true;
    case PeerStep::StartTls: {
        // Plain bytes already read after the command are not part of the TLS
        // stream. Nothing more is read here: what comes now may already be
        // the client's first handshake record.
        m_buffer.clear();
        m_pos = 0;
        const QString problem = handshake(deadline);
        return problem.isEmpty() || fail(number, step, problem);
    }
    case PeerStep::ExpectClose:
        if (waitForClientClose(deadline))
            return true;
        return fail(number, step, m_stop ? outcomeText(Outcome::Stopped)
                                         : QStringLiteral("the client did not close within %1 ms")
                                               .arg(m_settings.stepTimeout));
    case PeerStep::Stall:
        stall(deadline);
        return !m_stop || fail(number, step, outcomeText(Outcome::Stopped));
    }
    return fail(number, step, QStringLiteral("unhandled step"));
}

void PeerSession::takeAvailable()
{
    if (m_socket->bytesAvailable() <= 0)
        return;
    const QByteArray chunk = m_socket->readAll();
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
        if (m_socket->bytesAvailable() > 0) {
            takeAvailable();
            return Outcome::Data;
        }
        if (!isConnected())
            return Outcome::Closed;
        if (deadline.hasExpired())
            return Outcome::TimedOut;
        m_socket->waitForReadyRead(slice(deadline));
    }
}

void PeerSession::compactBuffer()
{
    if (m_pos > 0 && m_pos * 2 >= m_buffer.size()) {
        m_buffer.remove(0, m_pos);
        m_pos = 0;
    }
}

PeerSession::Outcome PeerSession::readLine(const QDeadlineTimer& deadline, QByteArray* line)
{
    int searchFrom = m_pos;
    for (;;) {
        const int end = m_buffer.indexOf('\n', searchFrom);
        if (end >= 0) {
            *line = m_buffer.mid(m_pos, end + 1 - m_pos);
            m_pos = end + 1;
            compactBuffer();
            return Outcome::Data;
        }
        searchFrom = m_buffer.size();
        const Outcome outcome = readMore(deadline);
        if (outcome != Outcome::Data) {
            *line = m_buffer.mid(m_pos);
            return outcome;
        }
    }
}

PeerSession::Outcome PeerSession::readData(const QDeadlineTimer& deadline, QByteArray* body)
{
    static const QByteArray kEnd("\r\n.\r\n");
    int searchFrom = m_pos;
    for (;;) {
        // An empty body: the terminating line comes first.
        if (m_buffer.size() - m_pos >= 3 && m_buffer.mid(m_pos, 3) == ".\r\n") {
            body->clear();
            m_pos += 3;
            compactBuffer();
            return Outcome::Data;
        }
        const int end = m_buffer.indexOf(kEnd, searchFrom);
        if (end >= 0) {
            *body = m_buffer.mid(m_pos, end + 2 - m_pos);
            m_pos = end + kEnd.size();
            compactBuffer();
            return Outcome::Data;
        }
        searchFrom = qMax(m_pos, m_buffer.size() - (kEnd.size() - 1));
        const Outcome outcome = readMore(deadline);
        if (outcome != Outcome::Data)
            return outcome;
    }
}

QString PeerSession::sendAll(const QByteArray& bytes, const QDeadlineTimer& deadline)
{
    if (!isConnected())
        return QStringLiteral("cannot send: the connection is closed");
    if (bytes.isEmpty())
        return QString();
    if (m_socket->write(bytes) != bytes.size())
        return QStringLiteral("write failed: %1").arg(m_socket->errorString());
    while (m_socket->bytesToWrite() > 0 || m_socket->encryptedBytesToWrite() > 0) {
        if (m_stop)
            return outcomeText(Outcome::Stopped);
        if (!isConnected())
            return QStringLiteral("the client closed the connection while %1 bytes were being sent")
                .arg(bytes.size());
        if (deadline.hasExpired()) {
            return QStringLiteral("could not send %1 bytes within %2 ms (%3 still queued)")
                .arg(bytes.size())
                .arg(m_settings.stepTimeout)
                .arg(m_socket->bytesToWrite() + m_socket->encryptedBytesToWrite());
        }
        m_socket->waitForBytesWritten(slice(deadline));
    }
    return QString();
}

QString PeerSession::handshake(const QDeadlineTimer& deadline)
{
    if (m_settings.certificate.isNull() || m_settings.key.isNull())
        return QStringLiteral("no TLS certificate available");
    if (!isConnected())
        return QStringLiteral("cannot start TLS: the connection is closed");
    m_socket->setLocalCertificate(m_settings.certificate);
    m_socket->setPrivateKey(m_settings.key);
    m_socket->setPeerVerifyMode(QSslSocket::VerifyNone);
    m_socket->startServerEncryption();
    while (!m_socket->isEncrypted()) {
        if (m_stop)
            return outcomeText(Outcome::Stopped);
        if (!isConnected() || m_socket->error() == QAbstractSocket::SslHandshakeFailedError)
            return QStringLiteral("TLS handshake failed: %1").arg(m_socket->errorString());
        if (deadline.hasExpired())
            return QStringLiteral("TLS handshake timed out after %1 ms").arg(m_settings.stepTimeout);
        m_socket->waitForEncrypted(slice(deadline));
    }
    m_tls = true;
    return QString();
}

bool PeerSession::waitForClientClose(const QDeadlineTimer& deadline)
{
    for (;;) {
        const Outcome outcome = readMore(deadline);
        if (outcome == Outcome::Closed)
            return true;
        if (outcome != Outcome::Data)
            return false;
    }
}

void PeerSession::stall(const QDeadlineTimer& deadline)
{
    while (!m_stop && !deadline.hasExpired() && isConnected()) {
#ifdef Q_OS_LINUX
        // Watch for the client's close on the descriptor itself, so that
        // nothing is read from the socket meanwhile.
        pollfd watch{int(m_socket->socketDescriptor()), POLLRDHUP, 0};
        if (watch.fd < 0)
            return;
        if (::poll(&watch, 1, slice(deadline)) > 0 && (watch.revents & (POLLRDHUP | POLLHUP | POLLERR)))
            return;
#else
        QThread::msleep(ulong(slice(deadline)));
#endif
    }
}

void PeerSession::closeConnection()
{
    if (m_socket->state() == QAbstractSocket::UnconnectedState) {
        takeAvailable();
        return;
    }
    // Reading what has arrived first keeps the kernel from answering the
    // close with a reset, which could discard our last reply at the client.
    takeAvailable();
    m_socket->disconnectFromHost();
    const QDeadlineTimer grace(kCloseGraceMs);
    while (m_socket->state() != QAbstractSocket::UnconnectedState && !grace.hasExpired() && !m_stop)
        m_socket->waitForDisconnected(slice(grace));
    takeAvailable();
    if (m_socket->state() != QAbstractSocket::UnconnectedState)
        m_socket->abort();
}
