// The job's outer frame (exceptions turned into a log line and a -3
// report), the log's function tags, and the pool that runs jobs.

#include "ScriptedSmtpPeer.h"
#include "SmtpTestSupport.h"

#include "smtp/SmtpClient.h"
#include "support/ExceptionQt.h"
#include "support/IRunnable.h"
#include "support/Log.h"
#include "support/ovkException.h"
#include "support/ovkQtThreadPool.h"
#include "support/ovkTerminalException.h"

#include <boost/weak_ptr.hpp>

#include <QBuffer>
#include <QRegularExpression>
#include <QSemaphore>
#include <QtTest>

#include <atomic>
#include <stdexcept>

using oru::SmtpClient;

namespace {

enum class Thrown { Qt, Terminal, Ovk, Std, Other };

[[noreturn]] void throwKind(Thrown kind)
{
    switch (kind) {
    case Thrown::Qt:
        throw oru::ExceptionQt(QString::fromUtf8("Qt failure é"));
    case Thrown::Terminal:
        throw oru::ovkTerminalException(oru::ovkStringList{"disk full", "while sending"});
    case Thrown::Ovk: {
        oru::ovkException e("first");
        e.addMessage("second");
        throw e;
    }
    case Thrown::Std:
        throw std::runtime_error("runtime failure");
    case Thrown::Other:
        throw 42;
    }
    throw 0;
}

// A runnable whose run can be held at a gate and made to throw.
class Probe : public oru::IRunnable
{
public:
    explicit Probe(QSemaphore* gate = nullptr, bool fail = false) : gate(gate), fail(fail) {}

    void run(int id, QTime* time) override
    {
        seenId = id;
        hadTime = time && time->isValid();
        if (gate)
            gate->acquire();
        if (fail)
            throw std::runtime_error("probe failure");
    }

    QSemaphore* gate;
    bool fail;
    std::atomic<int> seenId{0};
    std::atomic<bool> hadTime{false};
};

// Points the log at a buffer for the life of the object.
class LogCapture
{
public:
    explicit LogCapture(int level)
    {
        buffer.open(QIODevice::ReadWrite);
        oldLevel = oru::Log::level();
        oru::Log::setDevice(&buffer);
        oru::Log::setLevel(level);
    }
    ~LogCapture()
    {
        oru::Log::setDevice(nullptr);
        oru::Log::setLevel(oldLevel);
    }
    QByteArray text() const { return buffer.data(); }

private:
    QBuffer buffer;
    int oldLevel = 0;
};

} // namespace

Q_DECLARE_METATYPE(Thrown)

class tst_SmtpClientJob : public QObject
{
    Q_OBJECT

private slots:
    void exceptionInJob_data();
    void exceptionInJob();
    void logLevelBelowThreeWritesNothing();

    void functionTag_data();
    void functionTag();

    void poolIdsAndWaits();
    void poolWaitsWithTimeout_data();
    void poolWaitsWithTimeout();
    void poolSurvivesThrowingRunnable();
    void interfacesByName_data();
    void interfacesByName();
};

void tst_SmtpClientJob::exceptionInJob_data()
{
    QTest::addColumn<Thrown>("kind");
    QTest::addColumn<QString>("text");

    QTest::newRow("ExceptionQt") << Thrown::Qt << QString::fromUtf8("Qt failure é");
    QTest::newRow("ovkTerminalException") << Thrown::Terminal << "disk full,while sending";
    QTest::newRow("ovkException") << Thrown::Ovk << "first,second";
    QTest::newRow("std::exception") << Thrown::Std << "runtime failure";
    QTest::newRow("anything else") << Thrown::Other << "unknown error";
}

