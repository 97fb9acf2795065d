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
    void helpDocumentsEveryOption_data();
    void helpDocumentsEveryOption();

private:
    QStringList expand(const QStringList& arguments) const;

    QTemporaryDir m_dir;
    QTcpServer m_listener;  // would see any connection the program makes
    QString m_helpText;
};

void tst_SendCommandLine::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY(m_listener.listen(QHostAddress::LocalHost));
    QVERIFY(writeFile(m_dir.filePath(QStringLiteral("body.txt")), "Hello\n"));
    QVERIFY(writeFile(m_dir.filePath(QStringLiteral("other-group.ini")), "[office]\nhost=127.0.0.1\n"));
    QVERIFY(QDir(m_dir.path()).mkpath(QStringLiteral("folder")));
}

QStringList tst_SendCommandLine::expand(const QStringList& arguments) const
{
    QStringList expanded;
    for (QString argument : arguments) {
        argument.replace(QLatin1String("%PORT%"), QString::number(m_listener.serverPort()));
        argument.replace(QLatin1String("%DIR%"), m_dir.path());
        expanded << argument;
    }
    return expanded;
}

void tst_SendCommandLine::badInputIsRefusedBeforeSending_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("mentions");  // texts the error message must hold

    const QStringList server{"--server", "127.0.0.1", "--port", "%PORT%"};
    const QStringList valid = server + QStringList{"--from", "me@example.org", "--to", "you@example.org", "--text", "Hi"};

    QTest::newRow("unknown option") << (valid + QStringList{"--frobnicate"}) << QStringList{"frobnicate"};
    QTest::newRow("option without value") << (valid + QStringList{"--subject"}) << QStringList{"--subject"};
    QTest::newRow("stray argument") << (valid + QStringList{"extra"}) << QStringList{"extra"};
    QTest::newRow("port not a number") << QStringList{"--port", "smtp"} << QStringList{"--port", "smtp"};
    QTest::newRow("port out of range") << QStringList{"--port", "70000"} << QStringList{"--port", "70000"};
    QTest::newRow("no copies") << (valid + QStringList{"--count", "0"}) << QStringList{"--count"};
    QTest::newRow("no jobs") << (valid + QStringList{"--jobs=0"}) << QStringList{"--jobs"};
    QTest::newRow("ssl and starttls") << (valid + QStringList{"--ssl", "--starttls"}) << QStringList{"--ssl", "--starttls"};
    QTest::newRow("text twice") << (valid + QStringList{"--text-file", "%DIR%/body.txt"}) << QStringList{"--text-file"};
    QTest::newRow("standard input twice")
        << (server + QStringList{"--from", "me@example.org", "--to", "you@example.org", "--text-file", "-", "--html-file", "-"})
        << QStringList{"--html-file"};
    QTest::newRow("unknown program kind") << (valid + QStringList{"--compose", "--app", "pigeon"}) << QStringList{"--app", "pigeon"};
    QTest::newRow("empty server") << QStringList{"--server", "", "--from", "me@example.org", "--to", "you@example.org"}
                                  << QStringList{"--server"};
    QTest::newRow("empty settings group") << (valid + QStringList{"--config-group", " "}) << QStringList{"--config-group"};
    QTest::newRow("no server") << QStringList{"--from", "me@example.org", "--to", "you@example.org", "--text", "Hi"}
                               << QStringList{"--server"};
    QTest::newRow("no sender") << (server + QStringList{"--to", "you@example.org"}) << QStringList{"--from"};
    QTest::newRow("no recipient") << (server + QStringList{"--from", "me@example.org"}) << QStringList{"--to"};
    QTest::newRow("recipient without domain") << (valid + QStringList{"--to", "Ann <ann>"}) << QStringList{"--to", "ann"};
    QTest::newRow("bad second copy recipient")
        << (valid + QStringList{"--cc", "carl@example.org, broken@"}) << QStringList{"--cc", "broken@"};
    QTest::newRow("bad blind copy") << (valid + QStringList{"--bcc", "no at sign"}) << QStringList{"--bcc"};
    QTest::newRow("empty recipient list") << (valid + QStringList{"--to", " , ;"}) << QStringList{"--to"};
    QTest::newRow("two senders") << (server + QStringList{"--from", "a@example.org, b@example.org", "--to", "you@example.org"})
                                 << QStringList{"--from"};
    QTest::newRow("missing attachment") << (valid + QStringList{"--attach", "%DIR%/missing.pdf"})
                                        << QStringList{"--attach", "missing.pdf"};
    QTest::newRow("attachment is a folder") << (valid + QStringList{"--attach", "%DIR%/folder"}) << QStringList{"--attach", "folder"};
    QTest::newRow("missing inline image") << (valid + QStringList{"--inline-image", "%DIR%/logo.png"})
                                          << QStringList{"--inline-image", "logo.png"};
    QTest::newRow("missing text file")
        << (server + QStringList{"--from", "me@example.org", "--to", "you@example.org", "--text-file", "%DIR%/none.txt"})
        << QStringList{"--text-file", "none.txt"};
    QTest::newRow("missing html file") << (valid + QStringList{"--html-file", "%DIR%/none.html"})
                                       << QStringList{"--html-file", "none.html"};
    QTest::newRow("missing settings file") << (valid + QStringList{"--config", "%DIR%/none.ini"})
                                           << QStringList{"--config", "none.ini"};
    QTest::newRow("settings group absent") << (valid + QStringList{"--config", "%DIR%/other-group.ini"})
                                           << QStringList{"--config", "smtp"};
    QTest::newRow("XML settings not XML") << (valid + QStringList{"--config", "%DIR%/body.txt.xml"})
                                          << QStringList{"--config"};
    QTest::newRow("user without password") << (valid + QStringList{"--user", "joe"})
                                           << QStringList{"--user", "QUILLET_PASSWORD"};
    QTest::newRow("hand-off with copy recipient")
        << QStringList{"--compose", "--to", "you@example.org", "--cc", "carl@example.org"} << QStringList{"--cc"};
    QTest::newRow("hand-off with missing attachment")
        << QStringList{"--compose", "--to", "you@example.org", "--attach", "%DIR%/missing.pdf"} << QStringList{"--attach"};
}

