// Many jobs of one client at once against a real SMTP server: every message
// is reported exactly once, in its job's order, and arrives exactly once.

#include "AiosmtpdServer.h"
#include "HostileScenario.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QHash>
#include <QRegularExpression>
#include <QtTest>

namespace {

const int kBlockingSendMs = 1000;

QString keyOf(int job, int message)
{
    return QStringLiteral("job %1 message %2").arg(job).arg(message);
}

// The X-Test-Key header of a message as the server stored it.
QString storedKey(const QByteArray& message)
{
    static const QRegularExpression header(QStringLiteral("^X-Test-Key: ([^\\r\\n]*)"),
                                           QRegularExpression::MultilineOption);
    return header.match(QString::fromLatin1(message)).captured(1);
}

// Waits for every job when the test leaves, also after a failed check: the
// client must outlive its jobs.
struct JobsGuard
{
    oru::SmtpClient& client;
    const QVector<int>& ids;
    ~JobsGuard()
    {
        for (int id : ids)
            client.waitForSent(id, -1);
    }
};

} // namespace

/// Receives sent() queued into the test's thread, as a host's object does.
class Inbox : public QObject
{
    Q_OBJECT

public:
    struct Entry
    {
        QString key;
        int code;
        QString text;
        int jobId;
    };
    QList<Entry> entries;

public slots:
    void take(oru::constEMailPtr mail, int responseCode, const QString& message, int jobId)
    {
        entries << Entry{messageKey(mail), responseCode, message, jobId};
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
    QTest::newRow("60 jobs of 1 message") << 60 << 1;
}

void tst_Load::manyMessages()
{
    QFETCH(int, jobs);
    QFETCH(int, messagesPerJob);
    const int total = jobs * messagesPerJob;

    AiosmtpdServer server;
    QVERIFY2(server.start(), qPrintable(server.error()));

    oru::SmtpClient client(oru::SmtpAccess(QStringLiteral("127.0.0.1"), server.port(), QString(), QString()));
    Inbox inbox;
    QVERIFY(connect(&client, &oru::SmtpClient::sent, &inbox, &Inbox::take));

    QVector<int> ids;
    const JobsGuard guard{client, ids};
    QElapsedTimer clock;
    clock.start();
    for (int j = 0; j < jobs; ++j) {
        QList<oru::EMail> mails;
        for (int m = 0; m < messagesPerJob; ++m)
            mails << keyedMessage(keyOf(j, m));
        QElapsedTimer sendClock;
        sendClock.start();
        ids << client.send(mails);
        QVERIFY2(sendClock.elapsed() < kBlockingSendMs, "send() kept the host waiting");
    }
    QCOMPARE(QSet<int>(ids.begin(), ids.end()).size(), jobs);

    for (int j = 0; j < jobs; ++j) {
        const int left = int(qMax<qint64>(1, 120000 - clock.elapsed()));
        QCOMPARE(client.waitForSent(ids.at(j), left), 250);
    }
    qInfo("%d messages in %d jobs reported after %lld ms", total, jobs, clock.elapsed());

    // Every message reported exactly once, with its own job's id, and in its
    // job's order.
    QCoreApplication::sendPostedEvents(&inbox, QEvent::MetaCall);
    QCOMPARE(inbox.entries.size(), total);
    QHash<QString, int> reported;
    QVector<int> nextInJob(jobs, 0);
    for (const Inbox::Entry& entry : qAsConst(inbox.entries)) {
        QVERIFY2(entry.code == 250 && entry.text == QLatin1String("OK"),
                 qPrintable(QStringLiteral("%1: %2 %3").arg(entry.key).arg(entry.code).arg(entry.text)));
        ++reported[entry.key];
        const int job = ids.indexOf(entry.jobId);
        QVERIFY2(job >= 0, "a report with an unknown job id");
        QCOMPARE(entry.key, keyOf(job, nextInJob[job]++));
    }
    QCOMPARE(reported.size(), total);

    // Every message received exactly once.
    QVERIFY2(server.waitForMessages(total, 30000), qPrintable(server.log()));
    const QList<QByteArray> stored = server.messages();
    QCOMPARE(stored.size(), total);
    QHash<QString, int> received;
    for (const QByteArray& message : stored)
        ++received[storedKey(message)];
    QCOMPARE(received.size(), total);
    for (int j = 0; j < jobs; ++j) {
        for (int m = 0; m < messagesPerJob; ++m)
            QVERIFY2(received.value(keyOf(j, m)) == 1, qPrintable(keyOf(j, m)));
    }
}

QTEST_GUILESS_MAIN(tst_Load)
#include "tst_load.moc"
