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

// A text that exercises the quoted-printable rules: a lone dot line, "=",
// "?", a trailing blank, a tab, non-ASCII and a line longer than 76.
const QString kText = QString::fromUtf8(
    "Hello Ann,\n.\nA line with = and ? and a trailing blank \n\tIndented \u00fcber caf\u00e9\n")
    + QString(120, QLatin1Char('x')) + QStringLiteral("\nLast line\n");
const QString kHtml = QString::fromUtf8(
    "<html><body><p>Hello <b>Ann</b> \u2013 caf\u00e9</p>\n.\n<img src=\"cid:pic.png\"></body></html>\n");

QString lf(QString text)
{
    return text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
}

QByteArray crlf(QByteArray bytes)
{
    return bytes.replace("\n", "\r\n");
}

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
    QStringList serverArguments() const;
    QProcessEnvironment passwordEnvironment() const;
    bool newMessage(int before, QByteArray* raw) const;

    QTemporaryDir m_dir;
    std::unique_ptr<AiosmtpdServer> m_server;
    QMap<QString, QByteArray> m_files;  // file name -> bytes
};

void tst_SendDelivery::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY2(TestCertificate::shared().isValid(), qPrintable(TestCertificate::shared().error()));
    AiosmtpdServer::Options options;
    options.starttls = true;
    options.user = kUser;
    options.password = kPassword;
    options.maxSeconds = 220;
    options.lineLimit = 1 << 22;  // attachments go out as one base64 line
    m_server.reset(new AiosmtpdServer(options));
    QVERIFY2(m_server->start(), qPrintable(m_server->error()));

    QImage image(12, 9, QImage::Format_RGB32);
    image.fill(QColor(10, 200, 90));
    QByteArray png;
    QBuffer buffer(&png);
    QVERIFY(buffer.open(QIODevice::WriteOnly) && image.save(&buffer, "PNG"));
    m_files.insert(QStringLiteral("report.bin"), patternBytes(40000, 7));
    m_files.insert(QStringLiteral("notes.txt"), QByteArray("first line\nsecond line = 2.\n.\nend\n"));
    m_files.insert(QStringLiteral("pic.png"), png);
    m_files.insert(QStringLiteral("body.html"), kHtml.toUtf8());
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it)
        QVERIFY(writeFile(m_dir.filePath(it.key()), it.value()));
}

QStringList tst_SendDelivery::serverArguments() const
{
    return {QStringLiteral("--server"), QStringLiteral("127.0.0.1"), QStringLiteral("--port"),
            QString::number(m_server->port()), QStringLiteral("--starttls"), QStringLiteral("--user"), kUser};
}

QProcessEnvironment tst_SendDelivery::passwordEnvironment() const
{
    QProcessEnvironment environment = toolEnvironment();
    environment.insert(QStringLiteral("QUILLET_PASSWORD"), kPassword);
    return environment;
}

bool tst_SendDelivery::newMessage(int before, QByteArray* raw) const
{
    if (!m_server->waitForMessages(before + 1, 10000))
        return false;
    *raw = m_server->messages().value(before);
    return true;
}

void tst_SendDelivery::deliversEveryText_data()
{
    QTest::addColumn<QString>("textVia");  // "", "argument", "file" or "stdin"
    QTest::addColumn<bool>("html");
    QTest::addColumn<QStringList>("attachments");
    QTest::addColumn<QStringList>("inlineImages");
    QTest::addColumn<QString>("rootType");
    QTest::addColumn<QStringList>("leafTypes");

    const QStringList none;
    QTest::newRow("text only") << "argument" << false << none << none << "text/plain" << QStringList{"text/plain"};
    QTest::newRow("text only from a file") << "file" << false << none << none << "text/plain" << QStringList{"text/plain"};
    QTest::newRow("text only from standard input")
        << "stdin" << false << none << none << "text/plain" << QStringList{"text/plain"};
    QTest::newRow("html only") << "" << true << none << none << "text/html" << QStringList{"text/html"};
    QTest::newRow("text and html") << "argument" << true << none << none << "multipart/alternative"
                                   << QStringList{"text/plain", "text/html"};
    QTest::newRow("text with attachment")
        << "argument" << false << QStringList{"report.bin"} << none << "multipart/mixed"
        << QStringList{"text/plain", "application/octet-stream"};
    QTest::newRow("html with attachment")
        << "" << true << QStringList{"report.bin"} << none << "multipart/mixed"
        << QStringList{"text/html", "application/octet-stream"};
    QTest::newRow("text and html with attachments")
        << "argument" << true << QStringList{"report.bin", "notes.txt"} << none << "multipart/mixed"
        << QStringList{"text/plain", "text/html", "application/octet-stream", "text/plain"};
    QTest::newRow("text and html with inline image")
        << "file" << true << none << QStringList{"pic.png"} << "multipart/related"
        << QStringList{"text/plain", "text/html", "image/png"};
    QTest::newRow("html with inline image and attachment")
        << "" << true << QStringList{"report.bin"} << QStringList{"pic.png"} << "multipart/related"
        << QStringList{"text/html", "image/png", "application/octet-stream"};
    QTest::newRow("attachment without text")
        << "" << false << QStringList{"notes.txt"} << none << "multipart/mixed"
        << QStringList{"text/plain", "text/plain"};
}