void tst_SendCommandLine::badInputIsRefusedBeforeSending()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, mentions);
    QVERIFY(writeFile(m_dir.filePath(QStringLiteral("body.txt.xml")), "<smtp><Host>"));

    const ToolResult result = runTool(expand(arguments), toolEnvironment(), QByteArray(), 20000);
    QVERIFY2(result.finished, qPrintable(result.describe()));
    QCOMPARE(result.exitCode, 2);
    // The program's own message (Qt may print warnings of its own first).
    const QRegularExpression ownLine(QStringLiteral("^quillet-send: (.*)$"), QRegularExpression::MultilineOption);
    const QString message = ownLine.match(result.err).captured(1);
    for (const QString& mention : mentions)
        QVERIFY2(message.contains(mention), qPrintable(result.describe()));
    QVERIFY2(result.err.contains(QLatin1String("Usage: quillet-send")), qPrintable(result.describe()));
    QVERIFY2(result.out.isEmpty(), qPrintable(result.describe()));
    QVERIFY2(!m_listener.waitForNewConnection(50), "the program connected although its input was bad");
}

void tst_SendCommandLine::helpDocumentsEveryOption_data()
{
    QTest::addColumn<QString>("option");
    for (const char* option : {"server", "port", "ssl", "starttls", "user", "cram-md5", "config", "config-group",
                               "save-config", "from", "to", "cc", "bcc", "subject", "text", "text-file", "html-file",
                               "attach", "inline-image", "count", "jobs", "compose", "app", "program"})
        QTest::newRow(option) << QString::fromLatin1(option);
}

void tst_SendCommandLine::helpDocumentsEveryOption()
{
    QFETCH(QString, option);
    if (m_helpText.isEmpty()) {
        const ToolResult result = runTool({QStringLiteral("--help")});
        QCOMPARE(result.exitCode, 0);
        m_helpText = result.out;
    }
    // The option's own entry: from its heading line to the next heading.
    const QRegularExpression entry(QStringLiteral("\\n  --%1( [A-Z]+)?\\n((?:      [^\\n]*\\n)+)")
                                       .arg(QRegularExpression::escape(option)));
    const QRegularExpressionMatch match = entry.match(m_helpText);
    QVERIFY2(match.hasMatch(), qPrintable(QStringLiteral("no entry for --%1").arg(option)));
    const QString body = match.captured(2);
    QVERIFY2(body.contains(QLatin1String("Example: ")), qPrintable(body));
    QVERIFY2(body.section(QLatin1String("Example: "), 0, 0).trimmed().size() > 10, qPrintable(body));
}

QTEST_GUILESS_MAIN(tst_SendCommandLine)
#include "tst_sendcommandline.moc"
