// The scripted SMTP peer's connections: TLS, several clients in a row, a
// client on another thread, and the bounds on every wait.

#include "RawClient_p.h"
#include "ScriptedSmtpPeer.h"

#include <QtTest>

#include <memory>

using Peer = ScriptedSmtpPeer;
using Client = RawClient;

namespace {

qint64 timeToDestroy(std::unique_ptr<Peer>& peer)
{
    QElapsedTimer timer;
    timer.start();
    peer.reset();
    return timer.elapsed();
}

} // namespace

class tst_ScriptedPeerConnections : public QObject
{
    Q_OBJECT

private slots:
    void tls_data();
    void tls();
    void severalConnections_data();
    void severalConnections();
    void clientOnAnotherThread();
    void noClientConnects();
    void destructorStopsAtOnce_data();
    void destructorStopsAtOnce();
    void stallReadsNothing();
};

void tst_ScriptedPeerConnections::tls_data()
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

void tst_ScriptedPeerConnections::tls()
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

void tst_ScriptedPeerConnections::severalConnections_data()
{
    QTest::addColumn<QStringList>("commands");
    QTest::addColumn<QString>("failure");

    QTest::newRow("all match") << QStringList{"QUIT", "QUIT", "QUIT"} << QString();
    QTest::newRow("second differs") << QStringList{"QUIT", "NOOP", "QUIT"} << QStringLiteral("connection 2: step 2");
}

void tst_ScriptedPeerConnections::severalConnections()
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
void tst_ScriptedPeerConnections::clientOnAnotherThread()
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

void tst_ScriptedPeerConnections::noClientConnects()
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

void tst_ScriptedPeerConnections::destructorStopsAtOnce_data()
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

void tst_ScriptedPeerConnections::destructorStopsAtOnce()
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

void tst_ScriptedPeerConnections::stallReadsNothing()
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
QTEST_GUILESS_MAIN(tst_ScriptedPeerConnections)
#include "tst_scriptedpeer_connections.moc"
