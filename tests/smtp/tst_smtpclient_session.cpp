// The SMTP dialogue of a job against a scripted server: greeting and EHLO,
// extensions and the choice of mechanism, the AUTH exchanges, STARTTLS
// refusal, recipients, end of data, connection failure and the client's
// job bookkeeping.

#include "ScriptedSmtpPeer.h"
#include "SmtpTestSupport.h"

#include "smtp/SmtpClient.h"

#include <QCryptographicHash>
#include <QMessageAuthenticationCode>
#include <QMetaType>
#include <QtTest>

using oru::EMail;
using oru::SmtpClient;

Q_DECLARE_METATYPE(oru::EMail)

namespace {

const QString kFrom = QStringLiteral("a@example.org");

QStringList lines(const QString& joined)
{
    return joined.split(QLatin1Char('|'));
}

// The standard HMAC-MD5 of the challenge cut or zero-padded to 64 bytes.
QByteArray hmacOf64(const QByteArray& key, const QByteArray& challenge)
{
    QByteArray block = challenge.left(64);
    block.append(QByteArray(64 - block.size(), '\0'));
    return QMessageAuthenticationCode::hash(block, key, QCryptographicHash::Md5);
}

} // namespace

class tst_SmtpClientSession : public QObject
{
    Q_OBJECT

private slots:
    void metaTypesRegisteredAtLoad();

    void greetingAndEhlo_data();
    void greetingAndEhlo();

    void mechanismChoice_data();
    void mechanismChoice();

    void authExchange_data();
    void authExchange();

    void cramMd5Response_data();
    void cramMd5Response();
    void cramMd5Hash_data();
    void cramMd5Hash();

    void startTlsRefusedGoesOnInTheClear();

    void recipients_data();
    void recipients();

    void endOfData_data();
    void endOfData();

    void connectionRefused();

    void waitForSent_data();
    void waitForSent();
    void unknownJobId();

    void settingsAndMessageCopiedAtSend();
    void emptyList_data();
    void emptyList();
    void concurrentJobsOfOneClient();
};

void tst_SmtpClientSession::metaTypesRegisteredAtLoad()
{
    const char* names[] = {"oru::EMail*", "oru::EMailPtr", "oru::constEMailPtr"};
    for (int i = 0; i < 3; ++i) {
        QVERIFY2(SmtpClient::gEmailMetaTypes[i] != QMetaType::UnknownType, names[i]);
        QCOMPARE(QMetaType::type(names[i]), SmtpClient::gEmailMetaTypes[i]);
    }
    QCOMPARE(SmtpClient::gEmailMetaTypes[2], qMetaTypeId<oru::constEMailPtr>());
    const QMetaMethod sent = QMetaMethod::fromSignal(&SmtpClient::sent);
    QCOMPARE(sent.methodSignature(), QByteArray("sent(oru::constEMailPtr,int,QString,int)"));
    QCOMPARE(sent.parameterNames(),
             (QList<QByteArray>{"mail", "responseCode", "message", "jobId"}));
    QCOMPARE(SmtpClient::staticMetaObject.methodCount()
                 - SmtpClient::staticMetaObject.methodOffset(),
             1);
}

void tst_SmtpClientSession::greetingAndEhlo_data()
{
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("written");

    QTest::newRow("greeting refused")
        << lines("S: 554 no service here|expect-close") << 554 << "no service here\r\n"
        << QByteArray();
    QTest::newRow("closed before greeting") << lines("close") << 0 << "" << QByteArray();
    QTest::newRow("greeting as continuation line")
        << lines("S: 220-hello|expect-close") << -220 << "hello\r\n" << QByteArray();
    QTest::newRow("bare code without text")
        << lines("S~ 421\\r\\n|expect-close") << 421 << "" << QByteArray();
    QTest::newRow("ehlo answered by one line")
        << lines("S: 220 hi|C: EHLO localhost|S: 250 example|expect-close") << 250
        << "example\r\n" << QByteArray("EHLO localhost\r\n");
    QTest::newRow("ehlo refused")
        << lines("S: 220 hi|C: EHLO localhost|S: 502 5.5.1 not implemented|expect-close") << 502
        << "5.5.1 not implemented\r\n" << QByteArray("EHLO localhost\r\n");
}