void tst_SendDelivery::deliversEveryText()
{
    QFETCH(QString, textVia);
    QFETCH(bool, html);
    QFETCH(QStringList, attachments);
    QFETCH(QStringList, inlineImages);
    QFETCH(QString, rootType);
    QFETCH(QStringList, leafTypes);

    QStringList arguments = serverArguments();
    arguments << "--from" << "Sender Name <sender@example.org>"
              << "--to" << "\"Doe, Ann\" <ann@example.org>; bob@example.org"
              << "--cc" << "carl@example.org" << "--bcc" << "dora@example.org" << "--subject" << kSubject;
    QByteArray input;
    if (textVia == QLatin1String("argument")) {
        arguments << "--text" << kText;
    } else if (textVia == QLatin1String("file")) {
        // CR LF in a file reads as line feeds.
        QVERIFY(writeFile(m_dir.filePath("body.txt"), kText.toUtf8().replace("\n", "\r\n")));
        arguments << "--text-file" << m_dir.filePath("body.txt");
    } else if (textVia == QLatin1String("stdin")) {
        arguments << "--text-file" << "-";
        input = kText.toUtf8();
    }
    if (html)
        arguments << "--html-file" << m_dir.filePath("body.html");
    for (const QString& name : attachments)
        arguments << "--attach" << m_dir.filePath(name);
    for (const QString& name : inlineImages)
        arguments << "--inline-image" << m_dir.filePath(name);

    const int before = m_server->messageCount();
    const ToolResult result = runTool(arguments, passwordEnvironment(), input);
    QVERIFY2(result.finished && result.exitCode == 0, qPrintable(result.describe() + m_server->log()));
    QCOMPARE(result.outcomeLines().size(), 1);
    QVERIFY2(result.outcomeLines().first().endsWith(QLatin1String(": 250 OK")), qPrintable(result.out));

    QByteArray raw;
    QVERIFY(newMessage(before, &raw));
    const AiosmtpdServer::Envelope envelope = m_server->envelopes().value(before);
    QCOMPARE(envelope.mailFrom, QStringLiteral("sender@example.org"));
    QCOMPARE(envelope.recipients,
             (QStringList{"ann@example.org", "bob@example.org", "carl@example.org", "dora@example.org"}));

    const ParsedMessage parsed = parseWithPython(raw);
    QVERIFY2(parsed.ok, qPrintable(parsed.error));
    QCOMPARE(parsed.subject, kSubject);
    QVERIFY2(parsed.to.contains(QLatin1String("Doe, Ann")) && parsed.to.contains(QLatin1String("bob@example.org")),
             qPrintable(parsed.to));
    QVERIFY2(parsed.cc.contains(QLatin1String("carl@example.org")), qPrintable(parsed.cc));
    QVERIFY(parsed.header(QStringLiteral("Bcc")).isNull());
    QVERIFY2(!raw.contains("dora@"), "a blind copy recipient shows in the message");
    QVERIFY2(parsed.header(QStringLiteral("Content-Type")).startsWith(rootType),
             qPrintable(parsed.header(QStringLiteral("Content-Type"))));

    QStringList types;
    for (const ParsedPart& part : parsed.parts)
        types << part.contentType;
    QCOMPARE(types, leafTypes);

    // Every text and every file byte, in order: the texts, the inline
    // images, the attachments.
    QStringList files = inlineImages + attachments;
    const bool hasText = !textVia.isEmpty();
    int index = 0;
    if (hasText || !html) {
        const ParsedPart& part = parsed.parts.at(index++);
        QVERIFY(part.filename.isNull());
        QCOMPARE(lf(part.text), hasText ? kText : QString());
    }
    if (html) {
        const ParsedPart& part = parsed.parts.at(index++);
        QVERIFY(part.filename.isNull());
        QCOMPARE(lf(part.text), kHtml);
    }
    for (const QString& name : files) {
        const ParsedPart& part = parsed.parts.at(index++);
        QCOMPARE(part.filename, name);
        QCOMPARE(part.disposition, inlineImages.contains(name) ? QStringLiteral("inline") : QStringLiteral("attachment"));
        // Text files travel in MIME's canonical form, with CR LF.
        const QByteArray expected = part.contentType.startsWith(QLatin1String("text/")) ? crlf(m_files.value(name))
                                                                                         : m_files.value(name);
        QVERIFY2(part.payload == expected, qPrintable(name));
    }
    QCOMPARE(index, parsed.parts.size());
    if (!inlineImages.isEmpty())
        QVERIFY(raw.contains("Content-ID: <pic.png>"));
}

