// The scripted SMTP peer, driven by a raw socket client: dialogues matched
// and mismatched, message bodies, TLS, several connections and the bounds
// on every wait.

#include "ScriptedSmtpPeer.h"

#include <QElapsedTimer>
#include <QSslSocket>
#include <QThread>
#include <QtTest>

#include <memory>

using Peer = ScriptedSmtpPeer;

namespace {

// A blocking client that plays a list of actions against the peer:
//   ">bytes"   send the bytes as they are
//   "<bytes"   the next bytes from the peer must be exactly these
//   "tls"      start the client side TLS handshake
//   "close"    close the connection
//   "closed"   the peer must close, with nothing further sent
//   "sleep N"  do nothing for N ms
//   "quiet N"  nothing may arrive within N ms
class Client
{
public:
    bool connectTo(quint16 port, bool tls)
    {
        m_socket.setPeerVerifyMode(QSslSocket::VerifyNone);
        if (tls)
            m_socket.connectToHostEncrypted(QStringLiteral("127.0.0.1"), port);
        else
            m_socket.connectToHost(QHostAddress::LocalHost, port);
        return m_socket.waitForConnected(5000) && (!tls || m_socket.waitForEncrypted(5000));
    }

    // Empty when every action went as stated; else what went wrong.
    QString run(const QList<QByteArray>& actions)
    {
        for (int i = 0; i < actions.size(); ++i) {
            const QString problem = act(actions.at(i));
            if (!problem.isEmpty())
                return QStringLiteral("client action %1: %2").arg(i + 1).arg(problem);
        }
        return QString();
    }

    QSslSocket& socket() { return m_socket; }

private:
    QString act(const QByteArray& action)
    {
        if (action.startsWith('>')) {
            m_socket.write(action.mid(1));
            return flush() ? QString() : QStringLiteral("could not send");
        }
        if (action.startsWith('<'))
            return expect(action.mid(1));
        if (action == "tls") {
            m_socket.startClientEncryption();
            return m_socket.waitForEncrypted(5000) ? QString()
                                                   : QStringLiteral("no TLS: ") + m_socket.errorString();
        }
        if (action == "close") {
            flush();
            m_socket.disconnectFromHost();
            if (m_socket.state() != QAbstractSocket::UnconnectedState)
                m_socket.waitForDisconnected(2000);
            return QString();
        }
        if (action == "closed")
            return expectClosed();
        if (action.startsWith("sleep ")) {
            QThread::msleep(action.mid(6).toULong());
            return QString();
        }
        if (action.startsWith("quiet ")) {
            m_socket.waitForReadyRead(action.mid(6).toInt());
            take();
            return m_in.isEmpty() ? QString() : QStringLiteral("unexpected \"%1\"").arg(QString::fromLatin1(m_in));
        }
        return QStringLiteral("unknown action");
    }

    bool flush()
    {
        QElapsedTimer timer;
        timer.start();
        while (m_socket.bytesToWrite() > 0 || m_socket.encryptedBytesToWrite() > 0) {
            if (timer.hasExpired(5000) || m_socket.state() != QAbstractSocket::ConnectedState)
                return false;
            m_socket.waitForBytesWritten(100);
        }
        return true;
    }

    void take() { m_in += m_socket.readAll(); }

    QString expect(const QByteArray& wanted)
    {
        QElapsedTimer timer;
        timer.start();
        take();
        while (m_in.size() < wanted.size() && !timer.hasExpired(10000)
               && m_socket.state() == QAbstractSocket::ConnectedState) {
            m_socket.waitForReadyRead(100);
            take();
        }
        const QByteArray got = m_in.left(wanted.size());
        m_in.remove(0, got.size());
        if (got == wanted)
            return QString();
        return QStringLiteral("expected \"%1\", got \"%2\"")
            .arg(QString::fromLatin1(wanted.left(80)), QString::fromLatin1(got.left(80)));
    }

    QString expectClosed()
    {
        QElapsedTimer timer;
        timer.start();
        while (m_socket.state() != QAbstractSocket::UnconnectedState && !timer.hasExpired(5000)) {
            m_socket.waitForReadyRead(100);
            take();
        }
        take();
        if (m_socket.state() != QAbstractSocket::UnconnectedState)
            return QStringLiteral("the peer did not close");
        if (!m_in.isEmpty())
            return QStringLiteral("unexpected \"%1\" before the close").arg(QString::fromLatin1(m_in.left(80)));
        return QString();
    }