void tst_SmtpClientSession::greetingAndEhlo()
{
    QFETCH(QStringList, script);
    QFETCH(int, code);
    QFETCH(QString, text);
    QFETCH(QByteArray, written);

    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(script));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(peerAccess(peer.port()));
    client.setAuthentication(QStringLiteral("joe"), QStringLiteral("pw"));
    SentRecorder recorder(&client);

    const JobOutcome outcome = runJob(client, recorder, {textMessage(kFrom, {"b@example.org"})}, &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QCOMPARE(outcome.reports.size(), 1);
    const SentReport& report = outcome.reports.first();
    QVERIFY(!report.mail);
    QCOMPARE(report.code, code);
    QCOMPARE(report.text, text);
    QCOMPARE(report.jobId, outcome.id);
    QCOMPARE(outcome.waitResult, code);
    QCOMPARE(client.responseCode(outcome.id), code);
    // The session ends at once: no further command, no QUIT.
    QCOMPARE(peer.received(), written);
}

void tst_SmtpClientSession::mechanismChoice_data()
{
    QTest::addColumn<QStringList>("ehlo");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("tls");
    QTest::addColumn<QList<int>>("enable");
    QTest::addColumn<QList<int>>("disable");
    QTest::addColumn<QString>("next");

    const QString joe = QStringLiteral("joe");
    const QString pw = QStringLiteral("pw");
    const QString mailFrom = QStringLiteral("MAIL FROM:<a@example.org>");
    const QStringList all = ScriptedSmtpPeer::ehloReply({"AUTH PLAIN LOGIN CRAM-MD5"});

    QTest::newRow("login preferred to plain, cram-md5 off by default")
        << all << joe << pw << false << QList<int>() << QList<int>() << "AUTH LOGIN";
    QTest::newRow("cram-md5 once allowed")
        << all << joe << pw << false << QList<int>{SmtpClient::AUTH_CRAM_MD5} << QList<int>()
        << "AUTH CRAM-MD5";
    QTest::newRow("plain when login forbidden")
        << all << joe << pw << false << QList<int>() << QList<int>{SmtpClient::AUTH_LOGIN}
        << "AUTH PLAIN am9lOnB3";
    QTest::newRow("nothing allowed")
        << all << joe << pw << false << QList<int>()
        << QList<int>{SmtpClient::AUTH_LOGIN, SmtpClient::AUTH_PLAIN} << mailFrom;
    QTest::newRow("AUTH=LOGIN form")
        << ScriptedSmtpPeer::ehloReply({"AUTH=LOGIN"}) << joe << pw << false << QList<int>()
        << QList<int>() << "AUTH LOGIN";
    QTest::newRow("SMTP-AUTH prefix")
        << ScriptedSmtpPeer::ehloReply({"SMTP-AUTH PLAIN"}) << joe << pw << false << QList<int>()
        << QList<int>() << "AUTH PLAIN am9lOnB3";
    QTest::newRow("X-AUTH is no AUTH line")
        << ScriptedSmtpPeer::ehloReply({"X-AUTH LOGIN"}) << joe << pw << false << QList<int>()
        << QList<int>() << mailFrom;
    QTest::newRow("names are case-sensitive")
        << ScriptedSmtpPeer::ehloReply({"auth login", "AUTH plain"}) << joe << pw << false
        << QList<int>() << QList<int>() << mailFrom;
    QTest::newRow("last line not examined")
        << lines("S: 250-localhost|S: 250 AUTH LOGIN") << joe << pw << false << QList<int>()
        << QList<int>() << mailFrom;
    QTest::newRow("no user, no AUTH")
        << all << QString() << pw << false << QList<int>() << QList<int>() << mailFrom;
    QTest::newRow("user with %2 gets the password twice")
        << ScriptedSmtpPeer::ehloReply({"AUTH PLAIN"}) << "a%2" << pw << false << QList<int>()
        << QList<int>() << "AUTH PLAIN " + QString::fromLatin1(QByteArray("apw:pw").toBase64());
    QTest::newRow("empty password")
        << ScriptedSmtpPeer::ehloReply({"AUTH PLAIN"}) << joe << QString() << false << QList<int>()
        << QList<int>() << "AUTH PLAIN am9lOg==";
    QTest::newRow("starttls offered and wanted")
        << ScriptedSmtpPeer::ehloReply({"STARTTLS", "AUTH LOGIN"}) << joe << pw << true
        << QList<int>() << QList<int>() << "STARTTLS";
    QTest::newRow("starttls offered, flag off")
        << ScriptedSmtpPeer::ehloReply({"STARTTLS", "AUTH LOGIN"}) << joe << pw << false
        << QList<int>() << QList<int>() << "AUTH LOGIN";
    QTest::newRow("starttls listed last is not seen")
        << lines("S: 250-srv|S: 250-AUTH PLAIN LOGIN|S: 250 STARTTLS") << joe << pw << true
        << QList<int>() << QList<int>() << "AUTH LOGIN";
    QTest::newRow("starttls not allowed")
        << ScriptedSmtpPeer::ehloReply({"STARTTLS", "AUTH LOGIN"}) << joe << pw << true
        << QList<int>() << QList<int>{SmtpClient::STARTTLS} << "AUTH LOGIN";
    QTest::newRow("starttls alone, no user")
        << ScriptedSmtpPeer::ehloReply({"STARTTLS"}) << QString() << QString() << true
        << QList<int>() << QList<int>() << "STARTTLS";
}