void tst_SendDelivery::keepsLineEnds_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("withFile");
    QTest::addColumn<QString>("received");

    // One text part: the message's own final line end stands for the text's.
    QTest::newRow("one part, final line end") << "Hi\nthere\n" << false << "Hi\nthere\n";
    QTest::newRow("one part, no final line end") << "Hi\nthere" << false << "Hi\nthere\n";
    QTest::newRow("one part, two final line ends") << "Hi\n\n" << false << "Hi\n\n";
    QTest::newRow("one part, blank before line end") << "Hi \n" << false << "Hi \n\n";
    // With files the boundary follows the text, which arrives as it is.
    QTest::newRow("with file, final line end") << "Hi\nthere\n" << true << "Hi\nthere\n";
    QTest::newRow("with file, no final line end") << "Hi\nthere" << true << "Hi\nthere";
}

void tst_SendDelivery::keepsLineEnds()
{
    QFETCH(QString, text);
    QFETCH(bool, withFile);
    QFETCH(QString, received);

    QStringList arguments = serverArguments();
    arguments << "--from" << "sender@example.org" << "--to" << "ann@example.org" << "--text" << text;
    if (withFile)
        arguments << "--attach" << m_dir.filePath("report.bin");
    const int before = m_server->messageCount();
    const ToolResult result = runTool(arguments, passwordEnvironment());
    QVERIFY2(result.finished && result.exitCode == 0, qPrintable(result.describe()));
    QByteArray raw;
    QVERIFY(newMessage(before, &raw));
    const ParsedMessage parsed = parseWithPython(raw);
    QVERIFY2(parsed.ok && !parsed.parts.isEmpty(), qPrintable(parsed.error));
    QCOMPARE(lf(parsed.parts.first().text), received);
}

void tst_SendDelivery::deliversEveryCopy_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("jobs");
    QTest::addColumn<int>("expectedJobs");

    QTest::newRow("one") << 1 << 1 << 1;
    QTest::newRow("five in one job") << 5 << 1 << 1;
    QTest::newRow("six over three jobs") << 6 << 3 << 3;
    QTest::newRow("seven over three jobs") << 7 << 3 << 3;
    QTest::newRow("more jobs than copies") << 3 << 8 << 3;
    QTest::newRow("forty over five jobs") << 40 << 5 << 5;
}

