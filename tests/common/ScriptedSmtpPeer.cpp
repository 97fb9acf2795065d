#include "ScriptedSmtpPeer.h"

#include "PeerScript_p.h"
#include "PeerSession_p.h"
#include "TestCertificate.h"

#include <QDeadlineTimer>
#include <QMutex>
#include <QMutexLocker>
#include <QSslSocket>
#include <QTcpServer>
#include <QThread>
#include <QWaitCondition>

namespace {

const int kSliceMs = 50;
const int kStartTimeoutMs = 10000;

// Hands accepted descriptors to the caller instead of making QTcpSockets,
// so that each connection can become a server-side QSslSocket.
class DescriptorServer : public QTcpServer
{
public:
    QList<qintptr> pending;

protected:
    void incomingConnection(qintptr descriptor) override { pending.append(descriptor); }
};

void dropDescriptor(qintptr descriptor)
{
    QTcpSocket socket;
    if (socket.setSocketDescriptor(descriptor))
        socket.abort();
}

} // namespace

class ScriptedSmtpPeer::Private
{
public:
    explicit Private(Mode m) : mode(m) {}

    void run(const PeerSession::Settings& settings);
    bool needsTls() const;

    // Set before start(), read-only afterwards.
    const Mode mode;
    QVector<PeerStep> steps;
    QString scriptError;
    int connections = 1;
    int stepTimeout = 5000;
    int acceptTimeout = 10000;

    std::atomic<bool> stop{false};
    std::unique_ptr<QThread> thread;

    // Shared with the peer's thread, guarded by mutex.
    mutable QMutex mutex;
    QWaitCondition startDone;
    bool started = false;
    bool finished = false;
    QString startError;
    quint16 port = 0;
    QList<ConnectionResult> results;
    QString acceptFailure;
};

bool ScriptedSmtpPeer::Private::needsTls() const
{
    if (mode == Smtps)
        return true;
    for (const PeerStep& step : steps) {
        if (step.kind == PeerStep::StartTls)
            return true;
    }
    return false;
}

void ScriptedSmtpPeer::Private::run(const PeerSession::Settings& settings)
{
    DescriptorServer server;
    const bool listening = server.listen(QHostAddress::LocalHost, 0);
    {
        QMutexLocker lock(&mutex);
        started = true;
        port = server.serverPort();
        if (!listening) {
            startError = QStringLiteral("cannot listen on 127.0.0.1: %1").arg(server.errorString());
            finished = true;
        }
        startDone.wakeAll();
    }
    if (!listening)
        return;

    for (int i = 0; i < connections; ++i) {
        const QDeadlineTimer deadline(acceptTimeout);
        while (server.pending.isEmpty() && !stop && !deadline.hasExpired())
            server.waitForNewConnection(int(qBound<qint64>(1, deadline.remainingTime(), kSliceMs)));
        if (server.pending.isEmpty()) {
            QMutexLocker lock(&mutex);
            acceptFailure = stop ? QStringLiteral("stopped while waiting for connection %1").arg(i + 1)
                                 : QStringLiteral("connection %1 did not come within %2 ms")
                                       .arg(i + 1)
                                       .arg(acceptTimeout);
            break;
        }

        QSslSocket socket;
        PeerSession session(&socket, settings, stop);
        if (!socket.setSocketDescriptor(server.pending.takeFirst())) {
            ConnectionResult failed;
            failed.failure = QStringLiteral("cannot take the connection: %1").arg(socket.errorString());
            QMutexLocker lock(&mutex);
            results.append(failed);
            continue;
        }
        if (mode != Smtps || session.startImplicitTls())
            session.play(steps);
        QMutexLocker lock(&mutex);
        results.append(session.result());
    }

    server.close();
    for (const qintptr descriptor : qAsConst(server.pending))
        dropDescriptor(descriptor);
    QMutexLocker lock(&mutex);
    finished = true;
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
    d->steps.clear();
    d->scriptError.clear();
    return parsePeerScript(steps, &d->steps, &d->scriptError);
}