void tst_SmtpClientSession::mechanismChoice()
{
    QFETCH(QStringList, ehlo);
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(bool, tls);
    QFETCH(QList<int>, enable);
    QFETCH(QList<int>, disable);
    QFETCH(QString, next);

    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(lines("S: 220 hi|C: EHLO localhost") + ehlo + lines("C: *")));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    oru::SmtpAccess access = peerAccess(peer.port());
    access.tls = tls;
    SmtpClient client(access);
    client.setAuthentication(user, password);
    for (int f : enable)
        client.useFeature(SmtpClient::ExtFeature(f), true);
    for (int f : disable)
        client.useFeature(SmtpClient::ExtFeature(f), false);
    SentRecorder recorder(&client);

    runJob(client, recorder, {textMessage(kFrom, {"b@example.org"})}, &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QCOMPARE(peer.clientLines().value(1), next);
}

void tst_SmtpClientSession::authExchange_data()
{
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QStringList>("offered");
    QTest::addColumn<QStringList>("auth");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QList<int>>("codes");

    const QStringList login{"AUTH LOGIN"};
    const QStringList plain{"AUTH PLAIN"};

    QTest::newRow("login accepted")
        << "joe" << "pw" << login << ScriptedSmtpPeer::authLogin("joe", "pw") << true
        << QList<int>{250};
    QTest::newRow("login with non-ASCII user")
        << QString::fromUtf8("jörg") << "pw" << login
        << ScriptedSmtpPeer::authLogin(QString::fromUtf8("jörg"), "pw") << true << QList<int>{250};
    QTest::newRow("login with empty password")
        << "joe" << "" << login
        << lines("C: AUTH LOGIN|S: 334 VXNlcm5hbWU6|C: am9l|S: 334 UGFzc3dvcmQ6|C: |S: 235 ok")
        << true << QList<int>{250};
    QTest::newRow("login command refused")
        << "joe" << "pw" << login << lines("C: AUTH LOGIN|S: 504 5.5.4 unrecognized|expect-close")
        << false << QList<int>{504};
    QTest::newRow("login password refused")
        << "joe" << "pw" << login
        << lines("C: AUTH LOGIN|S: 334 VXNlcm5hbWU6|C: am9l|S: 334 UGFzc3dvcmQ6|C: cHc=|"
                 "S: 535 5.7.8 bad credentials|expect-close")
        << false << QList<int>{535};
    QTest::newRow("login password step answered 334")
        << "joe" << "pw" << login
        << lines("C: AUTH LOGIN|S: 334 a|C: am9l|S: 334 b|C: cHc=|S: 334 again|expect-close")
        << false << QList<int>{334};
    QTest::newRow("plain accepted")
        << "joe" << "pw" << plain << lines("C: AUTH PLAIN am9lOnB3|S: 235 ok") << true
        << QList<int>{250};
    QTest::newRow("plain refused")
        << "joe" << "pw" << plain << lines("C: AUTH PLAIN am9lOnB3|S: 535 no|expect-close") << false
        << QList<int>{535};
    QTest::newRow("server silent after AUTH")
        << "joe" << "pw" << plain << lines("C: AUTH PLAIN am9lOnB3|close") << false
        << QList<int>{0};
}

