// The scripted SMTP peer's dialogue, driven by a raw socket client: lines
// matched and mismatched, raw sends, message bodies, script errors and the
// script builders.

#include "RawClient_p.h"
#include "ScriptedSmtpPeer.h"

#include <QtTest>

using Peer = ScriptedSmtpPeer;
using Client = RawClient;

namespace {

void checkFailure(const QString& failure, const QStringList& fragments)
{
    if (fragments.isEmpty()) {
        QCOMPARE(failure, QString());
        return;
    }
    for (const QString& fragment : fragments)
        QVERIFY2(failure.contains(fragment), qPrintable(QStringLiteral("\"%1\" lacks \"%2\"").arg(failure, fragment)));
}

} // namespace

class tst_ScriptedPeer : public QObject
{
    Q_OBJECT

private slots:
    void dialogue_data();
    void dialogue();
    void scriptErrors_data();
    void scriptErrors();
    void builders_data();
    void builders();
};

void tst_ScriptedPeer::dialogue_data()
{
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<int>("stepTimeout");
    QTest::addColumn<QList<QByteArray>>("client");
    QTest::addColumn<QStringList>("failure");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QList<QByteArray>>("data");

    const QByteArray bigLine(70000, 'x');

    QTest::newRow("greeting and EHLO matched")
        << Peer::greetingAndEhlo({"AUTH LOGIN PLAIN"}) + Peer::quit() << 5000
        << QList<QByteArray>{"<220 localhost ESMTP scripted peer\r\n", ">EHLO localhost\r\n",
                             "<250-localhost\r\n250-AUTH LOGIN PLAIN\r\n250 OK\r\n", ">QUIT\r\n", "close"}
        << QStringList() << QStringList{"EHLO localhost", "QUIT"} << QList<QByteArray>();
    QTest::newRow("optional line left out by a closing client")
        << QStringList{"S: 220 hi", "C? QUIT", "expect-close"} << 5000
        << QList<QByteArray>{"<220 hi\r\n", "close"}
        << QStringList() << QStringList() << QList<QByteArray>();
    QTest::newRow("optional line that does not match")
        << QStringList{"C? QUIT", "expect-close"} << 5000
        << QList<QByteArray>{">RSET\r\n", "closed"}
        << QStringList{"step 1", "\"QUIT\"", "got \"RSET\\r\\n\""} << QStringList{"RSET"} << QList<QByteArray>();
    QTest::newRow("wrong command reported")
        << QStringList{"S: 220 hi", "C: EHLO localhost", "S: 250 never sent"} << 5000
        << QList<QByteArray>{"<220 hi\r\n", ">HELO other\r\n", "closed"}
        << QStringList{"step 2", "C: EHLO localhost", "expected \"EHLO localhost\"", "got \"HELO other\\r\\n\""}
        << QStringList{"HELO other"} << QList<QByteArray>();
    QTest::newRow("bare line feed is a mismatch")
        << QStringList{"C: EHLO localhost"} << 5000
        << QList<QByteArray>{">EHLO localhost\n", "closed"}
        << QStringList{"step 1", "got \"EHLO localhost\\n\""} << QStringList{"EHLO localhost"}
        << QList<QByteArray>();
    QTest::newRow("trailing space is a mismatch")
        << QStringList{"C: NOOP"} << 5000 << QList<QByteArray>{">NOOP \r\n", "closed"}
        << QStringList{"got \"NOOP \\r\\n\""} << QStringList{"NOOP "} << QList<QByteArray>();
    QTest::newRow("any line")
        << QStringList{"C: *", "S: 250 ok"} << 5000
        << QList<QByteArray>{">whatever it is\r\n", "<250 ok\r\n", "closed"}
        << QStringList() << QStringList{"whatever it is"} << QList<QByteArray>();
    QTest::newRow("line split over two segments")
        << QStringList{"C: EHLO localhost", "S: 250 ok"} << 5000
        << QList<QByteArray>{">EH", "sleep 100", ">LO localhost\r\n", "<250 ok\r\n", "closed"}
        << QStringList() << QStringList{"EHLO localhost"} << QList<QByteArray>();
    QTest::newRow("two commands in one segment")
        << QStringList{"C: MAIL FROM:<a@x>", "C: RCPT TO:<b@y>", "S: 250 ok"} << 5000
        << QList<QByteArray>{">MAIL FROM:<a@x>\r\nRCPT TO:<b@y>\r\n", "<250 ok\r\n", "closed"}
        << QStringList() << QStringList{"MAIL FROM:<a@x>", "RCPT TO:<b@y>"} << QList<QByteArray>();
    QTest::newRow("client closes within a line")
        << QStringList{"S: 220 hi", "C: EHLO localhost"} << 5000
        << QList<QByteArray>{"<220 hi\r\n", ">EHL", "close"}
        << QStringList{"step 2", "closed the connection", "partial line \"EHL\""} << QStringList()
        << QList<QByteArray>();
    QTest::newRow("silent client times out")
        << QStringList{"C: EHLO localhost"} << 300 << QList<QByteArray>{"closed"}
        << QStringList{"step 1", "timed out after 300 ms"} << QStringList() << QList<QByteArray>();
    QTest::newRow("raw bytes with escapes")
        << QStringList{"S~ 250-a\\r\\n250 b\\r\\n\\0\\x7f\\\\\\tx"} << 5000
        << QList<QByteArray>{QByteArrayLiteral("<250-a\r\n250 b\r\n\0\x7f\\\tx"), "closed"}
        << QStringList() << QStringList() << QList<QByteArray>();
    QTest::newRow("repeated lines")
        << QStringList{"S* 3 250-x y"} << 5000
        << QList<QByteArray>{"<250-x y\r\n250-x y\r\n250-x y\r\n", "closed"}
        << QStringList() << QStringList() << QList<QByteArray>();
    QTest::newRow("big line without line end")
        << QStringList{"big-line 70000", "S: 250 ok"} << 5000
        << QList<QByteArray>{"<" + bigLine + "250 ok\r\n", "closed"}
        << QStringList() << QStringList() << QList<QByteArray>();
    QTest::newRow("peer closes")
        << QStringList{"S: 421 bye", "close"} << 5000 << QList<QByteArray>{"<421 bye\r\n", "closed"}
        << QStringList() << QStringList() << QList<QByteArray>();
    QTest::newRow("wait delays the reply")
        << QStringList{"wait 400", "S: 220 late"} << 5000
        << QList<QByteArray>{"quiet 200", "<220 late\r\n", "closed"}
        << QStringList() << QStringList() << QList<QByteArray>();
    QTest::newRow("a reply goes out before a wait")
        << QStringList{"S: 220 now", "wait 1000", "S: 250 later"} << 5000
        << QList<QByteArray>{"<220 now\r\n", "quiet 300", "<250 later\r\n", "closed"}
        << QStringList() << QStringList() << QList<QByteArray>();
    QTest::newRow("client that reads nothing fails a big send")
        << QStringList{"big-line 16000000", "S: 250 never"} << 500 << QList<QByteArray>{"sleep 1000", "close"}
        << QStringList{"step 1", "could not send 16000000 bytes within 500 ms"} << QStringList()
        << QList<QByteArray>();
    QTest::newRow("client that stays times out expect-close")
        << QStringList{"expect-close"} << 300 << QList<QByteArray>{"closed"}
        << QStringList{"step 1", "did not close within 300 ms"} << QStringList() << QList<QByteArray>();
    QTest::newRow("message body recorded")
        << QStringList{"S: 354 go", "C: <data>", "S: 250 ok"} << 5000
        << QList<QByteArray>{"<354 go\r\n", ">Subject: x\r\n\r\nline1\r\n.\r\n", "<250 ok\r\n", "closed"}
        << QStringList() << QStringList() << QList<QByteArray>{"Subject: x\r\n\r\nline1\r\n"};
    QTest::newRow("empty message body")
        << QStringList{"C: <data>", "S: 250 ok"} << 5000
        << QList<QByteArray>{">.\r\n", "<250 ok\r\n", "closed"}
        << QStringList() << QStringList() << QList<QByteArray>{""};
    QTest::newRow("end of data split over segments")
        << QStringList{"C: <data>", "S: 250 ok"} << 5000
        << QList<QByteArray>{">abc\r\n.", "sleep 100", ">\r\n", "<250 ok\r\n", "closed"}
        << QStringList() << QStringList() << QList<QByteArray>{"abc\r\n"};
    QTest::newRow("dot line inside a body ends it")
        << QStringList{"C: <data>", "C: b"} << 5000 << QList<QByteArray>{">a\r\n.\r\nb\r\n", "closed"}
        << QStringList() << QStringList{"b"} << QList<QByteArray>{"a\r\n"};
    QTest::newRow("dot at a line start is not an end")
        << QStringList{"C: <data>"} << 5000 << QList<QByteArray>{">a\r\n..b\r\n.x\r\n.\r\n", "closed"}
        << QStringList() << QStringList() << QList<QByteArray>{"a\r\n..b\r\n.x\r\n"};
    QTest::newRow("two bodies")
        << QStringList{"C: <data>", "C: <data>"} << 5000 << QList<QByteArray>{">one\r\n.\r\ntwo\r\n.\r\n", "closed"}
        << QStringList() << QStringList() << QList<QByteArray>{"one\r\n", "two\r\n"};
    QTest::newRow("body that never ends")
        << QStringList{"C: <data>"} << 300 << QList<QByteArray>{">abc\r\n", "closed"}
        << QStringList{"step 1", "expected a message ending", "timed out", "after 5 bytes"} << QStringList()
        << QList<QByteArray>();
    QTest::newRow("sending on a closed connection")
        << QStringList{"close", "S: 250 too late"} << 5000 << QList<QByteArray>{"closed"}
        << QStringList{"step 2", "connection is closed"} << QStringList() << QList<QByteArray>();
}