    QSslSocket m_socket;
    QByteArray m_in;
};

void checkFailure(const QString& failure, const QStringList& fragments)
{
    if (fragments.isEmpty()) {
        QCOMPARE(failure, QString());
        return;
    }
    for (const QString& fragment : fragments)
        QVERIFY2(failure.contains(fragment), qPrintable(QStringLiteral("\"%1\" lacks \"%2\"").arg(failure, fragment)));
}

qint64 timeToDestroy(std::unique_ptr<Peer>& peer)
{
    QElapsedTimer timer;
    timer.start();
    peer.reset();
    return timer.elapsed();
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
    void tls_data();
    void tls();
    void severalConnections_data();
    void severalConnections();
    void builders_data();
    void builders();
    void clientOnAnotherThread();
    void noClientConnects();
    void destructorStopsAtOnce_data();
    void destructorStopsAtOnce();
    void stallReadsNothing();
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

void tst_ScriptedPeer::tls_data()
{
    QTest::addColumn<bool>("implicitTls");
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<QList<QByteArray>>("client");
    QTest::addColumn<QByteArray>("afterTls");

    QTest::newRow("STARTTLS upgrade")
        << false << Peer::greetingAndEhlo({"STARTTLS"}) + Peer::startTls({"AUTH LOGIN"}) + Peer::quit()
        << QList<QByteArray>{"<220 localhost ESMTP scripted peer\r\n", ">EHLO localhost\r\n",
                             "<250-localhost\r\n250-STARTTLS\r\n250 OK\r\n", ">STARTTLS\r\n",
                             "<220 Ready to start TLS\r\n", "tls", ">EHLO localhost\r\n",
                             "<250-localhost\r\n250-AUTH LOGIN\r\n250 OK\r\n", ">QUIT\r\n", "close"}
        << QByteArray("EHLO localhost\r\nQUIT\r\n");
    QTest::newRow("plain bytes sent with STARTTLS are dropped")
        << false << QStringList{"C: STARTTLS", "S: 220 go", "starttls", "C: EHLO localhost", "expect-close"}
        << QList<QByteArray>{">STARTTLS\r\nNOOP\r\n", "<220 go\r\n", "tls", ">EHLO localhost\r\n", "close"}
        << QByteArray("EHLO localhost\r\n");
    QTest::newRow("TLS from the first byte")
        << true << QStringList{"S: 220 secure", "C: EHLO localhost", "S: 250 ok", "expect-close"}
        << QList<QByteArray>{"<220 secure\r\n", ">EHLO localhost\r\n", "<250 ok\r\n", "close"}
        << QByteArray("EHLO localhost\r\n");
}

void tst_ScriptedPeer::tls()
{
    QFETCH(bool, implicitTls);
    QFETCH(QStringList, script);
    QFETCH(QList<QByteArray>, client);
    QFETCH(QByteArray, afterTls);

    Peer peer(implicitTls ? Peer::Smtps : Peer::Plain);
    QVERIFY(peer.setScript(script));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));

    Client raw;
    QVERIFY(raw.connectTo(peer.port(), implicitTls));
    const QString clientProblem = raw.run(client);
    QVERIFY(peer.waitForFinished(10000));
    QVERIFY2(clientProblem.isEmpty(), qPrintable(clientProblem + QLatin1String(" / peer: ") + peer.failure()));
    QVERIFY2(peer.scriptCompleted(), qPrintable(peer.failure()));
    QVERIFY(peer.connection(0).encrypted);

    QByteArray sent;
    for (const QByteArray& action : client) {
        if (action.startsWith('>'))
            sent += action.mid(1);
    }
    QCOMPARE(peer.received(), sent);
    QCOMPARE(peer.receivedAfterTls(), afterTls);
}

void tst_ScriptedPeer::severalConnections_data()
{
    QTest::addColumn<QStringList>("commands");
    QTest::addColumn<QString>("failure");

    QTest::newRow("all match") << QStringList{"QUIT", "QUIT", "QUIT"} << QString();
    QTest::newRow("second differs") << QStringList{"QUIT", "NOOP", "QUIT"} << QStringLiteral("connection 2: step 2");
}

