// quillet-send --compose: the message reaches a stand-in mail program that
// the program search finds (below ProgramFiles or ProgramFiles(x86), on the
// PATH, or as given), with each text intact in the program's own argument
// syntax; texts a syntax cannot carry are refused and nothing is started.

#include "ToolRun.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// A stand-in that writes its working directory and arguments, each ended by
// a zero byte, to record (complete once the file appears).
QByteArray recorderScript(const QString& record)
{
    const QByteArray path = record.toUtf8();
    return "#!/bin/sh\nPATH=/usr/bin:/bin\n{ printf '%s\\0' \"$(pwd -P)\"; for a in \"$@\"; do printf '%s\\0' \"$a\"; done; } > '"
        + path + ".part' && mv '" + path + ".part' '" + path + "'\n";
}

bool installRecorder(const QString& program, const QString& record)
{
    if (!QDir().mkpath(QFileInfo(program).absolutePath()) || !writeFile(program, recorderScript(record)))
        return false;
    return QFile::setPermissions(program, QFile::permissions(program) | QFile::ExeOwner);
}

QStringList readRecord(const QString& record, int waitMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!QFile::exists(record) && timer.elapsed() < waitMs)
        QTest::qWait(25);
    QFile file(record);
    QStringList fields;
    if (!file.open(QIODevice::ReadOnly))
        return fields;
    QList<QByteArray> raw = file.readAll().split('\0');
    raw.removeLast();
    for (const QByteArray& field : raw)
        fields << QString::fromUtf8(field);
    return fields;
}

} // namespace

class tst_SendCompose : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void handsOffToProgram_data();
    void handsOffToProgram();
    void startsNothingItCannotCarry_data();
    void startsNothingItCannotCarry();

private:
    QString expand(QString text) const;
    QTemporaryDir m_dir;
    QString m_case;  // a fresh folder for each row
};

void tst_SendCompose::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY(QDir().mkpath(m_dir.filePath("files")));
    QVERIFY(writeFile(m_dir.filePath("files/a.txt"), "text attachment\n"));
    QVERIFY(writeFile(m_dir.filePath("files/b.bin"), patternBytes(64, 3)));
    QVERIFY(writeFile(m_dir.filePath("files/page.html"), "<p>Hello</p>"));
}

void tst_SendCompose::init()
{
    static int number = 0;
    m_case = m_dir.filePath(QStringLiteral("case%1").arg(++number));
    QVERIFY(QDir().mkpath(m_case));
}

QString tst_SendCompose::expand(QString text) const
{
    text.replace(QLatin1String("%FILES%"), m_dir.filePath("files"));
    return text.replace(QLatin1String("%CASE%"), m_case);
}

void tst_SendCompose::handsOffToProgram_data()
{
    QTest::addColumn<QString>("programPath");      // below %CASE%
    QTest::addColumn<QStringList>("environment");  // NAME=value, below %CASE%
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("expected");     // the program's arguments

    const QStringList twoFiles{"--attach", "%FILES%/a.txt", "--attach", "%FILES%/b.bin"};
    QTest::newRow("thunderbird below ProgramFiles")
        << "pf/Mozilla Thunderbird/thunderbird" << QStringList{"ProgramFiles=%CASE%/pf"}
        << (QStringList{"--app", "thunderbird", "--to", "Ann <ann@example.org>, bob@example.org", "--subject",
                        "Hello there", "--text", "Line 1\nLine 2 \u00fc"}
            + twoFiles)
        << QStringList{"-compose", "to='ann@example.org,bob@example.org',subject='Hello there',"
                                   "body='Line 1\nLine 2 \u00fc',"
                                   "attachment='file://%FILES%/a.txt,file://%FILES%/b.bin'"};
    QTest::newRow("outlook three levels below ProgramFiles(x86)")
        << "pf86/Microsoft Office/root/Office16/outlook" << QStringList{"ProgramFiles(x86)=%CASE%/pf86"}
        << QStringList{"--app", "outlook", "--to", "ann@example.org", "--subject", "50% & more #1",
                       "--text", "Say \"hi\"", "--attach", "%FILES%/a.txt"}
        << QStringList{"/c ipm.note", "/m \"ann@example.org&subject=50%25 %26 more %231&body=Say %22hi%22\"",
                       "/a \"%FILES%/a.txt\""};
    QTest::newRow("outlook on the PATH")
        << "bin/outlook" << QStringList{"PATH=%CASE%/bin:/usr/bin:/bin"}
        << QStringList{"--app", "outlook", "--to", "ann@example.org", "--subject", "Hi", "--text", "Body"}
        << QStringList{"/c ipm.note", "/m \"ann@example.org&subject=Hi&body=Body\"", "/a \"\""};
    QTest::newRow("display names are left out")
        << "pf/thunderbird" << QStringList{"ProgramFiles=%CASE%/pf"}
        << QStringList{"--app", "thunderbird", "--to", "\"Ann %1\" <ann@example.org>; \"Bob's\" <bob@example.org>"}
        << QStringList{"-compose", "to='ann@example.org,bob@example.org',subject='',body='',attachment='file:///'"};
    QTest::newRow("program given by path")
        << "elsewhere/compose-mail" << QStringList()
        << QStringList{"--app", "thunderbird", "--program", "%CASE%/elsewhere/compose-mail", "--to",
                       "ann@example.org", "--subject", "Hi"}
        << QStringList{"-compose", "to='ann@example.org',subject='Hi',body='',attachment='file:///'"};
    QTest::newRow("automatic choice finds thunderbird")
        << "pf/Thunderbird/thunderbird" << QStringList{"ProgramFiles=%CASE%/pf (x86)", "ProgramFiles(x86)=%CASE%/none"}
        << QStringList{"--to", "ann@example.org", "--subject", "Auto", "--html-file", "%FILES%/page.html"}
        << QStringList{"-compose", "to='ann@example.org',subject='Auto',body='<p>Hello</p>',attachment='file:///'"};
}

