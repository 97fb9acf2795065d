// A job's SMTP dialogue against a scripted server, in the clear and over
// TLS with a throwaway certificate: early endings, the choice of extension
// and mechanism, the AUTH lines, recipients and end-of-data verdicts, and
// the client's job bookkeeping.

#include "SmtpTestSupport.h"
#include "TestCertificate.h"

#include <QMessageAuthenticationCode>
#include <QSslSocket>
#include <QtTest>

using oru::EMail;
using oru::SmtpClient;
using Script = ScriptedSmtpPeer;

Q_DECLARE_METATYPE(oru::EMail)
Q_DECLARE_METATYPE(ClientSetup)
Q_DECLARE_METATYPE(ScriptedSmtpPeer::Mode)

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

// Credentials and options: "tls" (STARTTLS flag), "ssl", "cram" (allow
// CRAM-MD5), "no-login", "no-plain", "no-starttls" (forbid those).
ClientSetup login(const QString& user, const QString& password, const QString& options = QString())
{
    return [=](SmtpClient& client) {
        const QStringList words = options.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        client.setAuthentication(user, password);
        client.server().tls = words.contains(QLatin1String("tls"));
        client.server().ssl = words.contains(QLatin1String("ssl"));
        // The default set stays untouched unless a word changes it.
        const QPair<const char*, SmtpClient::ExtFeature> changes[] = {
            {"cram", SmtpClient::AUTH_CRAM_MD5}, {"no-login", SmtpClient::AUTH_LOGIN},
            {"no-plain", SmtpClient::AUTH_PLAIN}, {"no-starttls", SmtpClient::STARTTLS}};
        for (const auto& change : changes) {
            if (words.contains(QLatin1String(change.first)))
                client.useFeature(change.second, change.first[0] != 'n');
        }
    };
}

} // namespace