bool ScriptedSmtpPeer::setScript(const QString& script)
{
    QStringList lines = script.split(QLatin1Char('\n'));
    for (QString& line : lines) {
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
    }
    return setScript(lines);
}

void ScriptedSmtpPeer::setConnections(int count)
{
    if (d->thread)
        return;
    d->connections = qMax(1, count);
}

void ScriptedSmtpPeer::setStepTimeout(int ms)
{
    if (d->thread)
        return;
    d->stepTimeout = qMax(1, ms);
}

void ScriptedSmtpPeer::setAcceptTimeout(int ms)
{
    if (d->thread)
        return;
    d->acceptTimeout = qMax(1, ms);
}

bool ScriptedSmtpPeer::start()
{
    if (d->thread || !d->scriptError.isEmpty())
        return false;

    PeerSession::Settings settings;
    settings.stepTimeout = d->stepTimeout;
    if (d->needsTls()) {
        const TestCertificate& certificate = TestCertificate::shared();
        if (!certificate.isValid()) {
            QMutexLocker lock(&d->mutex);
            d->startError = QStringLiteral("no TLS certificate: %1").arg(certificate.error());
            return false;
        }
        settings.certificate = certificate.certificate();
        settings.key = certificate.key();
    }

    Private* p = d.get();
    d->thread.reset(QThread::create([p, settings] { p->run(settings); }));
    d->thread->start();

    QMutexLocker lock(&d->mutex);
    const QDeadlineTimer deadline(kStartTimeoutMs);
    while (!d->started && !deadline.hasExpired())
        d->startDone.wait(&d->mutex, deadline);
    if (!d->started) {
        d->startError = QStringLiteral("the peer's thread did not start within %1 ms").arg(kStartTimeoutMs);
        return false;
    }
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

bool ScriptedSmtpPeer::isFinished() const
{
    QMutexLocker lock(&d->mutex);
    return d->finished;
}

bool ScriptedSmtpPeer::scriptCompleted() const
{
    QMutexLocker lock(&d->mutex);
    if (!d->finished || !d->acceptFailure.isEmpty() || d->results.size() != d->connections)
        return false;
    for (const ConnectionResult& result : d->results) {
        if (!result.completed)
            return false;
    }
    return true;
}

QString ScriptedSmtpPeer::failure() const
{
    QMutexLocker lock(&d->mutex);
    if (!d->scriptError.isEmpty())
        return d->scriptError;
    if (!d->startError.isEmpty())
        return d->startError;
    for (int i = 0; i < d->results.size(); ++i) {
        const QString& failure = d->results.at(i).failure;
        if (failure.isEmpty())
            continue;
        if (d->connections > 1)
            return QStringLiteral("connection %1: %2").arg(i + 1).arg(failure);
        return failure;
    }
    return d->acceptFailure;
}

QByteArray ScriptedSmtpPeer::received() const
{
    QMutexLocker lock(&d->mutex);
    QByteArray all;
    for (const ConnectionResult& result : d->results)
        all += result.received;
    return all;
}

QByteArray ScriptedSmtpPeer::receivedAfterTls() const
{
    QMutexLocker lock(&d->mutex);
    QByteArray all;
    for (const ConnectionResult& result : d->results)
        all += result.receivedAfterTls;
    return all;
}

QStringList ScriptedSmtpPeer::clientLines() const
{
    QMutexLocker lock(&d->mutex);
    QStringList all;
    for (const ConnectionResult& result : d->results)
        all += result.clientLines;
    return all;
}

QList<QByteArray> ScriptedSmtpPeer::data() const
{
    QMutexLocker lock(&d->mutex);
    QList<QByteArray> all;
    for (const ConnectionResult& result : d->results)
        all += result.data;
    return all;
}

QByteArray ScriptedSmtpPeer::data(int i) const
{
    return data().value(i);
}

int ScriptedSmtpPeer::connectionCount() const
{
    QMutexLocker lock(&d->mutex);
    return d->results.size();
}

ScriptedSmtpPeer::ConnectionResult ScriptedSmtpPeer::connection(int i) const
{
    QMutexLocker lock(&d->mutex);
    return d->results.value(i);
}
