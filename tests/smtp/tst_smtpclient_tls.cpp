// Encrypted sessions against the scripted server with a throwaway
// certificate: SSL from the first byte and the STARTTLS upgrade.

#include "SmtpTestSupport.h"
#include "TestCertificate.h"

#include <QSslSocket>
#include <QtTest>

using oru::SmtpClient;
using Script = ScriptedSmtpPeer;

Q_DECLARE_METATYPE(ClientSetup)

namespace {

const QString kFrom = QStringLiteral("a@example.org");
const QStringList kMessage = Script::envelope(kFrom, {"b@example.org"}) + Script::dataAndQuit();

ClientSetup settings(bool ssl, bool tls, const QString& user = QString())
{
    return [=](SmtpClient& client) {
        client.server().ssl = ssl;
        client.server().tls = tls;
        client.setAuthentication(user, QStringLiteral("pw"));
    };
}

} // namespace

class tst_SmtpClientTls : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase_data();
    void initTestCase();
    void deliversEncrypted();
    void handshakeFailureReportsMinusOne();
    void upgrade_data();
    void upgrade();
};

void tst_SmtpClientTls::initTestCase_data()
{
    QTest::addColumn<bool>("smtps");
    QTest::newRow("smtps") << true;
    QTest::newRow("starttls") << false;
}

void tst_SmtpClientTls::initTestCase()
{
    QVERIFY(QSslSocket::supportsSsl());
    QVERIFY2(TestCertificate::shared().isValid(), qPrintable(TestCertificate::shared().error()));
}

void tst_SmtpClientTls::deliversEncrypted()
{
    QFETCH_GLOBAL(bool, smtps);

    const QStringList opening = smtps ? Script::greetingAndEhlo({"STARTTLS", "AUTH LOGIN"})
                                      : Script::greetingAndEhlo({"STARTTLS"}) + Script::startTls({"AUTH LOGIN"});
    oru::EMail first = textMessage(kFrom, {"x@example.org"}, "first");
    oru::EMail second = textMessage(kFrom, {"b@example.org"}, "secure");
    second.attach(QStringLiteral("application/octet-stream")).content = QByteArray(300000, 'z');
    const Played p = play(opening + Script::authLogin("joe", "pw")
                              + Script::envelope(kFrom, {}) + steps("C: RCPT TO:<x@example.org>|S: 550 unknown")
                              + kMessage,
                          {first, second}, settings(smtps, true, "joe"),
                          smtps ? Script::Smtps : Script::Plain);

    QVERIFY2(p.completed, p.diagnosis);
    QCOMPARE(p.codes(), (QList<int>{550, 250}));
    QCOMPARE(p.reports.at(0).text, QStringLiteral("unknown\r\n"));
    QCOMPARE(p.waitResult, 250);
    QVERIFY(p.encrypted);
    QVERIFY(p.data.value(0).contains("\r\nSubject: secure\r\n"));
    QVERIFY(p.data.value(0).contains(QByteArray(300000, 'z').toBase64()));
    // Only the opening travelled in the clear; over SSL no STARTTLS is sent.
    QCOMPARE(p.received.left(p.received.size() - p.receivedAfterTls.size()),
             smtps ? QByteArray() : QByteArray("EHLO localhost\r\nSTARTTLS\r\n"));
}

void tst_SmtpClientTls::handshakeFailureReportsMinusOne()
{
    QFETCH_GLOBAL(bool, smtps);

    // A server that does not speak TLS where the client expects it.
    const QStringList script = smtps ? steps("S: 220 plain greeting|expect-close")
                                     : Script::greetingAndEhlo({"STARTTLS", "AUTH PLAIN"})
            + steps("C: STARTTLS|S: 220 go ahead|S: this is no handshake|expect-close");
    const Played p = play(script, {textMessage(kFrom, {"b@example.org"})}, settings(smtps, true, "joe"));

    QCOMPARE(p.codes(), QList<int>{-1});
    QVERIFY(!p.reports.first().mail);
    QVERIFY(!p.reports.first().text.isEmpty());
    QVERIFY(!p.received.contains("AUTH") && !p.received.contains("QUIT"));
}

void tst_SmtpClientTls::upgrade_data()
{
    QTest::addColumn<QStringList>("script");

    const QStringList auth = steps("C: AUTH PLAIN am9lOnB3|S: 235 ok");
    QTest::newRow("mechanisms read again after the upgrade and narrowed")
        << Script::greetingAndEhlo({"STARTTLS"}) + Script::startTls({"AUTH CRAM-MD5 PLAIN"}) + auth;
    QTest::newRow("mechanism learned before the upgrade is kept")
        << Script::greetingAndEhlo({"STARTTLS", "AUTH PLAIN"}) + Script::startTls({}) + auth;
    QTest::newRow("plaintext sent ahead of the handshake is dropped")
        << Script::greetingAndEhlo({"STARTTLS"})
               + steps("C: STARTTLS|S~ 220 go ahead\\r\\n250 injected\\r\\n|starttls|C: EHLO localhost")
               + Script::ehloReply({"AUTH PLAIN"}) + auth;
}

void tst_SmtpClientTls::upgrade()
{
    QFETCH_GLOBAL(bool, smtps);
    QFETCH(QStringList, script);
    if (smtps)
        QSKIP("STARTTLS only");

    const Played p = play(script + kMessage, {textMessage(kFrom, {"b@example.org"})},
                          settings(false, true, "joe"));
    QVERIFY2(p.completed, p.diagnosis);
    QCOMPARE(p.codes(), QList<int>{250});
    QVERIFY(p.encrypted);
    QVERIFY(p.receivedAfterTls.startsWith("EHLO localhost\r\nAUTH PLAIN am9lOnB3\r\n"));
}

QTEST_GUILESS_MAIN(tst_SmtpClientTls)
#include "tst_smtpclient_tls.moc"
