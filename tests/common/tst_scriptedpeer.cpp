// The scripted peer must report a client line that differs from its script:
// every suite relies on that to catch a wrong command.

#include "ScriptedSmtpPeer.h"

#include <QTcpSocket>
#include <QtTest>

class tst_ScriptedPeer : public QObject
{
    Q_OBJECT

private slots:
    void clientLine_data();
    void clientLine();
};

void tst_ScriptedPeer::clientLine_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QString>("failure");  // empty: the script completes

    const QString step = QStringLiteral("step 2 \"C: EHLO localhost\": expected \"EHLO localhost\", ");
    QTest::newRow("matching line") << QByteArray("EHLO localhost\r\n") << QString();
    QTest::newRow("other command") << QByteArray("HELO other\r\n") << step + "got \"HELO other\\r\\n\"";
    QTest::newRow("bare line feed") << QByteArray("EHLO localhost\n") << step + "got \"EHLO localhost\\n\"";
    QTest::newRow("trailing space") << QByteArray("EHLO localhost \r\n") << step + "got \"EHLO localhost \\r\\n\"";
    QTest::newRow("close within the line")
        << QByteArray("EHLO") << step + "but the client closed the connection (partial line \"EHLO\")";
}

void tst_ScriptedPeer::clientLine()
{
    QFETCH(QByteArray, sent);
    QFETCH(QString, failure);

    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript({"S: 220 hi", "C: EHLO localhost", "S: 250 ok"}));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    QTcpSocket client;
    client.connectToHost(QHostAddress::LocalHost, peer.port());
    QVERIFY(client.waitForConnected(5000));
    client.write(sent);
    QVERIFY(client.waitForBytesWritten(5000));
    if (!sent.endsWith('\n'))
        client.disconnectFromHost();
    QVERIFY(peer.waitForFinished(10000));
    QCOMPARE(peer.failure(), failure);
    QCOMPARE(peer.scriptCompleted(), failure.isEmpty());
    QCOMPARE(peer.received(), sent);
}

QTEST_GUILESS_MAIN(tst_ScriptedPeer)
#include "tst_scriptedpeer.moc"
