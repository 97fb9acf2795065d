// A job's SMTP dialogue against a scripted server: early endings, the
// choice of extension and mechanism, the AUTH lines, recipients and
// end-of-data verdicts, and the client's job bookkeeping.

#include "SmtpTestSupport.h"

#include <QMessageAuthenticationCode>
#include <QtTest>

using oru::EMail;
using oru::SmtpClient;
using Script = ScriptedSmtpPeer;

Q_DECLARE_METATYPE(oru::EMail)
Q_DECLARE_METATYPE(ClientSetup)

namespace {

const QString kFrom = QStringLiteral("a@example.org");

EMail mailTo(const QStringList& to, const QString& subject = QStringLiteral("Hello"))
{
    return textMessage(kFrom, to, subject);
}

// The standard HMAC-MD5 over the challenge cut or zero-padded to 64 bytes.
QByteArray hmacOf64(const QByteArray& key, const QByteArray& challenge)
{
    QByteArray block = challenge.left(64);
    block.append(QByteArray(64 - block.size(), '\0'));
    return QMessageAuthenticationCode::hash(block, key, QCryptographicHash::Md5);
}

ClientSetup login(const QString& user, const QString& password, bool tls = false,
                  const QList<int>& on = {}, const QList<int>& off = {})
{
    return [=](SmtpClient& client) {
        client.setAuthentication(user, password);
        client.server().tls = tls;
        for (int f : on)
            client.useFeature(SmtpClient::ExtFeature(f), true);
        for (int f : off)
            client.useFeature(SmtpClient::ExtFeature(f), false);
    };
}

} // namespace

class tst_SmtpClientSession : public QObject
{
    Q_OBJECT

private slots:
    void metaTypesRegisteredAtLoad();
    void earlyEnd_data();
    void earlyEnd();
    void nextCommand_data();
    void nextCommand();
    void completeSession_data();
    void completeSession();
    void cramMd5Hash_data();
    void cramMd5Hash();
    void messages_data();
    void messages();
    void connectionRefused();
    void waitForSent();
    void settingsAndMessageCopiedAtSend();
    void concurrentJobsOfOneClient();
};

void tst_SmtpClientSession::metaTypesRegisteredAtLoad()
{
    const char* names[] = {"oru::EMail*", "oru::EMailPtr", "oru::constEMailPtr"};
    for (int i = 0; i < 3; ++i) {
        QVERIFY(SmtpClient::gEmailMetaTypes[i] != QMetaType::UnknownType);
        QCOMPARE(QMetaType::type(names[i]), SmtpClient::gEmailMetaTypes[i]);
    }
    const QMetaMethod sent = QMetaMethod::fromSignal(&SmtpClient::sent);
    QCOMPARE(sent.methodSignature(), QByteArray("sent(oru::constEMailPtr,int,QString,int)"));
    QCOMPARE(sent.parameterNames(), (QList<QByteArray>{"mail", "responseCode", "message", "jobId"}));
    QCOMPARE(SmtpClient::staticMetaObject.methodCount() - SmtpClient::staticMetaObject.methodOffset(), 1);
}

void tst_SmtpClientSession::earlyEnd_data()
{
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");

    const QStringList ehlo = Script::greetingAndEhlo({"AUTH LOGIN PLAIN"});
    QTest::newRow("greeting refused") << steps("S: 554 no service|expect-close") << 554 << "no service\r\n";
    QTest::newRow("closed before greeting") << steps("close") << 0 << "";
    QTest::newRow("greeting as continuation") << steps("S: 220-hi|expect-close") << -220 << "hi\r\n";
    QTest::newRow("bare code, no text") << steps("S~ 421\\r\\n|expect-close") << 421 << "";
    QTest::newRow("ehlo answered by one line")
        << steps("S: 220 hi|C: EHLO localhost|S: 250 example|expect-close") << 250 << "example\r\n";
    QTest::newRow("ehlo refused")
        << steps("S: 220 hi|C: EHLO localhost|S: 502 not here|expect-close") << 502 << "not here\r\n";
    QTest::newRow("login refused")
        << ehlo + steps("C: AUTH LOGIN|S: 504 unrecognized|expect-close") << 504 << "unrecognized\r\n";
    QTest::newRow("login password refused")
        << ehlo + steps("C: AUTH LOGIN|S: 334 a|C: am9l|S: 334 b|C: cHc=|S: 535 bad|expect-close")
        << 535 << "bad\r\n";
    QTest::newRow("server silent after AUTH") << ehlo + steps("C: AUTH LOGIN|close") << 0 << "";
}