class tst_SmtpClientSession : public QObject
{
    Q_OBJECT

private slots:
    void metaTypesRegisteredAtLoad();
    void dialogue_data();
    void dialogue();
    void nextCommand_data();
    void nextCommand();
    void cramMd5Hash_data();
    void cramMd5Hash();
    void waitForSent();
    void settingsAndMessageCopiedAtSend();
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

void tst_SmtpClientSession::nextCommand_data()
{
    QTest::addColumn<QStringList>("ehlo");
    QTest::addColumn<ClientSetup>("setup");
    QTest::addColumn<QString>("next");

    const QString mailFrom = QStringLiteral("MAIL FROM:<a@example.org>");
    const QStringList all = Script::ehloReply({"AUTH PLAIN LOGIN CRAM-MD5"});
    const QStringList tlsAndLogin = Script::ehloReply({"STARTTLS", "AUTH LOGIN"});
    QTest::newRow("login before plain; cram-md5 off") << all << login("joe", "pw") << "AUTH LOGIN";
    QTest::newRow("cram-md5 once allowed") << all << login("joe", "pw", "cram") << "AUTH CRAM-MD5";
    QTest::newRow("plain when login is off") << all << login("joe", "pw", "no-login") << "AUTH PLAIN am9lOnB3";
    QTest::newRow("none allowed") << all << login("joe", "pw", "no-login no-plain") << mailFrom;
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
    QTest::newRow("starttls wanted") << tlsAndLogin << login("joe", "pw", "tls") << "STARTTLS";
    QTest::newRow("starttls flag off") << tlsAndLogin << login("joe", "pw") << "AUTH LOGIN";
    QTest::newRow("starttls not allowed") << tlsAndLogin << login("joe", "pw", "tls no-starttls") << "AUTH LOGIN";
    QTest::newRow("starttls listed last")
        << steps("S: 250-srv|S: 250-AUTH PLAIN LOGIN|S: 250 STARTTLS") << login("joe", "pw", "tls") << "AUTH LOGIN";
}

void tst_SmtpClientSession::nextCommand()
{
    QFETCH(QStringList, ehlo);
    QFETCH(ClientSetup, setup);
    QFETCH(QString, next);

    const Played p = play(steps("S: 220 hi|C: EHLO localhost") + ehlo + steps("C: *"), {mailTo({"b@example.org"})},
                          setup);
    QVERIFY2(p.completed, p.diagnosis);
    QCOMPARE(p.clientLines.value(1), next);
}

void tst_SmtpClientSession::dialogue_data()
{
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<QList<EMail>>("mails");
    QTest::addColumn<ClientSetup>("setup");
    QTest::addColumn<Script::Mode>("mode");
    QTest::addColumn<QStringList>("reports"); // "code@message:text"; "code:text" without a message
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("clear");    // what went out before TLS; null: no TLS

    const auto row = [](const char* name, const QStringList& script, const QStringList& reports, int result,
                        const ClientSetup& setup = login("joe", "pw"), const QList<EMail>& mails = {mailTo({"b@example.org"})},
                        Script::Mode mode = Script::Plain, const QByteArray& clear = QByteArray()) {
        QTest::newRow(name) << script << mails << setup << mode << reports << result << clear;
    };

    // Endings before the first message: one report without a message, no QUIT.
    const QStringList ehlo = Script::greetingAndEhlo({"AUTH LOGIN PLAIN"});
    row("greeting refused", steps("S: 554 no service|expect-close"), {"554:no service\r\n"}, 554);
    row("closed before greeting", steps("close"), {"0:"}, 0);
    row("greeting as continuation", steps("S: 220-hi|expect-close"), {"-220:hi\r\n"}, -220);
    row("bare code, no text", steps("S~ 421\\r\\n|expect-close"), {"421:"}, 421);
    row("ehlo answered by one line", steps("S: 220 hi|C: EHLO localhost|S: 250 example|expect-close"),
        {"250:example\r\n"}, 250);
    row("ehlo refused", steps("S: 220 hi|C: EHLO localhost|S: 502 not here|expect-close"), {"502:not here\r\n"}, 502);
    row("login refused", ehlo + steps("C: AUTH LOGIN|S: 504 unrecognized|expect-close"), {"504:unrecognized\r\n"},
        504);
    row("login password refused",
        ehlo + steps("C: AUTH LOGIN|S: 334 a|C: am9l|S: 334 b|C: cHc=|S: 535 bad|expect-close"), {"535:bad\r\n"}, 535);
    row("server silent after AUTH", ehlo + steps("C: AUTH LOGIN|close"), {"0:"}, 0);

    // Whole sessions and the exact AUTH lines.
    const QStringList message = Script::envelope(kFrom, {"b@example.org"}) + Script::dataAndQuit();
    const QStringList ehloLogin = Script::greetingAndEhlo({"AUTH LOGIN"});
    const QStringList ehloPlain = Script::greetingAndEhlo({"AUTH PLAIN"});
    const QStringList plain = steps("C: AUTH PLAIN am9lOnB3|S: 235 ok");
    const QStringList ok{"250@0:OK"};
    row("login", ehloLogin + Script::authLogin("joe", "pw") + message, ok, 250);
    row("login, non-ASCII user", ehloLogin + Script::authLogin(QString::fromUtf8("jörg"), "pw") + message, ok, 250,
        login(QString::fromUtf8("jörg"), "pw"));
    row("login, empty password sent as empty line",
        ehloLogin + steps("C: AUTH LOGIN|S: 334 a|C: am9l|S: 334 b|C: |S: 235 ok") + message, ok, 250,
        login("joe", ""));
    row("plain", ehloPlain + plain + message, ok, 250);
    const QByteArray challenge("<1896.697170952@postoffice.reston.mci.com>");
    const QByteArray response = "tim " + hmacOf64("tanstaaftanstaaf", challenge).toHex();
    row("cram-md5",
        Script::greetingAndEhlo({"AUTH CRAM-MD5 LOGIN"})
            + steps("C: AUTH CRAM-MD5|S: 334 " + challenge.toBase64() + "|C: " + response.toBase64() + "|S: 235 ok")
            + message,
        ok, 250, login("tim", "tanstaaftanstaaf", "cram"));
    row("starttls refused, on in the clear",
        Script::greetingAndEhlo({"STARTTLS", "AUTH LOGIN"}) + steps("C: STARTTLS|S: 454 not now")
            + Script::authLogin("joe", "pw") + message,
        {"454:not now\r\n", "250@0:OK"}, 250, login("joe", "pw", "tls"));
    row("no message, no AUTH: last read is EHLO's", ehloPlain + Script::quit(), {}, -250, login("", ""), {});
    row("no message after AUTH", ehloPlain + plain + Script::quit(), {}, 235, login("joe", "pw"), {});

    // Over TLS.
    const QByteArray clearStartTls("EHLO localhost\r\nSTARTTLS\r\n");
    row("starttls, mechanisms read again and narrowed",
        Script::greetingAndEhlo({"STARTTLS"}) + Script::startTls({"AUTH CRAM-MD5 PLAIN"}) + plain + message, ok, 250,
        login("joe", "pw", "tls"), {mailTo({"b@example.org"})}, Script::Plain, clearStartTls);
    row("starttls, mechanism learned before it kept",
        Script::greetingAndEhlo({"STARTTLS", "AUTH PLAIN"}) + Script::startTls({}) + plain + message, ok, 250,
        login("joe", "pw", "tls"), {mailTo({"b@example.org"})}, Script::Plain, clearStartTls);
    row("smtps sends no STARTTLS",
        Script::greetingAndEhlo({"STARTTLS", "AUTH LOGIN"}) + Script::authLogin("joe", "pw") + message, ok, 250,
        login("joe", "pw", "ssl tls"), {mailTo({"b@example.org"})}, Script::Smtps, QByteArray(""));

    // Envelopes and end-of-data verdicts: a refused message is skipped
    // without RSET and the next one goes out.
    EMail ordered = mailTo({"t1@x.org", "t2@x.org"});
    ordered.to << QString();  // an empty entry
    ordered.cc << QStringLiteral("c1@x.org");
    ordered.bcc << QStringLiteral("b1@x.org; ;b2@x.org");
    const QStringList open = Script::greetingAndEhlo();
    row("to, cc, bcc in order, empty ones skipped",
        open + Script::envelope(kFrom, {"t1@x.org", "t2@x.org", "c1@x.org", "b1@x.org", "b2@x.org"})
            + Script::dataAndQuit(),
        ok, 250, login("joe", "pw"), {ordered});
    EMail nobody = mailTo({});
    nobody.to << QStringLiteral(" ,");  // two empty entries
    row("no recipient: DATA follows MAIL FROM", open + Script::envelope(kFrom, {}) + Script::dataAndQuit(), ok, 250,
        login("joe", "pw"), {nobody});

    const QList<EMail> two{mailTo({"x@x.org", "y@x.org", "z@x.org"}, "first"), mailTo({"w@x.org"}, "second")};
    const QStringList second = Script::envelope(kFrom, {"w@x.org"}) + Script::dataAndQuit();
    const QStringList firstEnvelope = open + Script::envelope(kFrom, {"x@x.org", "y@x.org", "z@x.org"});
    const QString firstStart = QStringLiteral("C: MAIL FROM:<a@example.org>|S: 250 OK|C: RCPT TO:<x@x.org>|");
    const auto refused = [&](const char* name, const QStringList& first, const QString& report) {
        row(name, first + second, {report, "250@1:OK"}, 250, login("joe", "pw"), two);
    };
    refused("refused recipient", open + steps(firstStart + "S: 250 OK|C: RCPT TO:<y@x.org>|S: 550 no such user"),
            "550@0:no such user\r\n");
    refused("251 is a refusal", open + steps(firstStart + "S: 251 forwarded"), "251@0:forwarded\r\n");
    refused("refused sender", open + steps("C: MAIL FROM:<a@example.org>|S: 553 not yours"), "553@0:not yours\r\n");
    refused("refused DATA", firstEnvelope + steps("C: DATA|S: 451 later"), "451@0:later\r\n");
    refused("data rejected", firstEnvelope + Script::message("554 rejected"), "554@0:rejected\r\n");
    refused("data answered by continuation", firstEnvelope + Script::message("250-queued"), "-250@0:queued\r\n");
}

void tst_SmtpClientSession::dialogue()
{
    QFETCH(QStringList, script);
    QFETCH(QList<EMail>, mails);
    QFETCH(ClientSetup, setup);
    QFETCH(Script::Mode, mode);
    QFETCH(QStringList, reports);
    QFETCH(int, result);
    QFETCH(QByteArray, clear);
    if (!clear.isNull())
        QVERIFY2(QSslSocket::supportsSsl() && TestCertificate::shared().isValid(),
                 qPrintable(TestCertificate::shared().error()));

    const Played p = play(script, mails, setup, mode);
    QVERIFY2(p.completed, p.diagnosis);
    QStringList got;
    for (const SentReport& r : p.reports) {
        QCOMPARE(r.jobId, p.id);
        QString at;
        for (int i = 0; r.mail && at.isEmpty() && i < mails.size(); ++i)
            at = mails.at(i).subject == r.mail->subject ? QStringLiteral("@%1").arg(i) : QString();
        got << QStringLiteral("%1%2:%3").arg(r.code).arg(r.mail && at.isEmpty() ? QStringLiteral("@?") : at, r.text);
    }
    QCOMPARE(got, reports);
    QCOMPARE(p.waitResult, result);
    // The client sent nothing the script did not read: no RSET, no QUIT
    // after an ending.
    int read = 0;
    for (const QString& line : p.clientLines)
        read += line.size() + 2;
    for (const QByteArray& body : p.data)
        read += body.size() + 3;
    QCOMPARE(p.received.size(), read);
    QCOMPARE(p.encrypted, !clear.isNull());
    if (p.encrypted)
        QCOMPARE(p.received.chopped(p.receivedAfterTls.size()), clear);
}

void tst_SmtpClientSession::cramMd5Hash_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("challenge");
    QTest::addColumn<QByteArray>("digest");