void tst_SmtpClientJob::exceptionInJob()
{
    QFETCH(Thrown, kind);
    QFETCH(QString, text);

    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(QStringList{"S: 554 go away", "expect-close"}));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(peerAccess(peer.port()));
    SentRecorder recorder(&client);
    // Runs on the pool thread, inside the session: its exception leaves run().
    connect(
        &client, &SmtpClient::sent, &client,
        [kind](oru::constEMailPtr, int code, const QString&, int) {
            if (code != -3)
                throwKind(kind);
        },
        Qt::DirectConnection);
    LogCapture log(3);

    const JobOutcome outcome = runJob(client, recorder, {textMessage("a@example.org", {"b@example.org"})}, &peer);

    QVERIFY2(peer.scriptCompleted(), peerDiagnosis(peer));
    QCOMPARE(outcome.reports.size(), 2);
    QCOMPARE(outcome.reports.at(0).code, 554);
    const SentReport& report = outcome.reports.at(1);
    QVERIFY(!report.mail);
    QCOMPARE(report.code, -3);
    QCOMPARE(report.text, text);
    QCOMPARE(report.jobId, outcome.id);
    // The table keeps the last reply read; -3 is only reported.
    QCOMPARE(outcome.waitResult, 554);
    QVERIFY(!peer.received().contains("QUIT"));

    const QRegularExpression line(
        QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3} 3 "
                       "\\[oru::SmtpClient::SmtpJob::run\\(\\)\\] SmtpError::Exception ")
        + QRegularExpression::escape(text) + QStringLiteral("\n$"));
    const QString logged = QString::fromUtf8(log.text());
    QVERIFY2(line.match(logged).hasMatch(), qPrintable(logged));
}

void tst_SmtpClientJob::logLevelBelowThreeWritesNothing()
{
    ScriptedSmtpPeer peer;
    QVERIFY(peer.setScript(QStringList{"S: 554 go away", "expect-close"}));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    SmtpClient client(peerAccess(peer.port()));
    SentRecorder recorder(&client);
    connect(
        &client, &SmtpClient::sent, &client,
        [](oru::constEMailPtr, int code, const QString&, int) {
            if (code != -3)
                throw std::runtime_error("x");
        },
        Qt::DirectConnection);
    LogCapture log(2);

    const JobOutcome outcome = runJob(client, recorder, {textMessage("a@example.org", {"b@example.org"})}, &peer);

    QCOMPARE(recorder.codes(), (QList<int>{554, -3}));
    QVERIFY(log.text().isEmpty());
}

void tst_SmtpClientJob::functionTag_data()
{
    QTest::addColumn<QByteArray>("signature");
    QTest::addColumn<QString>("tag");

    QTest::newRow("virtual member") << QByteArray("virtual void oru::SmtpClient::SmtpJob::run(int, QTime*)")
                                    << "oru::SmtpClient::SmtpJob::run()";
    QTest::newRow("static member") << QByteArray("static QString oru::Log::functionTag(const char*)")
                                   << "oru::Log::functionTag()";
    QTest::newRow("template return type")
        << QByteArray("QMap<int, QString> oru::A::map(int) const") << "oru::A::map()";
    QTest::newRow("function type in template")
        << QByteArray("std::function<void(int)> oru::A::make()") << "oru::A::make()";
    QTest::newRow("constructor") << QByteArray("oru::A::A(const QString&)") << "oru::A::A()";
    QTest::newRow("less-than operator")
        << QByteArray("bool oru::A::operator<(const oru::A&) const") << "oru::A::operator<()";
    QTest::newRow("call operator") << QByteArray("int oru::A::operator()(int)")
                                   << "oru::A::operator()()";
    QTest::newRow("conversion operator") << QByteArray("oru::A::operator QString() const")
                                         << "oru::A::operator QString()";
    QTest::newRow("template arguments")
        << QByteArray("void oru::f(T) [with T = int]") << "oru::f()";
    QTest::newRow("lambda") << QByteArray("oru::A::run()::<lambda(int)>") << "oru::A::run()";
    QTest::newRow("anonymous namespace")
        << QByteArray("void {anonymous}::helper(int)") << "{anonymous}::helper()";
    QTest::newRow("plain name") << QByteArray("main") << "main()";
    QTest::newRow("empty") << QByteArray() << "()";
}

void tst_SmtpClientJob::functionTag()
{
    QFETCH(QByteArray, signature);
    QFETCH(QString, tag);

    QCOMPARE(oru::Log::functionTag(signature.isNull() ? nullptr : signature.constData()), tag);
}

