// quillet-send against real and scripted SMTP servers: every text, HTML and
// attachment combination arrives whole over STARTTLS with AUTH LOGIN;
// --count and --jobs deliver exactly the copies asked for; refusals and
// failures end with exit status 1 and are printed.

#include "AiosmtpdServer.h"
#include "ParsedMessage.h"
#include "ScriptedSmtpPeer.h"
#include "TestCertificate.h"
#include "ToolRun.h"

#include <QBuffer>
#include <QImage>
#include <QSet>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

const QString kUser = QStringLiteral("joe");
const QString kPassword = QStringLiteral("s3cr\u00e9t pw");
const QString kSubject = QString::fromUtf8("Gr\u00fc\u00dfe: report? = done.");

// For the quoted-printable rules: a lone dot line, "=", "?", a trailing
// blank, a tab, non-ASCII and a line longer than 76.
const QString kText = QString::fromUtf8("Hello Ann,\n.\nA line with = and ? and a trailing blank \n\tIndented \u00fcber caf\u00e9\n")
    + QString(120, QLatin1Char('x')) + QStringLiteral("\nLast line\n");
const QString kHtml = QString::fromUtf8(
    "<html><body><p>Hello <b>Ann</b> \u2013 caf\u00e9</p>\n.\n<img src=\"cid:pic.png\"></body></html>\n");

QString lf(QString text) { return text.replace(QLatin1String("\r\n"), QLatin1String("\n")); }

} // namespace

class tst_SendDelivery : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void deliversEveryText_data();
    void deliversEveryText();
    void keepsLineEnds_data();
    void keepsLineEnds();
    void deliversEveryCopy_data();
    void deliversEveryCopy();
    void reportsRefusals_data();
    void reportsRefusals();

private:
    // Sends to the server as kUser; the message is parsed into *parsed.
    ToolResult send(const QStringList& arguments, ParsedMessage* parsed, const QByteArray& input = QByteArray());

    QTemporaryDir m_dir;
    std::unique_ptr<AiosmtpdServer> m_server;
    QMap<QString, QByteArray> m_files; // file name -> bytes
};

void tst_SendDelivery::initTestCase()
{
    QVERIFY2(TestCertificate::shared().isValid(), qPrintable(TestCertificate::shared().error()));
    AiosmtpdServer::Options options;
    options.starttls = true;
    options.user = kUser;
    options.password = kPassword;
    options.maxSeconds = 220;
    options.lineLimit = 1 << 22; // attachments go out as one base64 line
    m_server.reset(new AiosmtpdServer(options));
    QVERIFY2(m_server->start(), qPrintable(m_server->error()));

    QImage image(12, 9, QImage::Format_RGB32);
    image.fill(QColor(10, 200, 90));
    QBuffer png;
    QVERIFY(png.open(QIODevice::WriteOnly) && image.save(&png, "PNG"));
    QByteArray binary(40000, Qt::Uninitialized); // every byte value, in no simple period
    for (int i = 0; i < binary.size(); ++i)
        binary[i] = char(i * 7 + i / 251);
    m_files = {{"report.bin", binary}, {"notes.txt", "first line\nsecond line = 2.\n.\nend\n"},
               {"pic.png", png.data()}, {"body.html", kHtml.toUtf8()}};
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it)
        QVERIFY(fake::writeFile(m_dir.filePath(it.key()), it.value(), false));
}

ToolResult tst_SendDelivery::send(const QStringList& arguments, ParsedMessage* parsed, const QByteArray& input)
{
    const int before = m_server->messageCount();
    const ToolResult result =
        runTool(QStringList{"--server", "127.0.0.1", "--port", QString::number(m_server->port()), "--starttls",
                            "--user", kUser} + arguments,
                toolEnvironment(kPassword), input);
    if (result.finished && result.exitCode == 0 && m_server->waitForMessages(before + 1, 10000))
        *parsed = parseWithPython(m_server->messages().value(before));
    return result;
}

