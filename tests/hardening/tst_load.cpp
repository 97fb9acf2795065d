// Many jobs of one client at once against a real SMTP server: every message
// is reported exactly once, in its job's order, and arrives exactly once.

#include "AiosmtpdServer.h"
#include "HostileScenario.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QtTest>

namespace {

QString keyOf(int job, int message)
{
    return QStringLiteral("job %1 message %2").arg(job).arg(message);
}

} // namespace

/// Receives sent() queued into the test's thread, as a host's object does.
class Inbox : public QObject
{
    Q_OBJECT

public:
    QStringList entries;  ///< "jobId key code text"

public slots:
    void take(oru::constEMailPtr mail, int responseCode, const QString& message, int jobId)
    {
        entries << QStringLiteral("%1 %2 %3 %4").arg(jobId).arg(messageKey(mail)).arg(responseCode).arg(message);
    }
};

class tst_Load : public QObject
{
    Q_OBJECT

private slots:
    void manyMessages_data();
    void manyMessages();
};

void tst_Load::manyMessages_data()
{
    QTest::addColumn<int>("jobs");
    QTest::addColumn<int>("messagesPerJob");

    QTest::newRow("20 jobs of 50 messages") << 20 << 50;
    QTest::newRow("1 job of 200 messages") << 1 << 200;
}

void tst_Load::manyMessages()
{
    QFETCH(int, jobs);
    QFETCH(int, messagesPerJob);

    AiosmtpdServer server;
    QVERIFY2(server.start(), qPrintable(server.error()));
    oru::SmtpClient client(oru::SmtpAccess(QStringLiteral("127.0.0.1"), server.port(), QString(), QString()));
    Inbox inbox;
    QVERIFY(connect(&client, &oru::SmtpClient::sent, &inbox, &Inbox::take));

    // Every job ends before the client goes, also after a failed check.
    QVector<int> ids;
    const auto waitForAll = qScopeGuard([&] {
        for (int id : qAsConst(ids))
            client.waitForSent(id, -1);
    });
    QElapsedTimer clock;
    clock.start();
    for (int j = 0; j < jobs; ++j) {
        QList<oru::EMail> mails;
        for (int m = 0; m < messagesPerJob; ++m)
            mails << keyedMessage(keyOf(j, m));
        QElapsedTimer sendClock;
        sendClock.start();
        ids << client.send(mails);
        QVERIFY2(sendClock.elapsed() < 1000, "send() kept the host waiting");
    }
    QCOMPARE(QSet<int>(ids.begin(), ids.end()).size(), jobs);
    for (int id : qAsConst(ids))
        QCOMPARE(client.waitForSent(id, int(qMax<qint64>(1, 120000 - clock.elapsed()))), 250);
    qInfo("%d messages in %d jobs reported after %lld ms", jobs * messagesPerJob, jobs, clock.elapsed());

    // Each message reported once, with its job's id, in its job's order; and
    // received once.
    QCoreApplication::sendPostedEvents(&inbox, QEvent::MetaCall);
    QStringList expected, received;
    for (int j = 0; j < jobs; ++j) {
        QStringList reported = inbox.entries.filter(QRegularExpression(QStringLiteral("^%1 ").arg(ids.at(j))));
        for (int m = 0; m < messagesPerJob; ++m) {
            expected << keyOf(j, m);
            QCOMPARE(reported.value(m), QStringLiteral("%1 %2 250 OK").arg(ids.at(j)).arg(keyOf(j, m)));
        }
        QCOMPARE(reported.size(), messagesPerJob);
    }
    QCOMPARE(inbox.entries.size(), expected.size());

    QVERIFY2(server.waitForMessages(expected.size(), 30000), qPrintable(server.log()));
    static const QRegularExpression header(QStringLiteral("^X-Test-Key: ([^\\r\\n]*)"),
                                           QRegularExpression::MultilineOption);
    for (const QByteArray& message : server.messages())
        received << header.match(QString::fromLatin1(message)).captured(1);
    received.sort();
    expected.sort();
    QCOMPARE(received, expected);
}

QTEST_GUILESS_MAIN(tst_Load)
#include "tst_load.moc"