void tst_SmtpClientSession::authExchange()
{
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(QStringList, offered);
    QFETCH(QStringList, auth);
    QFETCH(bool, accepted);
    QFETCH(QList<int>, codes);

    QStringList script = ScriptedSmtpPeer::greetingAndEhlo(offered) + auth;
    if (accepted)
        script += ScriptedSmtpPeer::envelope(kFrom, {"b@example.org"}) + ScriptedSmtpPeer::dataAndQuit();
    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(script));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(peerAccess(peer.port()));
    client.setAuthentication(user, password);
    SentRecorder recorder(&client);

    const JobOutcome outcome = runJob(client, recorder, {textMessage(kFrom, {"b@example.org"})}, &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QList<int> got;
    for (const SentReport& r : outcome.reports)
        got << r.code;
    QCOMPARE(got, codes);
    // A failed authentication names no message and ends without QUIT.
    QCOMPARE(bool(outcome.reports.first().mail), accepted);
    QCOMPARE(peer.clientLines().contains(QStringLiteral("QUIT")), accepted);
}

void tst_SmtpClientSession::cramMd5Response_data()
{
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("challenge");

    QTest::newRow("short challenge") << "tim" << "tanstaaftanstaaf"
                                     << QByteArray("<1896.697170952@postoffice.reston.mci.com>");
    QTest::newRow("64-byte challenge") << "joe" << "secret" << QByteArray(64, 'c');
    QTest::newRow("long challenge cut to 64 bytes")
        << "joe" << "secret" << QByteArray(64, 'c') + QByteArray("tail that is ignored");
    QTest::newRow("key longer than a block") << "joe" << QString(65, QLatin1Char('k'))
                                             << QByteArray("<1.2@host>");
}

void tst_SmtpClientSession::cramMd5Response()
{
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(QByteArray, challenge);

    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(ScriptedSmtpPeer::greetingAndEhlo({"AUTH CRAM-MD5 LOGIN"})
                           + ScriptedSmtpPeer::authCramMd5(challenge)
                           + ScriptedSmtpPeer::envelope(kFrom, {"b@example.org"})
                           + ScriptedSmtpPeer::dataAndQuit()));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(peerAccess(peer.port()));
    client.setAuthentication(user, password);
    client.useFeature(SmtpClient::AUTH_CRAM_MD5, true);
    SentRecorder recorder(&client);

    const JobOutcome outcome = runJob(client, recorder, {textMessage(kFrom, {"b@example.org"})}, &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QCOMPARE(outcome.waitResult, 250);
    const QByteArray response = QByteArray::fromBase64(peer.clientLines().value(2).toLatin1());
    const QByteArray expected = user.toLocal8Bit() + ' '
        + hmacOf64(password.toLocal8Bit(), challenge).toHex();
    QCOMPARE(response, expected);
}

