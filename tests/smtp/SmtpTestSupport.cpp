#include "SmtpTestSupport.h"

#include <QCoreApplication>
#include <QEvent>

SentRecorder::SentRecorder(oru::SmtpClient* client)
{
    connect(client, SIGNAL(sent(oru::constEMailPtr, int, QString, int)), this,
            SLOT(record(oru::constEMailPtr, int, QString, int)));
}

QList<SentReport> SentRecorder::take()
{
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    return reports;
}

void SentRecorder::record(oru::constEMailPtr mail, int responseCode, const QString& message, int jobId)
{
    reports << SentReport{mail, responseCode, message, jobId};
}

QStringList steps(const QString& joined)
{
    return joined.split(QLatin1Char('|'));
}

oru::EMail textMessage(const QString& from, const QStringList& to, const QString& subject)
{
    oru::EMail mail;
    mail.from = oru::MailAddress(from);
    mail.to << to;
    mail.subject = subject;
    mail.plainTextContent().setPlainText(QStringLiteral("Hello world"), "utf-8");
    return mail;
}

oru::SmtpAccess peerAccess(quint16 port)
{
    return oru::SmtpAccess(QStringLiteral("127.0.0.1"), int(port), QString(), QString());
}

Played play(const QStringList& script, const QList<oru::EMail>& mails, const ClientSetup& setup,
            ScriptedSmtpPeer::Mode mode)
{
    Played played;
    ScriptedSmtpPeer peer(mode);
    if (!peer.setScript(script) || !peer.start()) {
        played.diagnosis = "server did not start: " + peer.failure().toLocal8Bit();
        return played;
    }
    oru::SmtpClient client(peerAccess(peer.port()));
    SentRecorder recorder(&client);  // first, so that it sees reports a setup's receiver throws on
    if (setup)
        setup(client);
    played.id = client.send(mails);
    played.waitResult = client.waitForSent(played.id, 20000);
    if (played.waitResult == -2)  // the client must outlive its job
        client.waitForSent(played.id, -1);
    peer.waitForFinished(10000);
    played.reports = recorder.take();
    static_cast<ScriptedSmtpPeer::ConnectionResult&>(played) = peer.connection(0);
    played.diagnosis = "server: " + peer.failure().toLocal8Bit() + "\nreceived:\n" + played.received.left(2000);
    return played;
}