void tst_ScriptedPeer::dialogue()
{
    QFETCH(QStringList, script);
    QFETCH(int, stepTimeout);
    QFETCH(QList<QByteArray>, client);
    QFETCH(QStringList, failure);
    QFETCH(QStringList, lines);
    QFETCH(QList<QByteArray>, data);

    Peer peer;
    QVERIFY(peer.setScript(script));
    peer.setStepTimeout(stepTimeout);
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    QVERIFY(peer.port() != 0);

    Client raw;
    QVERIFY(raw.connectTo(peer.port(), false));
    const QString clientProblem = raw.run(client);
    QVERIFY(peer.waitForFinished(5000));
    QVERIFY2(clientProblem.isEmpty(), qPrintable(clientProblem + QLatin1String(" / peer: ") + peer.failure()));

    checkFailure(peer.failure(), failure);
    QCOMPARE(peer.scriptCompleted(), failure.isEmpty());
    QCOMPARE(peer.clientLines(), lines);
    QCOMPARE(peer.data(), data);
    QCOMPARE(peer.data(data.size()), QByteArray());
    QCOMPARE(peer.connectionCount(), 1);
    QCOMPARE(peer.connection(0).completed, failure.isEmpty());
    QCOMPARE(peer.connection(0).encrypted, false);
    QCOMPARE(peer.receivedAfterTls(), QByteArray());

    // Everything the client sent is in received(), in order.
    QByteArray sent;
    for (const QByteArray& action : client) {
        if (action.startsWith('>'))
            sent += action.mid(1);
    }
    QCOMPARE(peer.received(), sent);
}

