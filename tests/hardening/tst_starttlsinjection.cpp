// Plain-text lines that a server (or someone on the path) puts in front of
// the TLS handshake must never be taken for replies once the connection is
// encrypted: the conversation after the upgrade consists only of what came
// over TLS.

#include "HostileScenario.h"

#include <QtTest>

using Peer = ScriptedSmtpPeer;

namespace {

// What the client says after the upgrade when only the encrypted replies
// count: the second EHLO, AUTH LOGIN (the only mechanism offered over TLS)
// as joe / pw, and the envelope.
const QByteArray kAfterTls = "EHLO localhost\r\nAUTH LOGIN\r\nam9l\r\ncHc=\r\n"
                             "MAIL FROM:<a@example.org>\r\nRCPT TO:<b@example.org>\r\nDATA\r\n";
// What the client says in the clear before its TLS hello.
const QByteArray kInClear = "EHLO localhost\r\nSTARTTLS\r\n";

} // namespace

class tst_StartTlsInjection : public QObject
{
    Q_OBJECT

private slots:
    void injectedLines_data();
    void injectedLines();
};

void tst_StartTlsInjection::injectedLines_data()
{
    QTest::addColumn<QStringList>("beforeCommand");  // server lines ahead of the client's STARTTLS
    QTest::addColumn<QStringList>("reply");          // the server's answer to STARTTLS
    QTest::addColumn<bool>("upgraded");              // false: the handshake must fail instead

    // In one segment with the 220: the client has them in its buffer when
    // it starts the handshake.
    QTest::newRow("fake EHLO reply offering PLAIN, same segment")
        << QStringList()
        << QStringList{"S~ 220 go ahead\\r\\n250-localhost\\r\\n250-AUTH PLAIN\\r\\n250 OK\\r\\n"} << true;
    QTest::newRow("replies for a whole session, same segment")
        << QStringList()
        << QStringList{"S~ 220 go ahead\\r\\n250-localhost\\r\\n250-AUTH LOGIN\\r\\n250 OK\\r\\n"
                       "334 VXNlcm5hbWU6\\r\\n334 UGFzc3dvcmQ6\\r\\n235 fake\\r\\n250 OK\\r\\n250 OK\\r\\n"
                       "354 go\\r\\n250 OK\\r\\n"}
        << true;
    QTest::newRow("injected refusal, same segment")
        << QStringList() << QStringList{"S~ 220 go ahead\\r\\n554 injected refusal\\r\\n"} << true;
    QTest::newRow("bytes that look like TLS, same segment")
        << QStringList() << QStringList{"S~ 220 go ahead\\r\\n\\x16\\x03\\x03\\x00\\x02\\x01\\x00"} << true;
    QTest::newRow("a line without its end, same segment")
        << QStringList() << QStringList{"S~ 220 go ahead\\r\\n250 partial"} << true;

    // Arriving after the client has begun the handshake: they can only
    // break it.
    QTest::newRow("fake EHLO reply after the 220")
        << QStringList()
        << QStringList{"S: 220 go ahead", "wait 300", "S: 250-localhost", "S: 250-AUTH PLAIN", "S: 250 OK"}
        << false;
    QTest::newRow("false 220 ahead of the STARTTLS command")
        << QStringList{"S: 220 early and false"} << QStringList{"S: 220 go ahead"} << false;
}

void tst_StartTlsInjection::injectedLines()
{
    QFETCH(QStringList, beforeCommand);
    QFETCH(QStringList, reply);
    QFETCH(bool, upgraded);

    const QStringList script = Peer::greetingAndEhlo({"STARTTLS"}) + beforeCommand + QStringList{"C: STARTTLS"} + reply
        + QStringList{"starttls", "C: EHLO localhost"} + Peer::ehloReply({"AUTH LOGIN"}) + Peer::authLogin("joe", "pw")
        + envelopeSteps() + Peer::dataAndQuit();
    const HostileScenario scenario{QTest::currentDataTag(), "starttls auth", script,
                                   {upgraded ? "250@0" : "-1"}, upgraded ? 250 : 220};
    HostileRun run(scenario);
    QString problem;
    QVERIFY2(run.start(&problem), qPrintable(problem));
    problem = run.check();
    QVERIFY2(problem.isEmpty(), qPrintable(problem));

    ScriptedSmtpPeer& peer = *run.peer();
    QVERIFY(peer.waitForFinished(10000));
    // Anything after the command in the clear can only be the TLS hello (a
    // handshake record, first byte 0x16), when the peer read it unencrypted.
    const QByteArray afterTls = peer.receivedAfterTls();
    const QByteArray inClear = peer.received().chopped(afterTls.size());
    QVERIFY2(inClear.startsWith(kInClear), inClear.left(60).constData());
    QVERIFY2(inClear.size() == kInClear.size() || inClear.at(kInClear.size()) == '\x16',
             inClear.toHex().constData());
    if (upgraded) {
        QVERIFY2(peer.scriptCompleted(), qPrintable(peer.failure()));
        QVERIFY(peer.connection(0).encrypted);
        QVERIFY2(afterTls.startsWith(kAfterTls), afterTls.left(200).constData());
        QCOMPARE(peer.data().size(), 1);
    } else {
        QCOMPARE(afterTls, QByteArray());
    }
}

QTEST_GUILESS_MAIN(tst_StartTlsInjection)
#include "tst_starttlsinjection.moc"