void tst_SmtpClientSession::earlyEnd()
{
    QFETCH(QStringList, script);
    QFETCH(int, code);
    QFETCH(QString, text);

    const Played p = play(script, {mailTo({"b@example.org"})}, login("joe", "pw"));
    QVERIFY2(p.completed, p.diagnosis);
    QCOMPARE(p.codes(), QList<int>{code});
    QVERIFY(!p.reports.first().mail);
    QCOMPARE(p.reports.first().text, text);
    QCOMPARE(p.reports.first().jobId, p.id);
    QCOMPARE(p.waitResult, code);
    QVERIFY(!p.received.contains("MAIL FROM") && !p.received.contains("QUIT"));
}

void tst_SmtpClientSession::nextCommand_data()
{
    QTest::addColumn<QStringList>("ehlo");
    QTest::addColumn<ClientSetup>("setup");
    QTest::addColumn<QString>("next");

    const QString mailFrom = QStringLiteral("MAIL FROM:<a@example.org>");
    const QStringList all = Script::ehloReply({"AUTH PLAIN LOGIN CRAM-MD5"});
    const QStringList tlsAndLogin = Script::ehloReply({"STARTTLS", "AUTH LOGIN"});
    using S = SmtpClient;
    QTest::newRow("login before plain; cram-md5 off") << all << login("joe", "pw") << "AUTH LOGIN";
    QTest::newRow("cram-md5 once allowed")
        << all << login("joe", "pw", false, {S::AUTH_CRAM_MD5}) << "AUTH CRAM-MD5";
    QTest::newRow("plain when login is off")
        << all << login("joe", "pw", false, {}, {S::AUTH_LOGIN}) << "AUTH PLAIN am9lOnB3";
    QTest::newRow("none allowed") << all << login("joe", "pw", false, {}, {S::AUTH_LOGIN, S::AUTH_PLAIN})
                                  << mailFrom;
    QTest::newRow("no user") << all << login("", "pw") << mailFrom;
    QTest::newRow("AUTH=LOGIN") << Script::ehloReply({"AUTH=LOGIN"}) << login("joe", "pw") << "AUTH LOGIN";
    QTest::newRow("SMTP-AUTH") << Script::ehloReply({"SMTP-AUTH PLAIN"}) << login("joe", "pw")
                               << "AUTH PLAIN am9lOnB3";
    QTest::newRow("X-AUTH") << Script::ehloReply({"X-AUTH LOGIN"}) << login("joe", "pw") << mailFrom;
    QTest::newRow("case-sensitive") << Script::ehloReply({"auth login", "AUTH plain"}) << login("joe", "pw")
                                    << mailFrom;
    QTest::newRow("last line unread") << steps("S: 250-localhost|S: 250 AUTH LOGIN") << login("joe", "pw")
                                      << mailFrom;
    QTest::newRow("%2 in user") << Script::ehloReply({"AUTH PLAIN"}) << login("a%2", "pw")
                                << "AUTH PLAIN " + QString::fromLatin1(QByteArray("apw:pw").toBase64());
    QTest::newRow("empty password") << Script::ehloReply({"AUTH PLAIN"}) << login("joe", "")
                                    << "AUTH PLAIN am9lOg==";
    QTest::newRow("starttls wanted") << tlsAndLogin << login("joe", "pw", true) << "STARTTLS";
    QTest::newRow("starttls flag off") << tlsAndLogin << login("joe", "pw") << "AUTH LOGIN";
    QTest::newRow("starttls not allowed")
        << tlsAndLogin << login("joe", "pw", true, {}, {S::STARTTLS}) << "AUTH LOGIN";
    QTest::newRow("starttls listed last")
        << steps("S: 250-srv|S: 250-AUTH PLAIN LOGIN|S: 250 STARTTLS") << login("joe", "pw", true)
        << "AUTH LOGIN";
}

void tst_SmtpClientSession::nextCommand()
{
    QFETCH(QStringList, ehlo);
    QFETCH(ClientSetup, setup);
    QFETCH(QString, next);

    const Played p = play(steps("S: 220 hi|C: EHLO localhost") + ehlo + steps("C: *"),
                          {mailTo({"b@example.org"})}, setup);
    QVERIFY2(p.completed, p.diagnosis);
    QCOMPARE(p.lines.value(1), next);
}