void tst_SmtpClientSession::cramMd5Hash_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("challenge");
    QTest::addColumn<QByteArray>("digest");

    const QByteArray chal64(64, 'x');
    QTest::newRow("rfc 2104 agreement at 64 bytes")
        << QByteArray("key") << chal64 << hmacOf64("key", chal64);
    QTest::newRow("short challenge zero-padded")
        << QByteArray("key") << QByteArray("abc") << hmacOf64("key", QByteArray("abc"));
    QTest::newRow("65-byte key hashed first")
        << QByteArray(65, 'k') << chal64
        << hmacOf64(QCryptographicHash::hash(QByteArray(65, 'k'), QCryptographicHash::Md5), chal64);

    // A key byte of 0x5c zeroes its outer pad byte, and the outer pad is
    // read only up to there.
    QByteArray innerPad(64, 0x36);
    innerPad[0] = char(0x36 ^ 'A');
    innerPad[1] = char(0x36 ^ 0x5c);
    const QByteArray inner = QCryptographicHash::hash(innerPad + chal64, QCryptographicHash::Md5);
    QTest::newRow("0x5c key byte cuts the outer pad")
        << QByteArray("A\x5c") << chal64
        << QCryptographicHash::hash(QByteArray(1, char(0x5c ^ 'A')) + inner,
                                    QCryptographicHash::Md5);
}

void tst_SmtpClientSession::cramMd5Hash()
{
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, challenge);
    QFETCH(QByteArray, digest);

    QCOMPARE(SmtpClient::cramMd5Hash(key, challenge).toHex(), digest.toHex());
}

void tst_SmtpClientSession::startTlsRefusedGoesOnInTheClear()
{
    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(ScriptedSmtpPeer::greetingAndEhlo({"STARTTLS", "AUTH LOGIN"})
                           + lines("C: STARTTLS|S: 454 4.7.0 TLS not available")
                           + ScriptedSmtpPeer::authLogin("joe", "pw")
                           + ScriptedSmtpPeer::envelope(kFrom, {"b@example.org"})
                           + ScriptedSmtpPeer::dataAndQuit()));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    oru::SmtpAccess access = peerAccess(peer.port());
    access.tls = true;
    SmtpClient client(access);
    client.setAuthentication(QStringLiteral("joe"), QStringLiteral("pw"));
    SentRecorder recorder(&client);

    const JobOutcome outcome = runJob(client, recorder, {textMessage(kFrom, {"b@example.org"})}, &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QCOMPARE(outcome.reports.size(), 2);
    QVERIFY(!outcome.reports.at(0).mail);
    QCOMPARE(outcome.reports.at(0).code, 454);
    QCOMPARE(outcome.reports.at(0).text, QStringLiteral("4.7.0 TLS not available\r\n"));
    QVERIFY(outcome.reports.at(1).mail);
    QCOMPARE(outcome.reports.at(1).code, 250);
    QCOMPARE(outcome.waitResult, 250);
    QVERIFY(!peer.connection(0).encrypted);
}

