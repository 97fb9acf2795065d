// quillet-send's command line: every kind of bad input ends with exit
// status 2, a message that names the argument and the usage, and nothing
// sent; --help documents every option with an example.

#include "ToolRun.h"

#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

class tst_SendCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void badInputIsRefusedBeforeSending_data();
    void badInputIsRefusedBeforeSending();
    void helpDocumentsEveryOption();

private:
    QTemporaryDir m_dir;
    QTcpServer m_listener; // would see any connection the program makes
};

void tst_SendCommandLine::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY(m_listener.listen(QHostAddress::LocalHost));
    QVERIFY(fake::writeFile(m_dir.filePath("body.txt"), "Hello\n"));
    QVERIFY(fake::writeFile(m_dir.filePath("body.txt.xml"), "<smtp><Host>"));
    QVERIFY(fake::writeFile(m_dir.filePath("other-group.ini"), "[office]\nhost=127.0.0.1\n"));
    QVERIFY(QDir(m_dir.path()).mkpath("folder"));
}

void tst_SendCommandLine::badInputIsRefusedBeforeSending_data()
{
    // Arguments and the texts the message must hold, each split at "|".
    // "S|" stands for a server, "V|" for a server and a valid message.
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QString>("mentions");
    const auto row = [](const char* name, const char* arguments, const char* mentions) {
        QTest::newRow(name) << QString::fromUtf8(arguments) << QString::fromUtf8(mentions);
    };
    row("unknown option", "V|--frobnicate", "frobnicate");
    row("option without value", "V|--subject", "--subject");
    row("stray argument", "V|extra", "extra");
    row("port not a number", "--port|smtp", "--port|smtp");
    row("port out of range", "--port|70000", "--port|70000");
    row("no copies", "V|--count|0", "--count");
    row("no jobs", "V|--jobs=0", "--jobs");
    row("ssl and starttls", "V|--ssl|--starttls", "--ssl|--starttls");
    row("text twice", "V|--text-file|%DIR%/body.txt", "--text-file");
    row("standard input twice", "S|--from|me@example.org|--to|you@example.org|--text-file|-|--html-file|-", "--html-file");
    row("unknown program kind", "V|--compose|--app|pigeon", "--app|pigeon");
    row("empty server", "--server||--from|me@example.org|--to|you@example.org", "--server");
    row("empty settings group", "V|--config-group| ", "--config-group");
    row("no server", "--from|me@example.org|--to|you@example.org|--text|Hi", "--server");
    row("no sender", "S|--to|you@example.org", "--from");
    row("no recipient", "S|--from|me@example.org", "--to");
    row("recipient without domain", "V|--to|Ann <ann>", "--to|ann");
    row("bad second copy recipient", "V|--cc|carl@example.org, broken@", "--cc|broken@");
    row("bad blind copy", "V|--bcc|no at sign", "--bcc");
    row("empty recipient list", "V|--to| , ;", "--to");
    row("two senders", "S|--from|a@example.org, b@example.org|--to|you@example.org", "--from");
    row("missing attachment", "V|--attach|%DIR%/missing.pdf", "--attach|missing.pdf");
    row("attachment is a folder", "V|--attach|%DIR%/folder", "--attach|folder");
    row("missing inline image", "V|--inline-image|%DIR%/logo.png", "--inline-image|logo.png");
    row("missing text file", "S|--from|me@example.org|--to|you@example.org|--text-file|%DIR%/none.txt", "--text-file|none.txt");
    row("missing html file", "V|--html-file|%DIR%/none.html", "--html-file|none.html");
    row("missing settings file", "V|--config|%DIR%/none.ini", "--config|none.ini");
    row("settings group absent", "V|--config|%DIR%/other-group.ini", "--config|smtp");
    row("XML settings not XML", "V|--config|%DIR%/body.txt.xml", "--config");
    row("user without password", "V|--user|joe", "--user|QUILLET_PASSWORD");
    row("hand-off with copy recipient", "--compose|--to|you@example.org|--cc|carl@example.org", "--cc");
    row("hand-off with missing attachment", "--compose|--to|you@example.org|--attach|%DIR%/missing.pdf", "--attach");
    row("hand-off, apostrophe for thunderbird", "--compose|--app|thunderbird|--to|a@example.org|--subject|It's", "--subject");
    row("hand-off, placeholder for thunderbird", "--compose|--app|thunderbird|--to|a@example.org|--text|50%3 off", "--text");
    row("hand-off, two attachments for outlook",
        "--compose|--app|outlook|--to|a@example.org|--attach|%DIR%/body.txt|--attach|%DIR%/other-group.ini", "--attach");
}

void tst_SendCommandLine::badInputIsRefusedBeforeSending()
{
    QFETCH(QString, arguments);
    QFETCH(QString, mentions);
    const QString server = QStringLiteral("--server|127.0.0.1|--port|%1|").arg(m_listener.serverPort());
    arguments.replace(QRegularExpression("^V\\|"), server + "--from|me@example.org|--to|you@example.org|--text|Hi|");
    arguments.replace(QRegularExpression("^S\\|"), server).replace("%DIR%", m_dir.path());

    const ToolResult result = runTool(arguments.split('|'), toolEnvironment(), QByteArray(), 20000);
    QVERIFY2(result.finished, qPrintable(result.describe()));
    QCOMPARE(result.exitCode, 2);
    // The program's own message (Qt may print warnings of its own first).
    const QString message =
        QRegularExpression("^quillet-send: (.*)$", QRegularExpression::MultilineOption).match(result.err).captured(1);
    for (const QString& mention : mentions.split('|'))
        QVERIFY2(message.contains(mention), qPrintable(result.describe()));
    QVERIFY2(result.err.contains("Usage: quillet-send") && result.out.isEmpty(), qPrintable(result.describe()));
    QVERIFY2(!m_listener.waitForNewConnection(50), "the program connected although its input was bad");
}

void tst_SendCommandLine::helpDocumentsEveryOption()
{
    const ToolResult result = runTool({"--help"});
    QCOMPARE(result.exitCode, 0);
    for (const char* option : {"server", "port", "ssl", "starttls", "user", "cram-md5", "config", "config-group",
                               "save-config", "from", "to", "cc", "bcc", "subject", "text", "text-file", "html-file",
                               "attach", "inline-image", "count", "jobs", "compose", "app", "program"}) {
        // The option's entry: its heading line, then indented lines up to the next heading.
        const QRegularExpressionMatch entry =
            QRegularExpression(QStringLiteral("\\n  --%1( [A-Z]+)?\\n((?:      [^\\n]*\\n)+)").arg(option)).match(result.out);
        const QString body = entry.captured(2);
        QVERIFY2(body.contains("Example: ") && body.section("Example: ", 0, 0).trimmed().size() > 10,
                 qPrintable(QStringLiteral("--%1: %2").arg(option, body)));
    }
}

QTEST_GUILESS_MAIN(tst_SendCommandLine)
#include "tst_sendcommandline.moc"