void tst_ScriptedPeer::severalConnections()
{
    QFETCH(QStringList, commands);
    QFETCH(QString, failure);

    Peer peer;
    QVERIFY(peer.setScript(QStringLiteral("S: 220 again\nC: QUIT\nS: 221 bye\nclose\n")));
    peer.setConnections(commands.size());
    QVERIFY(peer.start());

    for (const QString& command : commands) {
        Client raw;
        QVERIFY(raw.connectTo(peer.port(), false));
        const QString problem = raw.run({"<220 again\r\n", ">" + command.toLatin1() + "\r\n"});
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
        raw.socket().waitForDisconnected(5000);
    }
    QVERIFY(peer.waitForFinished(5000));
    QCOMPARE(peer.connectionCount(), commands.size());
    QCOMPARE(peer.clientLines(), commands);
    QCOMPARE(peer.scriptCompleted(), failure.isEmpty());
    if (failure.isEmpty())
        QCOMPARE(peer.failure(), QString());
    else
        QVERIFY2(peer.failure().startsWith(failure), qPrintable(peer.failure()));
    for (int i = 0; i < commands.size(); ++i)
        QCOMPARE(peer.connection(i).clientLines, QStringList{commands.at(i)});

    // The peer stopped listening after the last connection.
    QTcpSocket late;
    late.connectToHost(QHostAddress::LocalHost, peer.port());
    QVERIFY(!late.waitForConnected(2000));
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

void tst_ScriptedPeer::clientOnAnotherThread()
{
    // As a library client runs: on a worker thread, QUIT written without a
    // flush and the socket dropped at once, while this thread only blocks.
    Peer peer;
    QVERIFY(peer.setScript(Peer::greetingAndEhlo() + Peer::envelope("a@x", {"b@y"}) + Peer::dataAndQuit()));
    QVERIFY(peer.start());
    QString problem;
    const quint16 port = peer.port();
    std::unique_ptr<QThread> worker(QThread::create([port, &problem] {
        Client raw;
        if (!raw.connectTo(port, false)) {
            problem = QStringLiteral("no connection");
            return;
        }
        problem = raw.run({"<220 localhost ESMTP scripted peer\r\n", ">EHLO localhost\r\n",
                           "<250-localhost\r\n250 OK\r\n", ">MAIL FROM:<a@x>\r\n", "<250 OK\r\n",
                           ">RCPT TO:<b@y>\r\n", "<250 OK\r\n", ">DATA\r\n",
                           "<354 End data with <CR><LF>.<CR><LF>\r\n", ">x\r\n.\r\n", "<250 OK\r\n"});
        raw.socket().write("QUIT\r\n");
        raw.socket().abort();
    }));
    worker->start();
    QVERIFY(worker->wait(10000));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    QVERIFY(peer.waitForFinished(5000));
    QVERIFY2(peer.scriptCompleted(), qPrintable(peer.failure()));
    QCOMPARE(peer.data(), QList<QByteArray>{"x\r\n"});
}

void tst_ScriptedPeer::noClientConnects()
{
    Peer peer;
    QVERIFY(peer.setScript(Peer::greetingAndEhlo()));
    peer.setAcceptTimeout(300);
    QVERIFY(peer.start());
    QVERIFY(!peer.start());
    // Once started, the script stays as it was.
    QVERIFY(!peer.setScript(QStringList{"bogus"}));
    QElapsedTimer timer;
    timer.start();
    QVERIFY(peer.waitForFinished(5000));
    QVERIFY(timer.elapsed() < 3000);
    QVERIFY(peer.isFinished());
    QVERIFY(!peer.scriptCompleted());
    QCOMPARE(peer.failure(), QStringLiteral("connection 1 did not come within 300 ms"));
    QCOMPARE(peer.connectionCount(), 0);
}

void tst_ScriptedPeer::destructorStopsAtOnce_data()
{
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<bool>("connect");

    QTest::newRow("waiting for a connection") << QStringList{"S: 220 x"} << false;
    QTest::newRow("waiting for a line") << QStringList{"C: EHLO localhost"} << true;
    QTest::newRow("waiting for a body") << QStringList{"C: <data>"} << true;
    QTest::newRow("waiting for the close") << QStringList{"expect-close"} << true;
    QTest::newRow("stalled") << QStringList{"stall"} << true;
    QTest::newRow("sleeping") << QStringList{"wait 60000"} << true;
    QTest::newRow("sending to a client that reads nothing") << QStringList{"big-line 16000000"} << true;
}

void tst_ScriptedPeer::destructorStopsAtOnce()
{
    QFETCH(QStringList, script);
    QFETCH(bool, connect);

    auto peer = std::make_unique<Peer>();
    QVERIFY(peer->setScript(script));
    peer->setStepTimeout(60000);
    peer->setAcceptTimeout(60000);
    QVERIFY(peer->start());
    Client raw;
    if (connect)
        QVERIFY(raw.connectTo(peer->port(), false));
    QThread::msleep(300);
    QVERIFY(!peer->isFinished());
    QVERIFY(timeToDestroy(peer) < 2000);
}

void tst_ScriptedPeer::stallReadsNothing()
{
    // More than the kernel buffers hold while the receiving side reads nothing.
    const QByteArray body = QByteArray(16 * 1024 * 1024, 'a') + "\r\n.\r\n";

    Peer peer;
    QVERIFY(peer.setScript(QStringList{"stall", "C: <data>", "S: 250 ok"}));
    peer.setStepTimeout(3000);
    QVERIFY(peer.start());
    Client raw;
    QVERIFY(raw.connectTo(peer.port(), false));
    raw.socket().write(body);

    // While the peer stalls, the client cannot get rid of its bytes.
    QElapsedTimer timer;
    timer.start();
    while (!timer.hasExpired(1000))
        raw.socket().waitForBytesWritten(100);
    QVERIFY(raw.socket().bytesToWrite() > 0);

    // Once the stall ends, the peer reads it all.
    QString problem = raw.run({"<250 ok\r\n", "closed"});
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    QVERIFY(peer.waitForFinished(5000));
    QVERIFY2(peer.scriptCompleted(), qPrintable(peer.failure()));
    QCOMPARE(peer.data(0).size(), body.size() - 3);
}

QTEST_GUILESS_MAIN(tst_ScriptedPeer)
#include "tst_scriptedpeer.moc"
