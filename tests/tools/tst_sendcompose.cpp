// quillet-send --compose: the message reaches a stand-in mail program that
// the program search finds (below ProgramFiles or ProgramFiles(x86), on the
// PATH, or as given), with each text intact in the program's own argument
// syntax; texts a syntax cannot carry are refused and nothing is started.

#include "ToolRun.h"

#include <QTemporaryDir>
#include <QtTest>

class tst_SendCompose : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void handsOffToProgram_data();
    void handsOffToProgram();

private:
    QString expand(QString text) const;
    QTemporaryDir m_dir;
    QString m_case; // a fresh folder for each row
};

void tst_SendCompose::initTestCase()
{
    QVERIFY(fake::writeFile(m_dir.filePath("files/a.txt"), "text attachment\n", false));
    QVERIFY(fake::writeFile(m_dir.filePath("files/b.bin"), "\x01\x02", false));
    QVERIFY(fake::writeFile(m_dir.filePath("files/page.html"), "<p>Hello</p>", false));
}

QString tst_SendCompose::expand(QString text) const
{
    return text.replace("%FILES%", m_dir.filePath("files")).replace("%CASE%", m_case);
}

void tst_SendCompose::handsOffToProgram_data()
{
    QTest::addColumn<QString>("programPath");     // a recording stand-in, below %CASE%
    QTest::addColumn<QStringList>("environment"); // NAME=value
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("expected"); // exit 0: the program's arguments; else texts of the error

    const QStringList pf{"ProgramFiles=%CASE%/pf"};
    QTest::newRow("thunderbird below ProgramFiles")
        << "pf/Mozilla Thunderbird/thunderbird" << pf
        << QStringList{"--app", "thunderbird", "--to", "Ann <ann@example.org>, bob@example.org", "--subject", "Hello there",
                       "--text", "Line 1\nLine 2 \u00fc", "--attach", "%FILES%/a.txt", "--attach", "%FILES%/b.bin"}
        << 0
        << QStringList{"-compose", "to='ann@example.org,bob@example.org',subject='Hello there',body='Line 1\nLine 2 \u00fc',"
                                   "attachment='file://%FILES%/a.txt,file://%FILES%/b.bin'"};
    QTest::newRow("outlook three levels below ProgramFiles(x86)")
        << "pf86/Microsoft Office/root/Office16/outlook" << QStringList{"ProgramFiles(x86)=%CASE%/pf86"}
        << QStringList{"--app", "outlook", "--to", "ann@example.org", "--subject", "50% & more #1", "--text", "Say \"hi\"",
                       "--attach", "%FILES%/a.txt"}
        << 0
        << QStringList{"/c ipm.note", "/m \"ann@example.org&subject=50%25 %26 more %231&body=Say %22hi%22\"",
                       "/a \"%FILES%/a.txt\""};
    QTest::newRow("outlook on the PATH")
        << "bin/outlook" << QStringList{"PATH=%CASE%/bin:/usr/bin:/bin"}
        << QStringList{"--app", "outlook", "--to", "ann@example.org", "--subject", "Hi", "--text", "Body"} << 0
        << QStringList{"/c ipm.note", "/m \"ann@example.org&subject=Hi&body=Body\"", "/a \"\""};
    QTest::newRow("program given by path, display names left out")
        << "elsewhere/compose-mail" << QStringList()
        << QStringList{"--app", "thunderbird", "--program", "%CASE%/elsewhere/compose-mail", "--to",
                       "\"Ann %1\" <ann@example.org>; \"Bob's\" <bob@example.org>", "--subject", "Hi"}
        << 0 << QStringList{"-compose", "to='ann@example.org,bob@example.org',subject='Hi',body='',attachment='file:///'"};
    QTest::newRow("automatic choice finds thunderbird, (x86) cut")
        << "pf/Thunderbird/thunderbird" << QStringList{"ProgramFiles=%CASE%/pf (x86)", "ProgramFiles(x86)=%CASE%/none"}
        << QStringList{"--to", "ann@example.org", "--subject", "Auto", "--html-file", "%FILES%/page.html"} << 0
        << QStringList{"-compose", "to='ann@example.org',subject='Auto',body='<p>Hello</p>',attachment='file:///'"};

    // A thunderbird stand-in that must stay unused. (Texts a program cannot
    // carry: see tst_sendcommandline.)
    QTest::newRow("outlook not found") << "pf/thunderbird" << pf << QStringList{"--app", "outlook", "--to", "ann@example.org"}
                                       << 1 << QStringList{"nothing could be started"};
    QTest::newRow("automatic choice skips what it cannot carry")
        << "pf/thunderbird" << pf << QStringList{"--to", "ann@example.org", "--subject", "It's done"} << 1
        << QStringList{"nothing could be started"};
}

void tst_SendCompose::handsOffToProgram()
{
    QFETCH(QString, programPath);
    QFETCH(QStringList, environment);
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QStringList, expected);

    static int rowNumber = 0;
    m_case = m_dir.filePath(QString::number(++rowNumber));
    const QString program = m_case + '/' + programPath, record = m_case + "/record";
    QVERIFY(fake::writeRecorder(program, record));
    QProcessEnvironment env = toolEnvironment();
    for (const QString& entry : environment)
        env.insert(entry.section('=', 0, 0), expand(entry.section('=', 1)));
    QStringList expanded{"--compose"};
    for (const QString& argument : arguments)
        expanded << expand(argument);

    const ToolResult result = runTool(expanded, env);
    QVERIFY2(result.finished, qPrintable(result.describe()));
    QCOMPARE(result.exitCode, exitCode);
    if (exitCode != 0) {
        for (const QString& mention : expected)
            QVERIFY2(result.err.contains(mention), qPrintable(result.describe()));
        QTest::qWait(300);
        QVERIFY2(!QFile::exists(record), "a mail program was started");
        return;
    }
    QVERIFY2(result.out.startsWith("started "), qPrintable(result.describe()));
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(record), 10000);
    QStringList recorded = fake::readRecord(record);
    // It runs in its own directory.
    QCOMPARE(recorded.takeFirst(), QFileInfo(QFileInfo(program).absolutePath()).canonicalFilePath());
    QCOMPARE(recorded, expected.replaceInStrings("%FILES%", m_dir.filePath("files")));
}

QTEST_GUILESS_MAIN(tst_SendCompose)
#include "tst_sendcompose.moc"
