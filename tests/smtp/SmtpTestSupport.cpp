#include "SmtpTestSupport.h"

#include "ScriptedSmtpPeer.h"

#include <QCoreApplication>
#include <QEvent>
#include <QTcpServer>

SentRecorder::SentRecorder(oru::SmtpClient* client)
{
    // Connected by signature, so that delivery relies on the registered
    // type names.
    connect(client, SIGNAL(sent(oru::constEMailPtr, int, QString, int)), this,
            SLOT(record(oru::constEMailPtr, int, QString, int)));
}

QList<SentReport> SentRecorder::take()
{
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    return reports;
}

QList<int> SentRecorder::codes()
{
    QList<int> result;
    for (const SentReport& report : take())
        result << report.code;
    return result;
}

void SentRecorder::record(oru::constEMailPtr mail, int responseCode, const QString& message,
                          int jobId)
{
    reports << SentReport{mail, responseCode, message, jobId};
}

oru::EMail textMessage(const QString& from, const QStringList& to, const QString& subject,
                       const QString& text)
{
    oru::EMail mail;
    mail.from = oru::MailAddress(from);
    mail.to << to;
    mail.subject = subject;
    mail.plainTextContent().setPlainText(text, "utf-8");
    return mail;
}

oru::SmtpAccess peerAccess(quint16 port)
{
    return oru::SmtpAccess(QStringLiteral("127.0.0.1"), int(port), QString(), QString());
}

JobOutcome runJob(oru::SmtpClient& client, SentRecorder& recorder, const QList<oru::EMail>& mails,
                  ScriptedSmtpPeer* peer)
{
    JobOutcome outcome;
    outcome.id = client.send(mails);
    outcome.waitResult = client.waitForSent(outcome.id, 20000);
    if (peer)
        peer->waitForFinished(10000);
    outcome.reports = recorder.take();
    return outcome;
}

QByteArray peerDiagnosis(const ScriptedSmtpPeer& peer)
{
    return (QStringLiteral("peer failure: ") + peer.failure() + QStringLiteral("\nreceived:\n")
            + QString::fromLatin1(peer.received().left(2000)))
        .toLocal8Bit();
}

quint16 closedPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    const quint16 port = server.serverPort();
    server.close();
    return port;
}
