#include "ScriptedSmtpPeer.h"

#include "PeerSession_p.h"
#include "TestCertificate.h"

#include <QMutex>
#include <QSemaphore>
#include <QTcpServer>
#include <QThread>

#include <algorithm>

namespace {

// Keeps accepted descriptors, so that each can become a server-side QSslSocket.
class DescriptorServer : public QTcpServer
{
public:
    QList<qintptr> pending;

protected:
    void incomingConnection(qintptr descriptor) override { pending.append(descriptor); }
};

} // namespace

class ScriptedSmtpPeer::Private
{
public:
    explicit Private(Mode m) : mode(m) {}
    void run();

    template <typename T>
    T joined(T ConnectionResult::*member) const
    {
        QMutexLocker lock(&mutex);
        T all;
        for (const ConnectionResult& result : results)
            all += result.*member;
        return all;
    }

    // Fixed once the peer's thread runs.
    const Mode mode;
    QVector<PeerStep> steps;
    QString scriptError;
    int connections = 1;
    int stepTimeout = 5000;
    int acceptTimeout = 10000;
    std::atomic<bool> stop{false};
    std::unique_ptr<QThread> thread;

    // Shared with the peer's thread.
    mutable QMutex mutex;
    QSemaphore listening;
    QString startError;
    QString acceptFailure;
    quint16 port = 0;
    QList<ConnectionResult> results;
};

void ScriptedSmtpPeer::Private::run()
{
    DescriptorServer server;
    const bool ok = server.listen(QHostAddress::LocalHost, 0);
    {
        QMutexLocker lock(&mutex);
        port = server.serverPort();
        if (!ok)
            startError = QStringLiteral("cannot listen on 127.0.0.1: %1").arg(server.errorString());
    }
    listening.release();
    if (!ok)
        return;

    for (int i = 0; i < connections; ++i) {
        const QDeadlineTimer deadline(acceptTimeout);
        while (server.pending.isEmpty() && !stop && !deadline.hasExpired())
            server.waitForNewConnection(int(qBound<qint64>(1, deadline.remainingTime(), 50)));
        if (server.pending.isEmpty()) {
            QMutexLocker lock(&mutex);
            acceptFailure = stop ? QStringLiteral("stopped while waiting for connection %1").arg(i + 1)
                                 : QStringLiteral("connection %1 did not come within %2 ms").arg(i + 1).arg(acceptTimeout);
            break;
        }
        PeerSession session(stepTimeout, stop);
        session.run(server.pending.takeFirst(), mode == Smtps, steps);
        QMutexLocker lock(&mutex);
        results.append(session.result());
    }

    server.close();
    for (const qintptr descriptor : qAsConst(server.pending)) {
        QTcpSocket extra;
        if (extra.setSocketDescriptor(descriptor))
            extra.abort();
    }
}

ScriptedSmtpPeer::ScriptedSmtpPeer(Mode mode)
    : d(new Private(mode))
{
}

ScriptedSmtpPeer::~ScriptedSmtpPeer()
{
    d->stop = true;
    if (d->thread)
        d->thread->wait();
}

bool ScriptedSmtpPeer::setScript(const QStringList& steps)
{
    if (d->thread)
        return false;
    d->scriptError.clear();
    return parsePeerScript(steps, &d->steps, &d->scriptError);
}

void ScriptedSmtpPeer::setConnections(int count)
{
    if (!d->thread)
        d->connections = qMax(1, count);
}

void ScriptedSmtpPeer::setStepTimeout(int ms)
{
    if (!d->thread)
        d->stepTimeout = qMax(1, ms);
}

void ScriptedSmtpPeer::setAcceptTimeout(int ms)
{
    if (!d->thread)
        d->acceptTimeout = qMax(1, ms);
}

bool ScriptedSmtpPeer::start()
{
    if (d->thread || !d->scriptError.isEmpty())
        return false;
    const bool tls = d->mode == Smtps || std::any_of(d->steps.cbegin(), d->steps.cend(), [](const PeerStep& s) {
                         return s.kind == PeerStep::StartTls;
                     });
    // Made here rather than in the middle of a handshake.
    if (tls && !TestCertificate::shared().isValid()) {
        d->startError = QStringLiteral("no TLS certificate: %1").arg(TestCertificate::shared().error());
        return false;
    }

    Private* p = d.get();
    d->thread.reset(QThread::create([p] { p->run(); }));
    d->thread->start();
    const bool started = d->listening.tryAcquire(1, 10000);
    QMutexLocker lock(&d->mutex);
    if (!started)
        d->startError = QStringLiteral("the peer's thread did not start within 10 s");
    return d->startError.isEmpty();
}

quint16 ScriptedSmtpPeer::port() const
{
    QMutexLocker lock(&d->mutex);
    return d->port;
}

bool ScriptedSmtpPeer::waitForFinished(int ms)
{
    return d->thread && d->thread->wait(QDeadlineTimer(ms));
}

bool ScriptedSmtpPeer::scriptCompleted() const
{
    if (!d->thread || !d->thread->isFinished())
        return false;
    QMutexLocker lock(&d->mutex);
    return d->acceptFailure.isEmpty() && d->results.size() == d->connections
        && std::all_of(d->results.cbegin(), d->results.cend(), [](const ConnectionResult& r) { return r.completed; });
}

QString ScriptedSmtpPeer::failure() const
{
    QMutexLocker lock(&d->mutex);
    if (!d->scriptError.isEmpty() || !d->startError.isEmpty())
        return d->scriptError + d->startError;
    for (int i = 0; i < d->results.size(); ++i) {
        const QString& failure = d->results.at(i).failure;
        if (!failure.isEmpty())
            return d->connections > 1 ? QStringLiteral("connection %1: %2").arg(i + 1).arg(failure) : failure;
    }
    return d->acceptFailure;
}

QByteArray ScriptedSmtpPeer::received() const
{
    return d->joined(&ConnectionResult::received);
}

QByteArray ScriptedSmtpPeer::receivedAfterTls() const
{
    return d->joined(&ConnectionResult::receivedAfterTls);
}

QStringList ScriptedSmtpPeer::clientLines() const
{
    return d->joined(&ConnectionResult::clientLines);
}

QList<QByteArray> ScriptedSmtpPeer::data() const
{
    return d->joined(&ConnectionResult::data);
}

QByteArray ScriptedSmtpPeer::data(int i) const
{
    return data().value(i);
}

ScriptedSmtpPeer::ConnectionResult ScriptedSmtpPeer::connection(int i) const
{
    QMutexLocker lock(&d->mutex);
    return d->results.value(i);
}