void tst_SendDelivery::deliversEveryText_data()
{
    QTest::addColumn<QString>("textVia"); // "", "argument", "file" or "stdin"
    QTest::addColumn<bool>("html");
    QTest::addColumn<QStringList>("attachments");
    QTest::addColumn<QStringList>("inlineImages");
    QTest::addColumn<QString>("structure"); // root type, then the leaf types

    const QStringList none, report{"report.bin"}, pic{"pic.png"};
    QTest::newRow("text only") << "argument" << false << none << none << "text/plain: text/plain";
    QTest::newRow("text only from standard input") << "stdin" << false << none << none << "text/plain: text/plain";
    QTest::newRow("html only") << "" << true << none << none << "text/html: text/html";
    QTest::newRow("text and html") << "argument" << true << none << none << "multipart/alternative: text/plain text/html";
    QTest::newRow("text with attachment") << "argument" << false << report << none
                                          << "multipart/mixed: text/plain application/octet-stream";
    QTest::newRow("html with attachment") << "" << true << report << none
                                          << "multipart/mixed: text/html application/octet-stream";
    QTest::newRow("text and html with attachments") << "argument" << true << QStringList{"report.bin", "notes.txt"} << none
        << "multipart/mixed: text/plain text/html application/octet-stream text/plain";
    QTest::newRow("text from a file, html and inline image") << "file" << true << none << pic
                                                             << "multipart/related: text/plain text/html image/png";
    QTest::newRow("html with inline image and attachment") << "" << true << report << pic
                                                           << "multipart/related: text/html image/png application/octet-stream";
    QTest::newRow("attachment without text") << "" << false << QStringList{"notes.txt"} << none
                                             << "multipart/mixed: text/plain text/plain";
}

void tst_SendDelivery::deliversEveryText()
{
    QFETCH(QString, textVia);
    QFETCH(bool, html);
    QFETCH(QStringList, attachments);
    QFETCH(QStringList, inlineImages);

    QStringList arguments{"--from", "Sender Name <sender@example.org>", "--to",
                          "\"Doe, Ann\" <ann@example.org>; bob@example.org", "--cc", "carl@example.org",
                          "--bcc", "dora@example.org", "--subject", kSubject};
    if (textVia == "argument")
        arguments << "--text" << kText;
    if (textVia == "stdin")
        arguments << "--text-file" << "-";
    if (textVia == "file") { // CR LF in a file reads as line feeds
        QVERIFY(fake::writeFile(m_dir.filePath("body.txt"), kText.toUtf8().replace("\n", "\r\n"), false));
        arguments << "--text-file" << m_dir.filePath("body.txt");
    }
    if (html)
        arguments << "--html-file" << m_dir.filePath("body.html");
    for (const QString& name : attachments)
        arguments << "--attach" << m_dir.filePath(name);
    for (const QString& name : inlineImages)
        arguments << "--inline-image" << m_dir.filePath(name);

    const int before = m_server->messageCount();
    ParsedMessage parsed;
    const ToolResult result = send(arguments, &parsed, textVia == "stdin" ? kText.toUtf8() : QByteArray());
    QVERIFY2(result.finished && result.exitCode == 0, qPrintable(result.describe() + m_server->log()));
    QCOMPARE(result.outcomeLines().size(), 1);
    QVERIFY2(result.outcomeLines().first().endsWith(": 250 OK"), qPrintable(result.out));
    QVERIFY2(parsed.ok, qPrintable(parsed.error));
    const AiosmtpdServer::Envelope envelope = m_server->envelopes().value(before);
    QCOMPARE(envelope.mailFrom, QStringLiteral("sender@example.org"));
    QCOMPARE(envelope.recipients, (QStringList{"ann@example.org", "bob@example.org", "carl@example.org", "dora@example.org"}));

    QCOMPARE(parsed.subject, kSubject);
    QVERIFY2(parsed.to.contains("Doe, Ann") && parsed.to.contains("bob@example.org"), qPrintable(parsed.to));
    QVERIFY2(parsed.cc.contains("carl@example.org"), qPrintable(parsed.cc));
    const QByteArray raw = m_server->messages().value(before);
    QVERIFY2(parsed.header("Bcc").isNull() && !raw.contains("dora@"), "a blind copy recipient shows in the message");
    QString structure = parsed.header("Content-Type").section(';', 0, 0) + ':';
    for (const ParsedPart& part : parsed.parts)
        structure += ' ' + part.contentType;
    QTEST(structure, "structure");

    // Every text and every file byte, in order: texts, inline images, attachments.
    int index = 0;
    const auto nextText = [&]() {
        const ParsedPart& part = parsed.parts.at(index++);
        return part.filename.isNull() ? lf(part.text) : "a file named " + part.filename;
    };
    if (!textVia.isEmpty() || !html)
        QCOMPARE(nextText(), textVia.isEmpty() ? QString() : kText);
    if (html)
        QCOMPARE(nextText(), kHtml);
    for (const QString& name : inlineImages + attachments) {
        const ParsedPart& part = parsed.parts.at(index++);
        QCOMPARE(part.filename, name);
        QCOMPARE(part.disposition, inlineImages.contains(name) ? QStringLiteral("inline") : QStringLiteral("attachment"));
        // Text files travel in MIME's canonical form, with CR LF.
        QByteArray expected = m_files.value(name);
        if (part.contentType.startsWith("text/"))
            expected.replace("\n", "\r\n");
        QVERIFY2(part.payload == expected, qPrintable(name));
    }
    if (!inlineImages.isEmpty())
        QVERIFY(raw.contains("Content-ID: <pic.png>"));
}

