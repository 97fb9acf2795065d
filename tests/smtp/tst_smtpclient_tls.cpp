// Encrypted sessions against the scripted server with a throwaway
// certificate: SSL from the first byte and the STARTTLS upgrade.

#include "ScriptedSmtpPeer.h"
#include "SmtpTestSupport.h"
#include "TestCertificate.h"

#include "smtp/SmtpClient.h"

#include <QSslSocket>
#include <QtTest>

using oru::EMail;
using oru::SmtpClient;

namespace {

const QString kFrom = QStringLiteral("a@example.org");

enum Transport { Smtps, StartTls };

QStringList lines(const QString& joined)
{
    return joined.split(QLatin1Char('|'));
}

bool tlsAvailable(QByteArray* why)
{
    if (!QSslSocket::supportsSsl()) {
        *why = "no TLS support in Qt";
        return false;
    }
    if (!TestCertificate::shared().isValid()) {
        *why = TestCertificate::shared().error().toLocal8Bit();
        return false;
    }
    return true;
}

} // namespace

Q_DECLARE_METATYPE(Transport)

/// What every encrypted session must do, over both kinds of encryption.
class tst_SmtpClientTls : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase_data();
    void initTestCase();

    void deliversEncrypted();
    void refusalsOverTls();
    void tlsFailureReportsMinusOne();

private:
    // The opening up to an encrypted EHLO reply listing extensions.
    static QStringList opening(Transport transport, const QStringList& extensions);
    static oru::SmtpAccess access(Transport transport, quint16 port);
};

QStringList tst_SmtpClientTls::opening(Transport transport, const QStringList& extensions)
{
    if (transport == Smtps)
        return ScriptedSmtpPeer::greetingAndEhlo(extensions);
    return ScriptedSmtpPeer::greetingAndEhlo({"STARTTLS"}) + ScriptedSmtpPeer::startTls(extensions);
}

oru::SmtpAccess tst_SmtpClientTls::access(Transport transport, quint16 port)
{
    oru::SmtpAccess result = peerAccess(port);
    result.ssl = transport == Smtps;
    result.tls = transport == StartTls;
    return result;
}

void tst_SmtpClientTls::initTestCase_data()
{
    QTest::addColumn<Transport>("transport");
    QTest::newRow("smtps") << Smtps;
    QTest::newRow("starttls") << StartTls;
}

void tst_SmtpClientTls::initTestCase()
{
    QByteArray why;
    QVERIFY2(tlsAvailable(&why), why.constData());
}