void tst_SendCompose::handsOffToProgram()
{
    QFETCH(QString, programPath);
    QFETCH(QStringList, environment);
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, expected);

    const QString program = QDir(m_case).filePath(programPath);
    const QString record = QDir(m_case).filePath("record");
    QVERIFY(installRecorder(program, record));
    QProcessEnvironment env = toolEnvironment();
    for (const QString& entry : environment)
        env.insert(entry.section(QLatin1Char('='), 0, 0), expand(entry.section(QLatin1Char('='), 1)));
    QStringList expandedArguments{"--compose"};
    for (const QString& argument : arguments)
        expandedArguments << expand(argument);

    const ToolResult result = runTool(expandedArguments, env);
    QVERIFY2(result.finished && result.exitCode == 0, qPrintable(result.describe()));
    QVERIFY2(result.out.startsWith(QLatin1String("started ")), qPrintable(result.describe()));

    QStringList recorded = readRecord(record, 10000);
    QVERIFY2(!recorded.isEmpty(), "the mail program was not started");
    // It runs in its own directory.
    QCOMPARE(recorded.takeFirst(), QFileInfo(QFileInfo(program).absolutePath()).canonicalFilePath());
    for (QString& value : expected)
        value = expand(value);
    QCOMPARE(recorded, expected);
}

void tst_SendCompose::startsNothingItCannotCarry_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("mention");

    QTest::newRow("apostrophe in the subject")
        << QStringList{"--app", "thunderbird", "--to", "ann@example.org", "--subject", "It's done"} << 2 << "--subject";
    QTest::newRow("placeholder in the text")
        << QStringList{"--app", "thunderbird", "--to", "ann@example.org", "--text", "save 50%3 today"} << 2 << "--text";
    QTest::newRow("two attachments for outlook")
        << QStringList{"--app", "outlook", "--to", "ann@example.org", "--attach", "%FILES%/a.txt", "--attach",
                       "%FILES%/b.bin"}
        << 2 << "--attach";
    QTest::newRow("outlook not found") << QStringList{"--app", "outlook", "--to", "ann@example.org"} << 1
                                       << "nothing could be started";
    QTest::newRow("automatic choice skips what it cannot carry")
        << QStringList{"--to", "ann@example.org", "--subject", "It's done"} << 1 << "nothing could be started";
}

void tst_SendCompose::startsNothingItCannotCarry()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, mention);

    // A thunderbird stand-in that must stay unused.
    const QString record = QDir(m_case).filePath("record");
    QVERIFY(installRecorder(QDir(m_case).filePath("pf/thunderbird"), record));
    QProcessEnvironment env = toolEnvironment();
    env.insert(QStringLiteral("ProgramFiles"), QDir(m_case).filePath("pf"));
    QStringList expandedArguments{"--compose"};
    for (const QString& argument : arguments)
        expandedArguments << expand(argument);

    const ToolResult result = runTool(expandedArguments, env);
    QVERIFY2(result.finished, qPrintable(result.describe()));
    QCOMPARE(result.exitCode, exitCode);
    QVERIFY2(result.err.contains(mention), qPrintable(result.describe()));
    QTest::qWait(300);
    QVERIFY2(!QFile::exists(record), "a mail program was started");
}

QTEST_GUILESS_MAIN(tst_SendCompose)
#include "tst_sendcompose.moc"