void tst_SmtpClientSession::completeSession_data()
{
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<ClientSetup>("setup");
    QTest::addColumn<int>("mails");
    QTest::addColumn<QList<int>>("codes");
    QTest::addColumn<int>("result");

    const QStringList message = Script::envelope(kFrom, {"b@example.org"}) + Script::dataAndQuit();
    const QStringList ehloLogin = Script::greetingAndEhlo({"AUTH LOGIN"});
    const QStringList ehloPlain = Script::greetingAndEhlo({"AUTH PLAIN"});
    QTest::newRow("login") << ehloLogin + Script::authLogin("joe", "pw") + message << login("joe", "pw") << 1
                           << QList<int>{250} << 250;
    QTest::newRow("login, non-ASCII user")
        << ehloLogin + Script::authLogin(QString::fromUtf8("jörg"), "pw") + message
        << login(QString::fromUtf8("jörg"), "pw") << 1 << QList<int>{250} << 250;
    QTest::newRow("login, empty password sent as empty line")
        << ehloLogin + steps("C: AUTH LOGIN|S: 334 a|C: am9l|S: 334 b|C: |S: 235 ok") + message
        << login("joe", "") << 1 << QList<int>{250} << 250;
    QTest::newRow("plain") << ehloPlain + steps("C: AUTH PLAIN am9lOnB3|S: 235 ok") + message
                           << login("joe", "pw") << 1 << QList<int>{250} << 250;
    const QByteArray challenge("<1896.697170952@postoffice.reston.mci.com>");
    const QByteArray response = "tim " + hmacOf64("tanstaaftanstaaf", challenge).toHex();
    QTest::newRow("cram-md5")
        << Script::greetingAndEhlo({"AUTH CRAM-MD5 LOGIN"})
               + steps("C: AUTH CRAM-MD5|S: 334 " + challenge.toBase64() + "|C: " + response.toBase64()
                       + "|S: 235 ok")
               + message
        << login("tim", "tanstaaftanstaaf", false, {SmtpClient::AUTH_CRAM_MD5}) << 1 << QList<int>{250} << 250;
    QTest::newRow("starttls refused, on in the clear")
        << Script::greetingAndEhlo({"STARTTLS", "AUTH LOGIN"}) + steps("C: STARTTLS|S: 454 not now")
               + Script::authLogin("joe", "pw") + message
        << login("joe", "pw", true) << 1 << QList<int>{454, 250} << 250;
    QTest::newRow("no message, no AUTH: last read is EHLO's")
        << ehloPlain + Script::quit() << login("", "") << 0 << QList<int>() << -250;
    QTest::newRow("no message after AUTH")
        << ehloPlain + steps("C: AUTH PLAIN am9lOnB3|S: 235 ok") + Script::quit() << login("joe", "pw") << 0
        << QList<int>() << 235;
}

void tst_SmtpClientSession::completeSession()
{
    QFETCH(QStringList, script);
    QFETCH(ClientSetup, setup);
    QFETCH(int, mails);
    QFETCH(QList<int>, codes);
    QFETCH(int, result);

    const QList<EMail> list = mails ? QList<EMail>{mailTo({"b@example.org"})} : QList<EMail>();
    const Played p = play(script, list, setup);
    QVERIFY2(p.completed, p.diagnosis);
    QCOMPARE(p.codes(), codes);
    QCOMPARE(p.waitResult, result);
    QCOMPARE(p.lines.last(), QStringLiteral("QUIT"));
    QVERIFY(!p.encrypted);
}