void tst_SmtpClientTls::deliversEncrypted()
{
    QFETCH_GLOBAL(Transport, transport);

    ScriptedSmtpPeer peer(transport == Smtps ? ScriptedSmtpPeer::Smtps : ScriptedSmtpPeer::Plain);
    QVERIFY(peer.setScript(opening(transport, {"AUTH LOGIN"})
                           + ScriptedSmtpPeer::authLogin("joe", "secret")
                           + ScriptedSmtpPeer::envelope(kFrom, {"b@example.org"})
                           + ScriptedSmtpPeer::dataAndQuit()));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(access(transport, peer.port()));
    client.setAuthentication(QStringLiteral("joe"), QStringLiteral("secret"));
    SentRecorder recorder(&client);

    EMail mail = textMessage(kFrom, {"b@example.org"}, QStringLiteral("secure"));
    mail.attach(QStringLiteral("application/octet-stream")).content = QByteArray(300000, 'z');
    const JobOutcome outcome = runJob(client, recorder, {mail}, &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QCOMPARE(outcome.reports.size(), 1);
    QCOMPARE(outcome.reports.first().code, 250);
    QCOMPARE(outcome.waitResult, 250);
    QVERIFY(peer.connection(0).encrypted);
    QVERIFY(peer.data(0).contains("\r\nSubject: secure\r\n"));
    QVERIFY(peer.data(0).contains(QByteArray(300000, 'z').toBase64()));
    // Nothing but the opening travelled in the clear.
    const QByteArray clear = peer.received().left(peer.received().size()
                                                  - peer.receivedAfterTls().size());
    QCOMPARE(clear, transport == Smtps ? QByteArray()
                                       : QByteArray("EHLO localhost\r\nSTARTTLS\r\n"));
}

void tst_SmtpClientTls::refusalsOverTls()
{
    QFETCH_GLOBAL(Transport, transport);

    ScriptedSmtpPeer peer(transport == Smtps ? ScriptedSmtpPeer::Smtps : ScriptedSmtpPeer::Plain);
    QVERIFY(peer.setScript(opening(transport, {})
                           + lines("C: MAIL FROM:<a@example.org>|S: 250 OK|"
                                   "C: RCPT TO:<x@example.org>|S: 550 5.1.1 unknown")
                           + ScriptedSmtpPeer::envelope(kFrom, {"y@example.org"})
                           + ScriptedSmtpPeer::dataAndQuit()));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(access(transport, peer.port()));
    SentRecorder recorder(&client);

    const JobOutcome outcome = runJob(client, recorder,
                                      {textMessage(kFrom, {"x@example.org"}, "first"),
                                       textMessage(kFrom, {"y@example.org"}, "second")},
                                      &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QCOMPARE(outcome.reports.size(), 2);
    QCOMPARE(outcome.reports.at(0).code, 550);
    QCOMPARE(outcome.reports.at(0).text, QStringLiteral("5.1.1 unknown\r\n"));
    QCOMPARE(outcome.reports.at(0).mail->subject, QStringLiteral("first"));
    QCOMPARE(outcome.reports.at(1).code, 250);
    QCOMPARE(outcome.reports.at(1).mail->subject, QStringLiteral("second"));
}

void tst_SmtpClientTls::tlsFailureReportsMinusOne()
{
    QFETCH_GLOBAL(Transport, transport);

    // A server that does not speak TLS where the client expects it.
    ScriptedSmtpPeer peer(ScriptedSmtpPeer::Plain);
    if (transport == Smtps)
        QVERIFY(peer.setScript(lines("S: 220 plain text greeting|expect-close")));
    else
        QVERIFY(peer.setScript(ScriptedSmtpPeer::greetingAndEhlo({"STARTTLS", "AUTH PLAIN"})
                               + lines("C: STARTTLS|S: 220 go ahead|S: this is no handshake|"
                                       "expect-close")));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(access(transport, peer.port()));
    client.setAuthentication(QStringLiteral("joe"), QStringLiteral("pw"));
    SentRecorder recorder(&client);

    const JobOutcome outcome = runJob(client, recorder, {textMessage(kFrom, {"b@example.org"})}, &peer);

    QCOMPARE(outcome.reports.size(), 1);
    QVERIFY(!outcome.reports.first().mail);
    QCOMPARE(outcome.reports.first().code, -1);
    QVERIFY(!outcome.reports.first().text.isEmpty());
    // The session ends there: no AUTH, no message, no QUIT.
    QVERIFY(!peer.received().contains("AUTH"));
    QVERIFY(!peer.received().contains("QUIT"));
}

/// What only the STARTTLS upgrade does.
class tst_SmtpClientStartTls : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void upgrade_data();
    void upgrade();
    void noStartTlsOverSmtps();
};

void tst_SmtpClientStartTls::initTestCase()
{
    QByteArray why;
    QVERIFY2(tlsAvailable(&why), why.constData());
}

void tst_SmtpClientStartTls::upgrade_data()
{
    QTest::addColumn<QStringList>("script");

    const QStringList rest = ScriptedSmtpPeer::envelope(kFrom, {"b@example.org"})
        + ScriptedSmtpPeer::dataAndQuit();
    QTest::newRow("mechanism offered only after the upgrade")
        << ScriptedSmtpPeer::greetingAndEhlo({"STARTTLS"}) + ScriptedSmtpPeer::startTls({"AUTH PLAIN"})
               + lines("C: AUTH PLAIN am9lOnB3|S: 235 ok") + rest;
    QTest::newRow("mechanism learned before the upgrade is kept")
        << ScriptedSmtpPeer::greetingAndEhlo({"STARTTLS", "AUTH PLAIN"}) + ScriptedSmtpPeer::startTls({})
               + lines("C: AUTH PLAIN am9lOnB3|S: 235 ok") + rest;
    QTest::newRow("plaintext sent before the handshake is ignored")
        << ScriptedSmtpPeer::greetingAndEhlo({"STARTTLS"})
               + lines("C: STARTTLS|S~ 220 go ahead\\r\\n250 injected\\r\\n|starttls|"
                       "C: EHLO localhost")
               + ScriptedSmtpPeer::ehloReply({"AUTH PLAIN"}) + lines("C: AUTH PLAIN am9lOnB3|S: 235 ok")
               + rest;
}

void tst_SmtpClientStartTls::upgrade()
{
    QFETCH(QStringList, script);

    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(script));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    oru::SmtpAccess settings = peerAccess(peer.port());
    settings.tls = true;
    SmtpClient client(settings);
    client.setAuthentication(QStringLiteral("joe"), QStringLiteral("pw"));
    SentRecorder recorder(&client);

    const JobOutcome outcome = runJob(client, recorder, {textMessage(kFrom, {"b@example.org"})}, &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QCOMPARE(recorder.codes(), QList<int>{250});
    QCOMPARE(outcome.waitResult, 250);
    QVERIFY(peer.connection(0).encrypted);
    QVERIFY(peer.receivedAfterTls().startsWith("EHLO localhost\r\nAUTH PLAIN am9lOnB3\r\n"));
}

void tst_SmtpClientStartTls::noStartTlsOverSmtps()
{
    ScriptedSmtpPeer peer(ScriptedSmtpPeer::Smtps);
    QVERIFY(peer.setScript(ScriptedSmtpPeer::greetingAndEhlo({"STARTTLS", "AUTH PLAIN"})
                           + lines("C: AUTH PLAIN am9lOnB3|S: 235 ok")
                           + ScriptedSmtpPeer::envelope(kFrom, {"b@example.org"})
                           + ScriptedSmtpPeer::dataAndQuit()));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    oru::SmtpAccess settings = peerAccess(peer.port());
    settings.ssl = true;
    settings.tls = true;
    SmtpClient client(settings);
    client.setAuthentication(QStringLiteral("joe"), QStringLiteral("pw"));
    SentRecorder recorder(&client);

    const JobOutcome outcome = runJob(client, recorder, {textMessage(kFrom, {"b@example.org"})}, &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QCOMPARE(outcome.waitResult, 250);
    QVERIFY(!peer.clientLines().contains(QStringLiteral("STARTTLS")));
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    int status = 0;
    {
        tst_SmtpClientTls both;
        status |= QTest::qExec(&both, argc, argv);
    }
    {
        tst_SmtpClientStartTls upgrade;
        status |= QTest::qExec(&upgrade, argc, argv);
    }
    return status;
}

#include "tst_smtpclient_tls.moc"