void tst_SmtpClientSession::recipients_data()
{
    QTest::addColumn<QList<EMail>>("mails");
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<QList<int>>("codes");
    QTest::addColumn<QStringList>("reportSubjects");

    EMail ordered = textMessage(kFrom, {"t1@x.org", "t2@x.org"}, "ordered");
    ordered.to << QString();  // an empty entry
    ordered.cc << QStringLiteral("c1@x.org");
    ordered.bcc << QStringLiteral("b1@x.org; ;b2@x.org");
    QTest::newRow("to, cc, bcc in order; empty ones skipped")
        << QList<EMail>{ordered}
        << ScriptedSmtpPeer::envelope(kFrom, {"t1@x.org", "t2@x.org", "c1@x.org", "b1@x.org",
                                              "b2@x.org"})
               + ScriptedSmtpPeer::dataAndQuit()
        << QList<int>{250} << QStringList{"ordered"};

    EMail nobody = textMessage(kFrom, {}, "nobody");
    nobody.to << QStringLiteral(" ,");
    QTest::newRow("only empty recipients: DATA follows MAIL FROM")
        << QList<EMail>{nobody}
        << ScriptedSmtpPeer::envelope(kFrom, {}) + ScriptedSmtpPeer::dataAndQuit()
        << QList<int>{250} << QStringList{"nobody"};

    const EMail first = textMessage(kFrom, {"x@x.org", "y@x.org", "z@x.org"}, "first");
    const EMail second = textMessage(kFrom, {"w@x.org"}, "second");
    QTest::newRow("refused recipient skips the message, no RSET")
        << QList<EMail>{first, second}
        << lines("C: MAIL FROM:<a@example.org>|S: 250 OK|C: RCPT TO:<x@x.org>|S: 250 OK|"
                 "C: RCPT TO:<y@x.org>|S: 550 5.1.1 no such user")
               + ScriptedSmtpPeer::envelope(kFrom, {"w@x.org"}) + ScriptedSmtpPeer::dataAndQuit()
        << QList<int>{550, 250} << QStringList{"first", "second"};
    QTest::newRow("251 counts as a refusal")
        << QList<EMail>{first, second}
        << lines("C: MAIL FROM:<a@example.org>|S: 250 OK|C: RCPT TO:<x@x.org>|"
                 "S: 251 forwarding")
               + ScriptedSmtpPeer::envelope(kFrom, {"w@x.org"}) + ScriptedSmtpPeer::dataAndQuit()
        << QList<int>{251, 250} << QStringList{"first", "second"};
    QTest::newRow("refused sender skips the message")
        << QList<EMail>{first, second}
        << lines("C: MAIL FROM:<a@example.org>|S: 553 5.7.1 not yours")
               + ScriptedSmtpPeer::envelope(kFrom, {"w@x.org"}) + ScriptedSmtpPeer::dataAndQuit()
        << QList<int>{553, 250} << QStringList{"first", "second"};
    QTest::newRow("refused DATA skips the message")
        << QList<EMail>{first, second}
        << ScriptedSmtpPeer::envelope(kFrom, {"x@x.org", "y@x.org", "z@x.org"})
               + lines("C: DATA|S: 451 4.3.0 try later")
               + ScriptedSmtpPeer::envelope(kFrom, {"w@x.org"}) + ScriptedSmtpPeer::dataAndQuit()
        << QList<int>{451, 250} << QStringList{"first", "second"};
    QTest::newRow("both messages accepted")
        << QList<EMail>{first, second}
        << ScriptedSmtpPeer::envelope(kFrom, {"x@x.org", "y@x.org", "z@x.org"})
               + ScriptedSmtpPeer::message()
               + ScriptedSmtpPeer::envelope(kFrom, {"w@x.org"}) + ScriptedSmtpPeer::dataAndQuit()
        << QList<int>{250, 250} << QStringList{"first", "second"};
}

void tst_SmtpClientSession::recipients()
{
    QFETCH(QList<EMail>, mails);
    QFETCH(QStringList, script);
    QFETCH(QList<int>, codes);
    QFETCH(QStringList, reportSubjects);

    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(ScriptedSmtpPeer::greetingAndEhlo() + script));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(peerAccess(peer.port()));
    SentRecorder recorder(&client);

    const JobOutcome outcome = runJob(client, recorder, mails, &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QVERIFY(!peer.clientLines().contains(QStringLiteral("RSET")));
    QCOMPARE(outcome.reports.size(), codes.size());
    for (int i = 0; i < codes.size(); ++i) {
        const SentReport& r = outcome.reports.at(i);
        QCOMPARE(r.code, codes.at(i));
        QVERIFY(r.mail);
        QCOMPARE(r.mail->subject, reportSubjects.at(i));
        QCOMPARE(r.jobId, outcome.id);
        if (r.code == 250)
            QCOMPARE(r.text, QStringLiteral("OK"));
    }
    QCOMPARE(outcome.waitResult, 250);
}