void tst_SendDelivery::keepsLineEnds_data()
{
    // One text part: the message's own final line end stands for the text's.
    // (With files a text arrives as it is: see deliversEveryCopy.)
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("received");
    QTest::newRow("no final line end") << "Hi\nthere" << "Hi\nthere\n";
    QTest::newRow("two final line ends") << "Hi\n\n" << "Hi\n\n";
    QTest::newRow("blank before line end") << "Hi \n" << "Hi \n\n";
}

void tst_SendDelivery::keepsLineEnds()
{
    QFETCH(QString, text);
    ParsedMessage parsed;
    const ToolResult result = send({"--from", "sender@example.org", "--to", "ann@example.org", "--text", text}, &parsed);
    QVERIFY2(result.finished && result.exitCode == 0, qPrintable(result.describe()));
    QVERIFY2(parsed.ok && !parsed.parts.isEmpty(), qPrintable(parsed.error));
    QTEST(lf(parsed.parts.first().text), "received");
}

void tst_SendDelivery::deliversEveryCopy_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("jobs");
    QTest::addColumn<int>("expectedJobs");

    QTest::newRow("five in one job") << 5 << 1 << 1;
    QTest::newRow("seven over three jobs") << 7 << 3 << 3;
    QTest::newRow("more jobs than copies") << 3 << 8 << 3;
    QTest::newRow("forty over five jobs") << 40 << 5 << 5;
}

void tst_SendDelivery::deliversEveryCopy()
{
    QFETCH(int, count);
    QFETCH(int, jobs);

    const QString text = QStringLiteral("copy test %1/%2").arg(count).arg(jobs);
    ParsedMessage first;
    const int before = m_server->messageCount();
    const ToolResult result = send({"--from", "sender@example.org", "--to", "ann@example.org", "--subject", text, "--text",
                                    text, "--attach", m_dir.filePath("report.bin"), "--count", QString::number(count),
                                    "--jobs", QString::number(jobs)},
                                   &first);
    QVERIFY2(result.finished && result.exitCode == 0, qPrintable(result.describe()));
    const QStringList lines = result.outcomeLines();
    QCOMPARE(lines.size(), count);
    QSet<QString> jobIds;
    for (const QString& line : lines) {
        QVERIFY2(line.endsWith(": 250 OK"), qPrintable(line));
        jobIds.insert(line.section(':', 0, 0));
    }
    QTEST(jobIds.size(), "expectedJobs");

    // Exactly count messages, each one whole.
    QVERIFY(m_server->waitForMessages(before + count, 10000));
    QTest::qWait(200);
    const QList<QByteArray> messages = m_server->messages().mid(before);
    QCOMPARE(messages.size(), count);
    for (const QByteArray& raw : messages) {
        const ParsedMessage parsed = parseWithPython(raw);
        QVERIFY2(parsed.ok && parsed.parts.size() == 2, qPrintable(parsed.error));
        QCOMPARE(parsed.subject, text);
        QCOMPARE(lf(parsed.parts.at(0).text), text);
        QVERIFY(parsed.parts.at(1).payload == m_files.value("report.bin"));
    }
}