void tst_SmtpClientJob::poolIdsAndWaits()
{
    oru::ovkQtThreadPool* pool = oru::ovkQtThreadPool::globalInstance();
    QList<boost::shared_ptr<Probe>> probes;
    QList<int> ids;
    for (int i = 0; i < 4; ++i) {
        probes << boost::shared_ptr<Probe>(new Probe);
        ids << pool->schedule(probes.last());
    }
    for (int i = 0; i < ids.size(); ++i) {
        QVERIFY(ids.at(i) > 0);
        if (i > 0)
            QVERIFY(ids.at(i) > ids.at(i - 1));
        QVERIFY(pool->waitForFinished(ids.at(i), 10000));
        QCOMPARE(probes.at(i)->seenId.load(), ids.at(i));
        QVERIFY(probes.at(i)->hadTime);
    }
    QCOMPARE(pool->schedule(boost::shared_ptr<oru::IRunnable>()), 0);

    // The pool lets go of a runnable once it has run.
    boost::weak_ptr<Probe> watched;
    int id;
    {
        boost::shared_ptr<Probe> probe(new Probe);
        watched = probe;
        id = pool->schedule(probe);
    }
    QVERIFY(pool->waitForFinished(id, 10000));
    QVERIFY(watched.expired());
}

void tst_SmtpClientJob::poolWaitsWithTimeout_data()
{
    QTest::addColumn<long>("timeout");

    QTest::newRow("zero") << 0L;
    QTest::newRow("short") << 50L;
}

void tst_SmtpClientJob::poolWaitsWithTimeout()
{
    QFETCH(long, timeout);

    oru::ovkQtThreadPool* pool = oru::ovkQtThreadPool::globalInstance();
    QSemaphore gate;
    const int id = pool->schedule(boost::shared_ptr<Probe>(new Probe(&gate)));
    // Held at the gate: the wait runs out.
    QVERIFY(!pool->waitForFinished(id, timeout));
    gate.release();
    // A negative time-out waits as long as it takes.
    QVERIFY(pool->waitForFinished(id, -1));
    QVERIFY(pool->waitForFinished(id, 0));
    // An id the pool never gave out counts as finished.
    QVERIFY(pool->waitForFinished(id + 1000000, 0));
}

void tst_SmtpClientJob::poolSurvivesThrowingRunnable()
{
    oru::ovkQtThreadPool* pool = oru::ovkQtThreadPool::globalInstance();
    const int failing = pool->schedule(boost::shared_ptr<Probe>(new Probe(nullptr, true)));
    QVERIFY(pool->waitForFinished(failing, 10000));
    boost::shared_ptr<Probe> next(new Probe);
    const int id = pool->schedule(next);
    QVERIFY(pool->waitForFinished(id, 10000));
    QCOMPARE(next->seenId.load(), id);
}

void tst_SmtpClientJob::interfacesByName_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("found");

    QTest::newRow("runnable") << QByteArray("oru::IRunnable") << true;
    QTest::newRow("root interface") << QByteArray("oru::IInterface") << true;
    QTest::newRow("other") << QByteArray("oru::IStream") << false;
    QTest::newRow("null name") << QByteArray() << false;
}

void tst_SmtpClientJob::interfacesByName()
{
    QFETCH(QByteArray, name);
    QFETCH(bool, found);

    SmtpClient::SmtpJob job;
    const char* n = name.isNull() ? nullptr : name.constData();
    void* p = job.getInterface(n);
    QCOMPARE(p != nullptr, found);
    const SmtpClient::SmtpJob& constJob = job;
    QCOMPARE(constJob.getInterface(n), static_cast<const void*>(p));
    if (name == "oru::IRunnable")
        QCOMPARE(p, static_cast<void*>(static_cast<oru::IRunnable*>(&job)));
    if (name == "oru::IInterface")
        QCOMPARE(p, static_cast<void*>(static_cast<oru::IInterface*>(&job)));
}

QTEST_GUILESS_MAIN(tst_SmtpClientJob)
#include "tst_smtpclient_job.moc"