void tst_SmtpClientSession::endOfData_data()
{
    QTest::addColumn<QString>("finalReply");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");

    QTest::newRow("accepted") << "250 2.0.0 queued as 42" << 250 << "OK";
    QTest::newRow("rejected") << "554 5.6.0 rejected" << 554 << "5.6.0 rejected\r\n";
    QTest::newRow("continuation line") << "250-queued" << -250 << "queued\r\n";
    QTest::newRow("other success code") << "251 ok" << 251 << "ok\r\n";
}

void tst_SmtpClientSession::endOfData()
{
    QFETCH(QString, finalReply);
    QFETCH(int, code);
    QFETCH(QString, text);

    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(ScriptedSmtpPeer::greetingAndEhlo()
                           + ScriptedSmtpPeer::envelope(kFrom, {"b@example.org"})
                           + ScriptedSmtpPeer::message(finalReply) + ScriptedSmtpPeer::quit()));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(peerAccess(peer.port()));
    SentRecorder recorder(&client);

    const EMail mail = textMessage(kFrom, {"b@example.org"}, "subject line");
    const JobOutcome outcome = runJob(client, recorder, {mail}, &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QCOMPARE(outcome.reports.size(), 1);
    QCOMPARE(outcome.reports.first().code, code);
    QCOMPARE(outcome.reports.first().text, text);
    QVERIFY(outcome.reports.first().mail);
    QCOMPARE(outcome.reports.first().mail->subject, mail.subject);
    QCOMPARE(outcome.waitResult, code);
    // Whatever the verdict, the job ends with QUIT after its last message.
    QCOMPARE(peer.clientLines().last(), QStringLiteral("QUIT"));
}

void tst_SmtpClientSession::connectionRefused()
{
    SmtpClient client(peerAccess(closedPort()));
    SentRecorder recorder(&client);

    const JobOutcome outcome = runJob(client, recorder, {textMessage(kFrom, {"b@example.org"})}, nullptr);

    QCOMPARE(outcome.reports.size(), 1);
    QVERIFY(!outcome.reports.first().mail);
    QCOMPARE(outcome.reports.first().code, -1);
    QVERIFY(outcome.reports.first().text.contains(QStringLiteral("refused"), Qt::CaseInsensitive));
    // No reply was read: the table keeps the job's starting 0.
    QCOMPARE(outcome.waitResult, 0);
}

void tst_SmtpClientSession::waitForSent_data()
{
    QTest::addColumn<int>("firstTimeout");
    QTest::addColumn<int>("firstResult");

    QTest::newRow("time-out expires") << 100 << -2;
    QTest::newRow("negative time-out waits") << -1 << 250;
    QTest::newRow("ample time-out") << 20000 << 250;
}

void tst_SmtpClientSession::waitForSent()
{
    QFETCH(int, firstTimeout);
    QFETCH(int, firstResult);

    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(lines("wait 800") + ScriptedSmtpPeer::greetingAndEhlo()
                           + ScriptedSmtpPeer::envelope(kFrom, {"b@example.org"})
                           + ScriptedSmtpPeer::dataAndQuit()));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(peerAccess(peer.port()));

    const int id = client.send(textMessage(kFrom, {"b@example.org"}));
    QCOMPARE(client.waitForSent(id, firstTimeout), firstResult);
    // The job goes on after a time-out; a later wait sees its end.
    QCOMPARE(client.waitForSent(id, 20000), 250);
    QCOMPARE(client.responseCode(id), 250);
    QVERIFY(peer.waitForFinished(10000));
    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
}

void tst_SmtpClientSession::unknownJobId()
{
    SmtpClient client(QStringLiteral("127.0.0.1"));
    const int unused = 987654321;
    QCOMPARE(client.responseCode(unused), 0);
    QCOMPARE(client.waitForSent(unused, 0), 0);
    QCOMPARE(client.responseCode(unused), 0);
}