void tst_SendDelivery::reportsRefusals_data()
{
    QTest::addColumn<QStringList>("script"); // empty: nothing listens
    QTest::addColumn<QStringList>("extraArguments");
    QTest::addColumn<QStringList>("expectedOutcomes"); // the "CODE TEXT" of each line, in order

    using Peer = ScriptedSmtpPeer;
    const QStringList start = Peer::greetingAndEhlo(), envelope = Peer::envelope("sender@example.org", {"ann@example.org"});
    QTest::newRow("recipient refused")
        << (start + QStringList{"C: MAIL FROM:<sender@example.org>", "S: 250 OK", "C: RCPT TO:<ann@example.org>",
                                "S: 550 no such user"} + Peer::quit())
        << QStringList() << QStringList{"550 no such user"};
    QTest::newRow("message refused at end of data") << (start + envelope + Peer::message("554 spam detected") + Peer::quit())
                                                    << QStringList() << QStringList{"554 spam detected"};
    QTest::newRow("second copy refused")
        << (start + envelope + Peer::message() + envelope + Peer::message("552 mailbox full") + Peer::quit())
        << QStringList{"--count", "2"} << QStringList{"250 OK", "552 mailbox full"};
    QTest::newRow("login refused")
        << (Peer::greetingAndEhlo({"AUTH LOGIN"}) + QStringList{"C: AUTH LOGIN", "S: 334 VXNlcm5hbWU6", "C: *",
                                                                "S: 334 UGFzc3dvcmQ6", "C: *",
                                                                "S: 535 authentication failed", "expect-close"})
        << QStringList{"--user", kUser} << QStringList{"535 authentication failed"};
    QTest::newRow("server closes at once") << QStringList{"close"} << QStringList() << QStringList{"0"};
    QTest::newRow("nothing listens") << QStringList() << QStringList() << QStringList{"-1"};
}

void tst_SendDelivery::reportsRefusals()
{
    QFETCH(QStringList, script);
    QFETCH(QStringList, extraArguments);
    QFETCH(QStringList, expectedOutcomes);

    ScriptedSmtpPeer peer;
    quint16 port = 0;
    if (script.isEmpty()) {
        QTcpServer closed; // a port that was free a moment ago
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        port = closed.serverPort();
    } else {
        QVERIFY2(peer.setScript(script) && peer.start(), qPrintable(peer.failure()));
        port = peer.port();
    }
    const ToolResult result = runTool(QStringList{"--server", "127.0.0.1", "--port", QString::number(port), "--from",
                                                  "sender@example.org", "--to", "ann@example.org", "--subject",
                                                  "refusal", "--text", "body"} + extraArguments,
                                      toolEnvironment(kPassword));
    QVERIFY2(result.finished, qPrintable(result.describe()));
    QCOMPARE(result.exitCode, 1);
    const QStringList lines = result.outcomeLines();
    QCOMPARE(lines.size(), expectedOutcomes.size());
    for (int i = 0; i < lines.size(); ++i)
        QVERIFY2(lines.at(i).section(": ", 1).startsWith(expectedOutcomes.at(i)), qPrintable(lines.at(i)));
    if (!script.isEmpty())
        QVERIFY2(peer.waitForFinished(10000) && peer.scriptCompleted(), qPrintable(peer.failure()));
}

QTEST_MAIN(tst_SendDelivery)
#include "tst_senddelivery.moc"