void tst_SmtpClientSession::cramMd5Hash_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("challenge");
    QTest::addColumn<QByteArray>("digest");

    const QByteArray chal64(64, 'x');
    QTest::newRow("64-byte challenge: plain HMAC") << QByteArray("key") << chal64 << hmacOf64("key", chal64);
    QTest::newRow("short challenge zero-padded") << QByteArray("key") << QByteArray("abc")
                                                 << hmacOf64("key", "abc");
    QTest::newRow("long challenge cut") << QByteArray("key") << chal64 + "tail" << hmacOf64("key", chal64);
    QTest::newRow("65-byte key hashed first") << QByteArray(65, 'k') << chal64 << hmacOf64(QByteArray(65, 'k'), chal64);
    // Key byte 0x5c makes a zero in the outer pad, which ends its read.
    QByteArray innerPad(64, 0x36);
    innerPad[0] = char(0x36 ^ 'A');
    innerPad[1] = char(0x36 ^ 0x5c);
    const QByteArray inner = QCryptographicHash::hash(innerPad + chal64, QCryptographicHash::Md5);
    QTest::newRow("0x5c key byte cuts the outer pad")
        << QByteArray("A\x5c") << chal64
        << QCryptographicHash::hash(char(0x5c ^ 'A') + inner, QCryptographicHash::Md5);
}

void tst_SmtpClientSession::cramMd5Hash()
{
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, challenge);
    QFETCH(QByteArray, digest);
    QCOMPARE(SmtpClient::cramMd5Hash(key, challenge).toHex(), digest.toHex());
}

void tst_SmtpClientSession::messages_data()
{
    QTest::addColumn<QList<EMail>>("mails");
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<QList<int>>("codes");
    QTest::addColumn<QStringList>("texts");

    EMail ordered = mailTo({"t1@x.org", "t2@x.org"});
    ordered.to << QString();  // an empty entry
    ordered.cc << QStringLiteral("c1@x.org");
    ordered.bcc << QStringLiteral("b1@x.org; ;b2@x.org");
    QTest::newRow("to, cc, bcc in order, empty ones skipped")
        << QList<EMail>{ordered}
        << Script::envelope(kFrom, {"t1@x.org", "t2@x.org", "c1@x.org", "b1@x.org", "b2@x.org"})
               + Script::dataAndQuit()
        << QList<int>{250} << QStringList{"OK"};
    EMail nobody = mailTo({});
    nobody.to << QStringLiteral(" ,");  // two empty entries
    QTest::newRow("no recipient: DATA follows MAIL FROM")
        << QList<EMail>{nobody} << Script::envelope(kFrom, {}) + Script::dataAndQuit() << QList<int>{250}
        << QStringList{"OK"};

    const QList<EMail> two{mailTo({"x@x.org", "y@x.org", "z@x.org"}, "first"), mailTo({"w@x.org"}, "second")};
    const QStringList second = Script::envelope(kFrom, {"w@x.org"}) + Script::dataAndQuit();
    const QString firstStart = QStringLiteral("C: MAIL FROM:<a@example.org>|S: 250 OK|C: RCPT TO:<x@x.org>|");
    QTest::newRow("refused recipient: next message, no RSET")
        << two << steps(firstStart + "S: 250 OK|C: RCPT TO:<y@x.org>|S: 550 no such user") + second
        << QList<int>{550, 250} << QStringList{"no such user\r\n", "OK"};
    QTest::newRow("251 is a refusal") << two << steps(firstStart + "S: 251 forwarded") + second
                                      << QList<int>{251, 250} << QStringList{"forwarded\r\n", "OK"};
    QTest::newRow("refused sender") << two << steps("C: MAIL FROM:<a@example.org>|S: 553 not yours") + second
                                    << QList<int>{553, 250} << QStringList{"not yours\r\n", "OK"};
    const QStringList firstEnvelope = Script::envelope(kFrom, {"x@x.org", "y@x.org", "z@x.org"});
    QTest::newRow("refused DATA") << two << firstEnvelope + steps("C: DATA|S: 451 later") + second
                                  << QList<int>{451, 250} << QStringList{"later\r\n", "OK"};
    QTest::newRow("data rejected") << two << firstEnvelope + Script::message("554 rejected") + second
                                   << QList<int>{554, 250} << QStringList{"rejected\r\n", "OK"};
    QTest::newRow("data answered by continuation")
        << two << firstEnvelope + Script::message("250-queued") + second << QList<int>{-250, 250}
        << QStringList{"queued\r\n", "OK"};
    QTest::newRow("both accepted") << two << firstEnvelope + Script::message() + second
                                   << QList<int>{250, 250} << QStringList{"OK", "OK"};
}

