#include "AiosmtpdServer.h"

#include "TestCertificate.h"
#include "TestSupportPaths_p.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

namespace {

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

QString AiosmtpdServer::file(int message, const char* suffix) const
{
    return m_dir.filePath(QStringLiteral("out/msg-%1.%2").arg(message).arg(QLatin1String(suffix)));
}

bool AiosmtpdServer::start()
{
    if (!m_dir.isValid() || m_process.state() != QProcess::NotRunning) {
        m_error = QStringLiteral("already started, or no temporary directory");
        return false;
    }
    QStringList arguments{testSupportScript(QStringLiteral("aiosmtpd_server.py")), "--out",
                          m_dir.filePath(QStringLiteral("out")), "--max-seconds", QString::number(m_options.maxSeconds),
                          "--line-limit", QString::number(m_options.lineLimit)};
    if (m_options.starttls || m_options.smtps) {
        const TestCertificate& certificate = TestCertificate::shared();
        if (!certificate.isValid()) {
            m_error = QStringLiteral("no TLS certificate: %1").arg(certificate.error());
            return false;
        }
        arguments << (m_options.smtps ? "--smtps" : "--starttls") << "--cert" << certificate.certificatePath()
                  << "--key" << certificate.keyPath();
    }
    if (!m_options.user.isEmpty())
        arguments << "--auth-login" << m_options.user + QLatin1Char(':') + m_options.password;

    // stderr goes to a file so that a chatty server never blocks on a pipe.
    m_process.setStandardErrorFile(m_dir.filePath(QStringLiteral("server.log")));
    m_process.start(testSupportPython(), arguments);
    const QDeadlineTimer deadline(20000);
    while (!m_process.canReadLine() && m_process.state() != QProcess::NotRunning && !deadline.hasExpired())
        m_process.waitForReadyRead(int(qBound<qint64>(1, deadline.remainingTime(), 50)));
    const QByteArray line = m_process.readLine().trimmed();
    bool ok = false;
    m_port = line.startsWith("PORT ") ? quint16(line.mid(5).toUInt(&ok)) : 0;
    if (ok && m_port != 0)
        return true;
    m_error = QStringLiteral("%1 did not report its port (\"%2\", %3): %4")
                  .arg(testSupportPython(), QString::fromLatin1(line), m_process.errorString(), log());
    m_port = 0;
    stop();
    return false;
}

void AiosmtpdServer::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.closeWriteChannel();
    if (m_process.waitForFinished(5000))
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(2000)) {
        m_process.kill();
        m_process.waitForFinished(2000);
    }
}

int AiosmtpdServer::messageCount() const
{
    int count = 0;
    while (QFile::exists(file(count + 1, "eml")))
        ++count;
    return count;
}

QList<QByteArray> AiosmtpdServer::messages() const
{
    QList<QByteArray> result;
    for (int i = 1, count = messageCount(); i <= count; ++i)
        result.append(readFile(file(i, "eml")));
    return result;
}

QList<AiosmtpdServer::Envelope> AiosmtpdServer::envelopes() const
{
    QList<Envelope> result;
    for (int i = 1, count = messageCount(); i <= count; ++i) {
        const QJsonObject object = QJsonDocument::fromJson(readFile(file(i, "json"))).object();
        Envelope envelope{object.value(QStringLiteral("mail_from")).toString(), {}};
        for (const QJsonValue& recipient : object.value(QStringLiteral("rcpt_tos")).toArray())
            envelope.recipients.append(recipient.toString());
        result.append(envelope);
    }
    return result;
}

bool AiosmtpdServer::waitForMessages(int count, int ms) const
{
    for (const QDeadlineTimer deadline(ms); messageCount() < count; QThread::msleep(50)) {
        if (deadline.hasExpired())
            return false;
    }
    return true;
}

QString AiosmtpdServer::log() const
{
    return QString::fromLocal8Bit(readFile(m_dir.filePath(QStringLiteral("server.log"))));
}