void tst_SmtpClientSession::settingsAndMessageCopiedAtSend()
{
    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(ScriptedSmtpPeer::greetingAndEhlo({"AUTH PLAIN"})
                           + lines("C: AUTH PLAIN am9lOnB3|S: 235 ok")
                           + ScriptedSmtpPeer::envelope(kFrom, {"b@example.org"})
                           + ScriptedSmtpPeer::dataAndQuit()));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(peerAccess(peer.port()));
    client.setAuthentication(QStringLiteral("joe"), QStringLiteral("pw"));
    SentRecorder recorder(&client);

    EMail mail = textMessage(kFrom, {"b@example.org"}, "as sent");
    const int id = client.send(mail);
    // Changes after send reach neither the job nor its message.
    client.server().port = closedPort();
    client.setAuthentication(QStringLiteral("eve"), QStringLiteral("other"));
    mail.subject = QStringLiteral("changed later");
    mail.to << QStringLiteral("c@example.org");

    QCOMPARE(client.waitForSent(id, 20000), 250);
    QVERIFY(peer.waitForFinished(10000));
    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QVERIFY(peer.data(0).contains("\r\nSubject: as sent\r\n"));
    const QList<SentReport> reports = recorder.take();
    QCOMPARE(reports.size(), 1);
    QCOMPARE(reports.first().mail->subject, QStringLiteral("as sent"));
    QCOMPARE(reports.first().mail->to.size(), 1);
}

void tst_SmtpClientSession::emptyList_data()
{
    QTest::addColumn<QString>("user");
    QTest::addColumn<QStringList>("auth");
    QTest::addColumn<int>("result");

    // The last reply read is the first EHLO line, or the end of AUTH.
    QTest::newRow("without authentication") << QString() << QStringList() << -250;
    QTest::newRow("with authentication") << "joe" << lines("C: AUTH PLAIN am9lOnB3|S: 235 ok")
                                         << 235;
}

void tst_SmtpClientSession::emptyList()
{
    QFETCH(QString, user);
    QFETCH(QStringList, auth);
    QFETCH(int, result);

    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(ScriptedSmtpPeer::greetingAndEhlo({"AUTH PLAIN"}) + auth
                           + ScriptedSmtpPeer::quit()));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(peerAccess(peer.port()));
    client.setAuthentication(user, QStringLiteral("pw"));
    SentRecorder recorder(&client);

    const JobOutcome outcome = runJob(client, recorder, QList<EMail>(), &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QVERIFY(outcome.reports.isEmpty());
    QCOMPARE(outcome.waitResult, result);
    QCOMPARE(peer.clientLines().last(), QStringLiteral("QUIT"));
}

void tst_SmtpClientSession::concurrentJobsOfOneClient()
{
    const int jobs = 6;
    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(ScriptedSmtpPeer::greetingAndEhlo() + lines("C: *|S: 250 OK|C: *|S: 250 OK")
                           + ScriptedSmtpPeer::dataAndQuit()));
    peer.setConnections(jobs);
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(peerAccess(peer.port()));
    SentRecorder recorder(&client);

    QList<int> ids;
    for (int i = 0; i < jobs; ++i)
        ids << client.send(textMessage(kFrom, {"b@example.org"}, QString::number(i)));
    for (int id : qAsConst(ids))
        QCOMPARE(client.waitForSent(id, 30000), 250);
    QVERIFY(peer.waitForFinished(10000));
    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));

    QCOMPARE(QSet<int>(ids.begin(), ids.end()).size(), jobs);
    const QList<SentReport> reports = recorder.take();
    QCOMPARE(reports.size(), jobs);
    QSet<int> reported;
    for (const SentReport& r : reports) {
        QCOMPARE(r.code, 250);
        QCOMPARE(r.mail->subject, QString::number(ids.indexOf(r.jobId)));
        reported << r.jobId;
    }
    QCOMPARE(reported.size(), jobs);
}

QTEST_GUILESS_MAIN(tst_SmtpClientSession)
#include "tst_smtpclient_session.moc"