void tst_ScriptedPeer::scriptErrors_data()
{
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<QStringList>("error");

    QTest::newRow("comments, blank lines and spaces around words")
        << QStringList{"# opening", "", "   ", "S:", "  close  ", "C: *"} << QStringList();
    QTest::newRow("unknown step") << QStringList{"S: 220 hi", "HELO"} << QStringList{"script line 2", "unknown step"};
    QTest::newRow("step in lower case") << QStringList{"s: 220 hi"} << QStringList{"script line 1", "unknown step"};
    QTest::newRow("unknown escape") << QStringList{"S~ a\\qb"} << QStringList{"script line 1", "unknown escape \\q"};
    QTest::newRow("short hex escape") << QStringList{"S~ \\x4"} << QStringList{"two hexadecimal digits"};
    QTest::newRow("escape at the end") << QStringList{"S~ abc\\"} << QStringList{"escape at the end"};
    QTest::newRow("wait without a number") << QStringList{"wait soon"} << QStringList{"wait needs milliseconds"};
    QTest::newRow("negative repeat") << QStringList{"S* -1 x"} << QStringList{"S* needs a count"};
    QTest::newRow("repeat without a count") << QStringList{"S* many x"} << QStringList{"S* needs a count"};
    QTest::newRow("big-line without a size") << QStringList{"big-line"} << QStringList{"unknown step"};
    QTest::newRow("text outside Latin-1") << QStringList{"C: ok", "S: 220 \u20ac"}
                                          << QStringList{"script line 2", "Latin-1"};
    QTest::newRow("raw text outside Latin-1") << QStringList{"S~ \u20ac"} << QStringList{"U+20ac"};
}