    const QByteArray chal64(64, 'x');
    QTest::newRow("short challenge zero-padded") << QByteArray("key") << QByteArray("abc") << hmacOf64("key", "abc");
    QTest::newRow("long challenge cut") << QByteArray("key") << chal64 + "tail" << hmacOf64("key", chal64);
    QTest::newRow("65-byte key hashed first") << QByteArray(65, 'k') << chal64 << hmacOf64(QByteArray(65, 'k'), chal64);
    // Key byte 0x5c makes a zero in the outer pad, which ends its read.
    QByteArray innerPad(64, 0x36);
    innerPad[0] = char(0x36 ^ 'A');
    innerPad[1] = char(0x36 ^ 0x5c);
    const QByteArray inner = QCryptographicHash::hash(innerPad + chal64, QCryptographicHash::Md5);
    QTest::newRow("0x5c key byte cuts the outer pad")
        << QByteArray("A\x5c") << chal64 << QCryptographicHash::hash(char(0x5c ^ 'A') + inner, QCryptographicHash::Md5);
}

void tst_SmtpClientSession::cramMd5Hash()
{
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, challenge);
    QFETCH(QByteArray, digest);
    QCOMPARE(SmtpClient::cramMd5Hash(key, challenge).toHex(), digest.toHex());
}

void tst_SmtpClientSession::waitForSent()
{
    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(steps("wait 800") + Script::greetingAndEhlo() + Script::envelope(kFrom, {"b@example.org"})
                           + Script::dataAndQuit()));
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
    client.server().port = 1;
    client.setAuthentication(QStringLiteral("eve"), QStringLiteral("other"));
    mail.subject = QStringLiteral("changed");
    mail.to << QStringLiteral("c@example.org");

    QCOMPARE(client.waitForSent(id, 20000), 250);
    QVERIFY(peer.waitForFinished(10000));
    QVERIFY(peer.scriptCompleted());
    QVERIFY(peer.data(0).contains("\r\nSubject: as sent\r\n"));
    QCOMPARE(recorder.take().value(0).mail->subject, QStringLiteral("as sent"));
}

QTEST_GUILESS_MAIN(tst_SmtpClientSession)
#include "tst_smtpclient_session.moc"