void tst_SmtpClientSession::messages()
{
    QFETCH(QList<EMail>, mails);
    QFETCH(QStringList, script);
    QFETCH(QList<int>, codes);
    QFETCH(QStringList, texts);

    const Played p = play(Script::greetingAndEhlo() + script, mails);
    QVERIFY2(p.completed, p.diagnosis);
    QVERIFY(!p.lines.contains(QStringLiteral("RSET")));
    QCOMPARE(p.codes(), codes);
    for (int i = 0; i < codes.size(); ++i) {
        QCOMPARE(p.reports.at(i).text, texts.at(i));
        QCOMPARE(p.reports.at(i).mail->subject, mails.at(i).subject);
    }
    QCOMPARE(p.waitResult, 250);
}

void tst_SmtpClientSession::connectionRefused()
{
    SmtpClient client(peerAccess(closedPort()));
    SentRecorder recorder(&client);
    const int id = client.send(mailTo({"b@example.org"}));
    QCOMPARE(client.waitForSent(id, 20000), 0);  // no reply read: the entry the job started with
    const QList<SentReport> reports = recorder.take();
    QCOMPARE(reports.size(), 1);
    QCOMPARE(reports.first().code, -1);
    QVERIFY(!reports.first().mail);
    QVERIFY(reports.first().text.contains(QStringLiteral("refused"), Qt::CaseInsensitive));
}

void tst_SmtpClientSession::waitForSent()
{
    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(steps("wait 800") + Script::greetingAndEhlo()
                           + Script::envelope(kFrom, {"b@example.org"}) + Script::dataAndQuit()));
    QVERIFY(peer.start());
    SmtpClient client(peerAccess(peer.port()));
    const int id = client.send(mailTo({"b@example.org"}));
    QCOMPARE(client.waitForSent(id, 100), -2);  // the server holds back its greeting
    QCOMPARE(client.waitForSent(id, -1), 250);  // negative: no limit
    QCOMPARE(client.responseCode(id), 250);
    // An id never given out counts as finished, without a code.
    QCOMPARE(client.waitForSent(id + 100000, 0), 0);
    QCOMPARE(client.responseCode(id + 200000), 0);
}

void tst_SmtpClientSession::settingsAndMessageCopiedAtSend()
{
    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(Script::greetingAndEhlo({"AUTH PLAIN"}) + steps("C: AUTH PLAIN am9lOnB3|S: 235 ok")
                           + Script::envelope(kFrom, {"b@example.org"}) + Script::dataAndQuit()));
    QVERIFY(peer.start());
    SmtpClient client(peerAccess(peer.port()));
    client.setAuthentication(QStringLiteral("joe"), QStringLiteral("pw"));
    SentRecorder recorder(&client);
    EMail mail = mailTo({"b@example.org"}, "as sent");
    const int id = client.send(mail);
    client.server().port = closedPort();
    client.setAuthentication(QStringLiteral("eve"), QStringLiteral("other"));
    mail.subject = QStringLiteral("changed");
    mail.to << QStringLiteral("c@example.org");

    QCOMPARE(client.waitForSent(id, 20000), 250);
    QVERIFY(peer.waitForFinished(10000));
    QVERIFY(peer.scriptCompleted());
    QVERIFY(peer.data(0).contains("\r\nSubject: as sent\r\n"));
    QCOMPARE(recorder.take().value(0).mail->subject, QStringLiteral("as sent"));
}

void tst_SmtpClientSession::concurrentJobsOfOneClient()
{
    const int jobs = 6;
    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(Script::greetingAndEhlo() + steps("C: *|S: 250 OK|C: *|S: 250 OK")
                           + Script::dataAndQuit()));
    peer.setConnections(jobs);
    QVERIFY(peer.start());
    SmtpClient client(peerAccess(peer.port()));
    SentRecorder recorder(&client);
    QList<int> ids;
    for (int i = 0; i < jobs; ++i)
        ids << client.send(mailTo({"b@example.org"}, QString::number(i)));
    for (int id : qAsConst(ids))
        QCOMPARE(client.waitForSent(id, 30000), 250);
    QVERIFY(peer.waitForFinished(10000));
    QVERIFY(peer.scriptCompleted());
    const QList<SentReport> reports = recorder.take();
    QCOMPARE(reports.size(), jobs);
    for (const SentReport& r : reports)
        QCOMPARE(r.mail->subject, QString::number(ids.indexOf(r.jobId)));
}

QTEST_GUILESS_MAIN(tst_SmtpClientSession)
#include "tst_smtpclient_session.moc"
