#include "AiosmtpdServer.h"

#include "TestCertificate.h"
#include "TestSupportPaths_p.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

namespace {

const int kStopMs = 5000;
const int kKillMs = 2000;
const int kSliceMs = 50;

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class AiosmtpdServer::Private
{
public:
    QString messagePath(int number, const char* suffix) const
    {
        return QDir(outDir()).filePath(QStringLiteral("msg-%1.%2").arg(number).arg(QLatin1String(suffix)));
    }
    QString outDir() const { return dir.filePath(QStringLiteral("out")); }
    QString logPath() const { return dir.filePath(QStringLiteral("server.log")); }

    Options options;
    QTemporaryDir dir;
    QProcess process;
    quint16 port = 0;
    QString error;
};

AiosmtpdServer::AiosmtpdServer()
    : d(new Private)
{
}

AiosmtpdServer::AiosmtpdServer(const Options& options)
    : d(new Private)
{
    d->options = options;
}

AiosmtpdServer::~AiosmtpdServer()
{
    stop();
}

bool AiosmtpdServer::start()
{
    if (d->process.state() != QProcess::NotRunning) {
        d->error = QStringLiteral("already started");
        return false;
    }
    if (!d->dir.isValid()) {
        d->error = QStringLiteral("no temporary directory: %1").arg(d->dir.errorString());
        return false;
    }

    QStringList arguments{testSupportScript(QStringLiteral("aiosmtpd_server.py")),
                          QStringLiteral("--out"), d->outDir(),
                          QStringLiteral("--max-seconds"), QString::number(d->options.maxSeconds)};
    if (d->options.starttls || d->options.smtps) {
        const TestCertificate& certificate = TestCertificate::shared();
        if (!certificate.isValid()) {
            d->error = QStringLiteral("no TLS certificate: %1").arg(certificate.error());
            return false;
        }
        arguments << (d->options.smtps ? QStringLiteral("--smtps") : QStringLiteral("--starttls"))
                  << QStringLiteral("--cert") << certificate.certificatePath()
                  << QStringLiteral("--key") << certificate.keyPath();
    }
    if (!d->options.user.isEmpty())
        arguments << QStringLiteral("--auth-login") << d->options.user + QLatin1Char(':') + d->options.password;
    if (d->options.lineLimit > 0)
        arguments << QStringLiteral("--line-limit") << QString::number(d->options.lineLimit);

    // stderr goes to a file so that a chatty server can never block on a
    // full pipe that nobody reads.
    d->process.setStandardErrorFile(d->logPath());
    d->process.start(testSupportPython(), arguments);
    if (!d->process.waitForStarted(d->options.startTimeoutMs)) {
        d->error = QStringLiteral("cannot run %1: %2").arg(testSupportPython(), d->process.errorString());
        return false;
    }

    const QDeadlineTimer deadline(d->options.startTimeoutMs);
    while (!d->process.canReadLine()) {
        if (d->process.state() == QProcess::NotRunning || deadline.hasExpired()) {
            d->error = QStringLiteral("the server did not report its port: %1").arg(log());
            stop();
            return false;
        }
        d->process.waitForReadyRead(int(qBound<qint64>(1, deadline.remainingTime(), kSliceMs)));
    }
    const QByteArray line = d->process.readLine().trimmed();
    bool ok = false;
    if (line.startsWith("PORT "))
        d->port = quint16(line.mid(5).toUInt(&ok));
    if (!ok || d->port == 0) {
        d->error = QStringLiteral("unexpected first line \"%1\": %2").arg(QString::fromLatin1(line), log());
        d->port = 0;
        stop();
        return false;
    }
    return true;
}

void AiosmtpdServer::stop()
{
    if (d->process.state() == QProcess::NotRunning)
        return;
    d->process.closeWriteChannel();
    if (d->process.waitForFinished(kStopMs))
        return;
    d->process.terminate();
    if (d->process.waitForFinished(kKillMs))
        return;
    d->process.kill();
    d->process.waitForFinished(kKillMs);
}

bool AiosmtpdServer::isRunning() const
{
    // Without an event loop the process state changes only inside a wait.
    if (d->process.state() == QProcess::Running)
        d->process.waitForFinished(0);
    return d->process.state() == QProcess::Running;
}

QString AiosmtpdServer::error() const
{
    return d->error;
}

quint16 AiosmtpdServer::port() const
{
    return d->port;
}

int AiosmtpdServer::messageCount() const
{
    int count = 0;
    while (QFile::exists(d->messagePath(count + 1, "eml")))
        ++count;
    return count;
}

QList<QByteArray> AiosmtpdServer::messages() const
{
    QList<QByteArray> result;
    const int count = messageCount();
    result.reserve(count);
    for (int i = 1; i <= count; ++i)
        result.append(readFile(d->messagePath(i, "eml")));
    return result;
}

QList<AiosmtpdServer::Envelope> AiosmtpdServer::envelopes() const
{
    QList<Envelope> result;
    const int count = messageCount();
    result.reserve(count);
    for (int i = 1; i <= count; ++i) {
        const QJsonObject object = QJsonDocument::fromJson(readFile(d->messagePath(i, "json"))).object();
        Envelope envelope;
        envelope.mailFrom = object.value(QStringLiteral("mail_from")).toString();
        const QJsonArray recipients = object.value(QStringLiteral("rcpt_tos")).toArray();
        for (const QJsonValue& recipient : recipients)
            envelope.recipients.append(recipient.toString());
        result.append(envelope);
    }
    return result;
}

bool AiosmtpdServer::waitForMessages(int count, int ms) const
{
    const QDeadlineTimer deadline(ms);
    for (;;) {
        if (messageCount() >= count)
            return true;
        if (deadline.hasExpired())
            return false;
        QThread::msleep(ulong(qBound<qint64>(1, deadline.remainingTime(), kSliceMs)));
    }
}

QString AiosmtpdServer::outputDirectory() const
{
    return d->outDir();
}

QString AiosmtpdServer::log() const
{
    return QString::fromLocal8Bit(readFile(d->logPath()));
}