void tst_SendDelivery::deliversEveryCopy()
{
    QFETCH(int, count);
    QFETCH(int, jobs);
    QFETCH(int, expectedJobs);

    const QString text = QStringLiteral("copy test %1/%2").arg(count).arg(jobs);
    QStringList arguments = serverArguments();
    arguments << "--from" << "sender@example.org" << "--to" << "ann@example.org" << "--subject" << text
              << "--text" << text << "--attach" << m_dir.filePath("report.bin")
              << "--count" << QString::number(count) << "--jobs" << QString::number(jobs);

    const int before = m_server->messageCount();
    const ToolResult result = runTool(arguments, passwordEnvironment());
    QVERIFY2(result.finished && result.exitCode == 0, qPrintable(result.describe()));

    const QStringList lines = result.outcomeLines();
    QCOMPARE(lines.size(), count);
    QSet<QString> jobIds;
    for (const QString& line : lines) {
        QVERIFY2(line.endsWith(QLatin1String(": 250 OK")), qPrintable(line));
        jobIds.insert(line.section(QLatin1Char(':'), 0, 0));
    }
    QCOMPARE(jobIds.size(), expectedJobs);

    // Exactly count messages, each one whole.
    QVERIFY(m_server->waitForMessages(before + count, 10000));
    QTest::qWait(200);
    const QList<QByteArray> messages = m_server->messages().mid(before);
    QCOMPARE(messages.size(), count);
    for (const QByteArray& raw : messages) {
        const ParsedMessage parsed = parseWithPython(raw);
        QVERIFY2(parsed.ok, qPrintable(parsed.error));
        QCOMPARE(parsed.subject, text);
        QCOMPARE(parsed.parts.size(), 2);
        QCOMPARE(lf(parsed.parts.at(0).text), text);
        QVERIFY(parsed.parts.at(1).payload == m_files.value("report.bin"));
    }
}

void tst_SendDelivery::reportsRefusals_data()
{
    QTest::addColumn<QStringList>("script");  // empty: nothing listens
    QTest::addColumn<QStringList>("extraArguments");
    QTest::addColumn<QStringList>("expectedOutcomes");  // the "CODE TEXT" of each line, in order

    using Peer = ScriptedSmtpPeer;
    const QStringList envelope = Peer::envelope("sender@example.org", {"ann@example.org"});
    QTest::newRow("recipient refused")
        << (Peer::greetingAndEhlo() + QStringList{"C: MAIL FROM:<sender@example.org>", "S: 250 OK",
                                                  "C: RCPT TO:<ann@example.org>", "S: 550 no such user"}
            + Peer::quit())
        << QStringList() << QStringList{"550 no such user"};
    QTest::newRow("message refused at end of data")
        << (Peer::greetingAndEhlo() + envelope + Peer::message("554 spam detected") + Peer::quit())
        << QStringList() << QStringList{"554 spam detected"};
    QTest::newRow("second copy refused")
        << (Peer::greetingAndEhlo() + envelope + Peer::message() + envelope + Peer::message("552 mailbox full")
            + Peer::quit())
        << QStringList{"--count", "2"} << QStringList{"250 OK", "552 mailbox full"};
    QTest::newRow("login refused")
        << (Peer::greetingAndEhlo({"AUTH LOGIN"})
            + QStringList{"C: AUTH LOGIN", "S: 334 VXNlcm5hbWU6", "C: *", "S: 334 UGFzc3dvcmQ6", "C: *",
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
        QTcpServer closed;  // a port that was free a moment ago
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        port = closed.serverPort();
    } else {
        QVERIFY2(peer.setScript(script), qPrintable(peer.failure()));
        QVERIFY2(peer.start(), qPrintable(peer.failure()));
        port = peer.port();
    }

    const QStringList arguments = QStringList{"--server", "127.0.0.1", "--port", QString::number(port),
                                              "--from", "sender@example.org", "--to", "ann@example.org",
                                              "--subject", "refusal", "--text", "body"}
        + extraArguments;
    const ToolResult result = runTool(arguments, passwordEnvironment());
    QVERIFY2(result.finished, qPrintable(result.describe()));
    QCOMPARE(result.exitCode, 1);

    QStringList outcomes;
    for (const QString& line : result.outcomeLines())
        outcomes << line.section(QLatin1String(": "), 1);
    QCOMPARE(outcomes.size(), expectedOutcomes.size());
    for (int i = 0; i < outcomes.size(); ++i)
        QVERIFY2(outcomes.at(i).startsWith(expectedOutcomes.at(i)), qPrintable(outcomes.at(i)));
    if (!script.isEmpty()) {
        QVERIFY(peer.waitForFinished(10000));
        QVERIFY2(peer.scriptCompleted(), qPrintable(peer.failure()));
    }
}

QTEST_MAIN(tst_SendDelivery)
#include "tst_senddelivery.moc"
