#include "HostileScenario.h"

#include <QTcpServer>

using oru::SmtpClient;

namespace {

const int kWaitMs = 30000;  // the library's bound on each blocking wait
const int kQuickMs = 25000; // a job without a full wait ends before this
const int kBlockingSendMs = 1000;

QByteArray attachmentContent(int bytes, int i)
{
    QByteArray content(bytes, '\0');
    for (int n = 0; n < bytes; ++n)
        content[n] = char(n * 7 + (n >> 11) + i);
    return content;
}

} // namespace

oru::EMail keyedMessage(const QString& key, int attachmentBytes, int attachments)
{
    oru::EMail mail;
    mail.from = oru::MailAddress(QStringLiteral("a@example.org"));
    mail.to << QStringLiteral("b@example.org");
    mail.subject = key;
    mail[QStringLiteral("X-Test-Key")] = key;
    for (int i = 0; attachmentBytes > 0 && i < attachments; ++i)
        mail.attach(QStringLiteral("application/octet-stream")).content = attachmentContent(attachmentBytes, i);
    return mail;
}

QString messageKey(const oru::constEMailPtr& mail)
{
    return mail ? mail->headers.value(QStringLiteral("X-Test-Key")) : QString();
}

QStringList envelopeSteps()
{
    return ScriptedSmtpPeer::envelope(QStringLiteral("a@example.org"), {QStringLiteral("b@example.org")});
}

HostileRun::~HostileRun()
{
    // Stopping the peer first ends a job that is still talking to it; the
    // client must outlive its job.
    m_peer.reset();
    if (m_client && m_jobId)
        m_client->waitForSent(m_jobId, -1);
}

bool HostileRun::start(QString* problem)
{
    const QStringList words = m_scenario.client.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    QString host = QStringLiteral("127.0.0.1");
    int port = 25;
    if (words.contains(QLatin1String("refused"))) {
        QTcpServer server;
        server.listen(QHostAddress::LocalHost, 0);
        port = server.serverPort();
    } else if (words.contains(QLatin1String("no-dns"))) {
        host = QStringLiteral("no-such-host.invalid");
    } else {
        const bool tlsPeer = words.contains(QLatin1String("ssl")) && !words.contains(QLatin1String("plain-peer"));
        m_peer.reset(new ScriptedSmtpPeer(tlsPeer ? ScriptedSmtpPeer::Smtps : ScriptedSmtpPeer::Plain));
        // A stalling peer waits for the client's close, which comes only
        // after the library's own waits.
        m_peer->setStepTimeout(m_scenario.stalls > 0 ? 4 * kWaitMs : 10000);
        m_peer->setAcceptTimeout(20000);
        if (!m_peer->setScript(m_scenario.script) || !m_peer->start()) {
            *problem = QStringLiteral("the peer did not start: %1").arg(m_peer->failure());
            return false;
        }
        port = m_peer->port();
    }

    const bool auth = words.contains(QLatin1String("auth"));
    oru::SmtpAccess access(host, port, auth ? QStringLiteral("joe") : QString(), auth ? QStringLiteral("pw") : QString());
    access.ssl = words.contains(QLatin1String("ssl"));
    access.tls = m_starttls = words.contains(QLatin1String("starttls"));
    m_client.reset(new SmtpClient(access));
    if (words.contains(QLatin1String("cram")))
        m_client->useFeature(SmtpClient::AUTH_CRAM_MD5, true);
    QObject::connect(m_client.get(), &SmtpClient::sent,
                     [this](oru::constEMailPtr mail, int code, const QString& text, int jobId) {
                         QMutexLocker lock(&m_mutex);
                         m_reports << Report{mail, code, text, jobId, QThread::currentThread() == m_hostThread,
                                             m_clock.elapsed()};
                     });

    QList<oru::EMail> mails;
    for (int i = 0; i < m_scenario.messages; ++i)
        mails << keyedMessage(QStringLiteral("message %1").arg(i), m_scenario.attachmentBytes, m_scenario.attachments);
    m_clock.start();
    m_jobId = m_client->send(mails);
    m_sendMs = m_clock.elapsed();
    return true;
}