void tst_ScriptedPeer::scriptErrors()
{
    QFETCH(QStringList, script);
    QFETCH(QStringList, error);

    Peer peer;
    QCOMPARE(peer.setScript(script), error.isEmpty());
    checkFailure(peer.failure(), error);
    if (!error.isEmpty()) {
        QVERIFY(!peer.start());
        QCOMPARE(peer.port(), quint16(0));
    }

    // The text form reads the same steps.
    Peer fromText;
    QCOMPARE(fromText.setScript(script.join(QLatin1String("\r\n"))), error.isEmpty());
    QCOMPARE(fromText.failure(), peer.failure());
}
void tst_ScriptedPeer::builders_data()
{
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<QList<QByteArray>>("client");

    const QList<QByteArray> opening{"<220 localhost ESMTP scripted peer\r\n", ">EHLO localhost\r\n",
                                    "<250-localhost\r\n250-AUTH LOGIN PLAIN CRAM-MD5\r\n250 OK\r\n"};
    const QList<QByteArray> closing{">MAIL FROM:<a@example.org>\r\n", "<250 OK\r\n",
                                    ">RCPT TO:<b@example.org>\r\n", "<250 OK\r\n",
                                    ">RCPT TO:<c@example.org>\r\n", "<250 OK\r\n",
                                    ">DATA\r\n", "<354 End data with <CR><LF>.<CR><LF>\r\n",
                                    ">Subject: s\r\n\r\nbody\r\n.\r\n", "<250 OK\r\n", ">QUIT\r\n", "close"};
    const QStringList head = Peer::greetingAndEhlo({"AUTH LOGIN PLAIN CRAM-MD5"});
    const QStringList tail = Peer::envelope("a@example.org", {"b@example.org", "c@example.org"}) + Peer::dataAndQuit();

    QTest::newRow("LOGIN") << head + Peer::authLogin("joe", "pw") + tail
                           << opening + QList<QByteArray>{">AUTH LOGIN\r\n", "<334 VXNlcm5hbWU6\r\n", ">am9l\r\n",
                                                          "<334 UGFzc3dvcmQ6\r\n", ">cHc=\r\n",
                                                          "<235 2.7.0 Authentication successful\r\n"} + closing;
    QTest::newRow("PLAIN with a colon") << head + Peer::authPlain("joe:pw") + tail
                                        << opening + QList<QByteArray>{">AUTH PLAIN am9lOnB3\r\n",
                                                                       "<235 2.7.0 Authentication successful\r\n"}
            + closing;
    QTest::newRow("PLAIN with zero bytes") << head + Peer::authPlain(QByteArrayLiteral("\0joe\0pw")) + tail
                                           << opening + QList<QByteArray>{">AUTH PLAIN AGpvZQBwdw==\r\n",
                                                                          "<235 2.7.0 Authentication successful\r\n"}
            + closing;
    QTest::newRow("CRAM-MD5 takes any response") << head + Peer::authCramMd5("<1.2@localhost>") + tail
                                                 << opening + QList<QByteArray>{">AUTH CRAM-MD5\r\n",
                                                                                "<334 PDEuMkBsb2NhbGhvc3Q+\r\n",
                                                                                ">am9lIGFiYw==\r\n",
                                                                                "<235 2.7.0 Authentication successful\r\n"}
            + closing;
}

void tst_ScriptedPeer::builders()
{
    QFETCH(QStringList, script);
    QFETCH(QList<QByteArray>, client);

    Peer peer;
    QVERIFY(peer.setScript(script));
    QVERIFY(peer.start());
    Client raw;
    QVERIFY(raw.connectTo(peer.port(), false));
    const QString clientProblem = raw.run(client);
    QVERIFY(peer.waitForFinished(5000));
    QVERIFY2(clientProblem.isEmpty(), qPrintable(clientProblem + QLatin1String(" / peer: ") + peer.failure()));
    QVERIFY2(peer.scriptCompleted(), qPrintable(peer.failure()));
    QCOMPARE(peer.data(), QList<QByteArray>{"Subject: s\r\n\r\nbody\r\n"});
    QCOMPARE(peer.clientLines().last(), QStringLiteral("QUIT"));
}
QTEST_GUILESS_MAIN(tst_ScriptedPeer)
#include "tst_scriptedpeer.moc"
