// The job's outer frame: an exception leaving the session becomes one log
// line and one -3 report. The exception types are internal, hence the
// object-linked test.

#include "SmtpTestSupport.h"

#include "support/ExceptionQt.h"
#include "support/Log.h"
#include "support/ovkException.h"
#include "support/ovkTerminalException.h"

#include <QBuffer>
#include <QRegularExpression>
#include <QtTest>

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
        break;
    }
    throw 42;
}

// A receiver of sent() connected directly: it runs on the pool thread,
// inside the session, and throws on every report but the frame's own.
ClientSetup throwingOnReports(Thrown kind)
{
    return [kind](SmtpClient& client) {
        QObject::connect(&client, &SmtpClient::sent, [kind](oru::constEMailPtr, int code, const QString&, int) {
            if (code != -3)
                throwKind(kind);
        });
    };
}

} // namespace

Q_DECLARE_METATYPE(Thrown)

class tst_SmtpClientJob : public QObject
{
    Q_OBJECT

private slots:
    void exceptionInJob_data();
    void exceptionInJob();
};

void tst_SmtpClientJob::exceptionInJob_data()
{
    QTest::addColumn<Thrown>("kind");
    QTest::addColumn<int>("logLevel");
    QTest::addColumn<QString>("text");

    QTest::newRow("ExceptionQt") << Thrown::Qt << 3 << QString::fromUtf8("Qt failure é");
    QTest::newRow("ovkTerminalException") << Thrown::Terminal << 3 << "disk full,while sending";
    QTest::newRow("ovkException") << Thrown::Ovk << 3 << "first,second";
    QTest::newRow("std::exception") << Thrown::Std << 5 << "runtime failure";
    QTest::newRow("anything else") << Thrown::Other << 3 << "unknown error";
    QTest::newRow("log level below 3") << Thrown::Std << 2 << "runtime failure";
}

void tst_SmtpClientJob::exceptionInJob()
{
    QFETCH(Thrown, kind);
    QFETCH(int, logLevel);
    QFETCH(QString, text);

    QBuffer log;
    log.open(QIODevice::ReadWrite);
    oru::Log::setDevice(&log);
    oru::Log::setLevel(logLevel);
    const Played p = play(steps("S: 554 go away|expect-close"), {textMessage("a@example.org", {})},
                          throwingOnReports(kind));
    oru::Log::setDevice(nullptr);

    QVERIFY2(p.completed, p.diagnosis);
    QCOMPARE(p.reports.size(), 2);
    QCOMPARE(p.reports.at(0).code, 554);
    QCOMPARE(p.reports.at(1).code, -3);
    QVERIFY(!p.reports.at(1).mail);
    QCOMPARE(p.reports.at(1).text, text);
    QCOMPARE(p.reports.at(1).jobId, p.id);
    QCOMPARE(p.waitResult, 554);  // -3 is only reported, never recorded
    QVERIFY(p.received.isEmpty());
    // The head is the time and the level; nothing is written below level 3.
    const QString written = QString::fromUtf8(log.data());
    const QRegularExpression line(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3} 3 ")
                                  + QRegularExpression::escape(QStringLiteral("[oru::SmtpClient::SmtpJob::run()] "
                                                                              "SmtpError::Exception ") + text)
                                  + QStringLiteral("\n$"));
    QVERIFY2(logLevel < 3 ? written.isEmpty() : line.match(written).hasMatch(), qPrintable(written));
}

QTEST_GUILESS_MAIN(tst_SmtpClientJob)
#include "tst_smtpclient_job.moc"