QString HostileRun::checkBodies() const
{
    if (!m_peer->waitForFinished(20000))
        return QStringLiteral("the peer did not finish");
    const QList<QByteArray> bodies = m_peer->data();
    if (bodies.isEmpty())
        return QStringLiteral("the peer took no message body");
    for (int b = 0; b < bodies.size(); ++b) {
        for (int i = 0; i < m_scenario.attachments; ++i) {
            if (!bodies.at(b).contains("\r\n" + attachmentContent(m_scenario.attachmentBytes, i).toBase64() + "\r\n"))
                return QStringLiteral("body %1 (%2 bytes) lacks attachment %3 whole").arg(b).arg(bodies.at(b).size()).arg(i);
        }
    }
    return QString();
}

// Plain text after STARTTLS would be read as replies by a server that
// takes it; only the TLS hello (a handshake record, 0x16) may follow.
QString HostileRun::checkClearText() const
{
    if (!m_peer->waitForFinished(20000))
        return QStringLiteral("the peer did not finish");
    const QByteArray clear = m_peer->received().chopped(m_peer->receivedAfterTls().size());
    const int end = clear.indexOf("STARTTLS\r\n") + 10;
    if (end >= 10 && clear.size() > end && clear.at(end) != '\x16')
        return QStringLiteral("plain text after STARTTLS: %1").arg(QString::fromLatin1(clear.mid(end, 40).toHex()));
    return QString();
}

QString HostileRun::check()
{
    QStringList problems;
    const qint64 bound = qint64(m_scenario.stalls) * kWaitMs + kQuickMs;
    const int waitResult = m_client->waitForSent(m_jobId, int(qMax<qint64>(1, bound - m_clock.elapsed())));
    if (waitResult == -2) {
        problems << QStringLiteral("the job was still running %1 ms after send()").arg(bound);
        // The client must outlive the job: give it a last chance, then stop
        // the process rather than destroy a client in use.
        m_peer.reset();
        if (m_client->waitForSent(m_jobId, 4 * kWaitMs) == -2)
            qFatal("%s: job %d never ended", qPrintable(m_scenario.name), m_jobId);
    } else if (waitResult != m_scenario.waitResult) {
        problems << QStringLiteral("waitForSent gave %1, expected %2").arg(waitResult).arg(m_scenario.waitResult);
    }
    if (m_client->responseCode(m_jobId) != m_scenario.waitResult)
        problems << QStringLiteral("responseCode gave %1").arg(m_client->responseCode(m_jobId));
    if (m_sendMs > kBlockingSendMs)
        problems << QStringLiteral("send() kept the host waiting for %1 ms").arg(m_sendMs);

    QMutexLocker lock(&m_mutex);
    QStringList got, texts;
    for (const Report& report : qAsConst(m_reports)) {
        const QString key = messageKey(report.mail);
        got << QString::number(report.code) + (report.mail ? QLatin1Char('@') + key.mid(8) : QString());
        texts << QStringLiteral("%1 \"%2\"").arg(report.code).arg(report.text.trimmed().left(80));
        if (report.jobId != m_jobId)
            problems << QStringLiteral("a report carried job id %1 instead of %2").arg(report.jobId).arg(m_jobId);
        if (report.onHostThread)
            problems << QStringLiteral("a report was emitted on the host's thread");
        if (report.code == -1 && report.text.isEmpty())
            problems << QStringLiteral("a connection failure came without the socket's error text");
    }
    if (got != m_scenario.reports)
        problems << QStringLiteral("reports [%1], expected [%2]; texts: %3")
                        .arg(got.join(QLatin1Char(' ')), m_scenario.reports.join(QLatin1Char(' ')), texts.join(", "));
    const qint64 lastMs = m_reports.isEmpty() ? 0 : m_reports.last().atMs;
    if (m_scenario.stalls > 0 && lastMs < qint64(m_scenario.stalls) * kWaitMs - 1000)
        problems << QStringLiteral("the last report came after %1 ms; the scenario means %2 full waits")
                        .arg(lastMs)
                        .arg(m_scenario.stalls);
    if (m_peer && m_scenario.attachmentBytes > 0 && !m_reports.isEmpty() && m_reports.last().code == 250)
        problems << checkBodies();
    if (m_peer && m_starttls)
        problems << checkClearText();
    problems.removeAll(QString());

    if (problems.isEmpty())
        return QString();
    const QString peerFailure = m_peer ? m_peer->failure() : QString();
    return m_scenario.name + QStringLiteral(": ") + problems.join(QStringLiteral("; "))
        + (peerFailure.isEmpty() ? QString() : QStringLiteral(" (peer: %1)").arg(peerFailure));
}
