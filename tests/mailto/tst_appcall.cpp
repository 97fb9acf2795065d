// Turning a parameter set into arguments and carrying out each call kind
// against stand-in programs and a recording URL handler.

#include "FakeProgram.h"
#include "mailto/MailTo.h"

#include <QDesktopServices>
#include <QDir>
#include <QTemporaryDir>
#include <QUrl>
#include <QtTest>

using oru::AppCall;
using oru::MailTo;
using oru::ParamSet;

Q_DECLARE_METATYPE(oru::ParamSet)

namespace {

const int kStartTimeoutMs = 10000;

ParamSet fixedArguments(const QStringList &arguments)
{
    ParamSet set;
    for (const QString &argument : arguments)
        set.emplace_back(argument, QStringList());
    return set;
}

// The osascript arguments expected for one message: "-e" before each line.
QStringList scriptArguments(const QString &subject, const QString &content,
                            const QStringList &recipients, const QStringList &attachments)
{
    QStringList lines{"tell app \"Mail\"", "  activate", "  set newMessage to make new outgoing message",
                      "  tell newMessage", "    set the subject to \"" + subject + "\"",
                      "    set the content to \"" + content + "\" & return & return & return"};
    for (const QString &r : recipients)
        lines << "    make new recipient at end of to recipients with properties {address:\"" + r + "\"}";
    if (!attachments.isEmpty()) {
        lines << "    tell content";
        for (const QString &a : attachments)
            lines << "      make new attachment with properties {file name:\"" + a
                         + "\"} at after the last word of the last paragraph";
        lines << "    end tell";
    }
    lines << "    set visible to true" << "  end tell" << "end tell";
    QStringList arguments;
    for (const QString &line : lines)
        arguments << "-e" << line;
    return arguments;
}

} // namespace

class tst_AppCall : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE void openUrl(const QUrl &url) { m_opened << url.toString(); }

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void fillParams_data();
    void fillParams();
    void mergeParams_data();
    void mergeParams();
    void shellExec_data();
    void shellExec();
    void shellExecWithoutProgram_data();
    void shellExecWithoutProgram();
    void appleScript_data();
    void appleScript();
    void url_data();
    void url();
    void unavailableKinds_data();
    void unavailableKinds();

private:
    QTemporaryDir m_bin;
    QStringList m_opened;
    QByteArray m_oldPath;
};

void tst_AppCall::initTestCase()
{
    QVERIFY(m_bin.isValid());
    QVERIFY(fake::writeRecorder(m_bin.filePath("osascript"), m_bin.filePath("osascript.rec")));
    m_oldPath = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(m_bin.path()) + ':' + m_oldPath);
    QDesktopServices::setUrlHandler(QStringLiteral("mailto"), this, "openUrl");
}

void tst_AppCall::cleanupTestCase()
{
    QDesktopServices::unsetUrlHandler(QStringLiteral("mailto"));
    qputenv("PATH", m_oldPath);
    qunsetenv("FAKE_STATUS");
}

void tst_AppCall::init()
{
    m_opened.clear();
    QFile::remove(m_bin.filePath("osascript.rec"));
}

void tst_AppCall::fillParams_data()
{
    QTest::addColumn<ParamSet>("params");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("no pairs") << ParamSet() << QStringList();
    QTest::newRow("fixed argument") << ParamSet{{"/c ipm.note", {}}} << QStringList{"/c ipm.note"};
    QTest::newRow("values in placeholder order") << ParamSet{{"%2-%1", {"a", "b"}}} << QStringList{"b-a"};
    QTest::newRow("value bringing a placeholder is filled later")
        << ParamSet{{"%1|%2|%3", {"x%3", "y", "z"}}} << QStringList{"xz|y|z"};
    QTest::newRow("template without placeholders drops values") << ParamSet{{"", {"v"}}, {"k", {"w"}}}
        << QStringList{"", "k"};
    QTest::newRow("thunderbird defaults leave empty fields") << MailTo::defaultParamSet(MailTo::eThunderbird)
        << QStringList{"-compose", "to='',subject='',body='',attachment='file:///'"};
    QTest::newRow("outlook defaults, one argument per pair") << MailTo::defaultParamSet(MailTo::eOutlook)
        << QStringList{"/c ipm.note", "/m \"&subject=&body=\"", "/a \"\""};
    QTest::newRow("nothing is escaped") << ParamSet{{"mailto:%1?subject=%2", {"a@b", "x&y=\"z'"}}}
        << QStringList{"mailto:a@b?subject=x&y=\"z'"};
}

void tst_AppCall::fillParams()
{
    QFETCH(ParamSet, params);
    QFETCH(QStringList, expected);
    const AppCall call(AppCall::eUrl, QString(), QString(), false, params);
    QCOMPARE(call.fillParams(), expected);
}

void tst_AppCall::mergeParams_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("quote");
    QTest::addColumn<QString>("expected");

    QTest::newRow("none") << QStringList() << false << QString();
    QTest::newRow("joined with blanks") << QStringList{"a", "b c", "d"} << false << QString("a b c d");
    QTest::newRow("leading empties add no blank") << QStringList{"", "", "x"} << false << QString("x");
    QTest::newRow("trailing empty leaves a blank") << QStringList{"x", ""} << false << QString("x ");
    QTest::newRow("quoted, trailing empty") << QStringList{"x", ""} << true << QString("\"x\" \"\"");
    QTest::newRow("quoted, leading empty") << QStringList{"", "x"} << true << QString("\"\" \"x\"");
}

void tst_AppCall::mergeParams()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, quote);
    QFETCH(QString, expected);
    const AppCall call(AppCall::eUrl, QString(), QString(), false, fixedArguments(arguments));
    QCOMPARE(call.mergeParams(quote), expected);
}

void tst_AppCall::shellExec_data()
{
    QTest::addColumn<int>("app");
    QTest::addColumn<QStringList>("attachments");
    QTest::addColumn<QStringList>("expected");

    const QStringList two{"/x/a b.pdf", "/x/c.pdf"};
    QTest::newRow("outlook: three arguments, second attachment dropped") << int(MailTo::eOutlook) << two
        << QStringList{"/c ipm.note", "/m \"r@x&subject=Hello there&body=Line 1\nLine 2\"", "/a \"/x/a b.pdf\""};
    QTest::newRow("outlook without attachments") << int(MailTo::eOutlook) << QStringList()
        << QStringList{"/c ipm.note", "/m \"r@x&subject=Hello there&body=Line 1\nLine 2\"", "/a \"\""};
    QTest::newRow("thunderbird compose string") << int(MailTo::eThunderbird) << two
        << QStringList{"-compose",
                       "to='r@x',subject='Hello there',body='Line 1\nLine 2',attachment='file:////x/a b.pdf'"};
    QTest::newRow("mail url switch: attachment apart") << int(MailTo::eMailUrlSwitchAlt1) << two
        << QStringList{"/mailurl:mailto:r@x?subject=Hello there&body=Line 1\nLine 2", "/attach:/x/a b.pdf"};
    QTest::newRow("raw fields: empty templates") << int(MailTo::eRawFields) << two
        << QStringList{"", "", "", ""};
}

void tst_AppCall::shellExec()
{
    QFETCH(int, app);
    QFETCH(QStringList, attachments);
    QFETCH(QStringList, expected);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString record = dir.filePath("record");
    QVERIFY(fake::writeRecorder(dir.filePath("fakemail"), record));

    MailTo mailTo;
    const MailTo::EApp key = MailTo::EApp(app);
    mailTo[key] = AppCall(AppCall::eShellExec, QStringLiteral("fakemail"), dir.path() + '/', false,
                          MailTo::defaultParamSet(key));
    QVERIFY(mailTo.apply(QStringLiteral("Hello there"), QStringLiteral("Line 1\nLine 2"), attachments,
                         QStringLiteral("r@x")));

    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(record), kStartTimeoutMs);
    const QStringList fields = fake::readRecord(record);
    QVERIFY(!fields.isEmpty());
    QCOMPARE(fields.first(), QDir(dir.path()).canonicalPath());
    QCOMPARE(fields.mid(1), expected);
}

void tst_AppCall::shellExecWithoutProgram_data()
{
    // "$D" stands for the directory that holds the stand-in "fakemail".
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("started");

    QTest::newRow("empty program: path is the whole command") << QString() << "$D/fakemail" << true;
    QTest::newRow("no path and no search") << "fakemail" << QString() << false;
    QTest::newRow("path without its slash") << "fakemail" << "$D" << false;
    QTest::newRow("nothing at all") << QString() << QString() << false;
}

void tst_AppCall::shellExecWithoutProgram()
{
    QFETCH(QString, program);
    QFETCH(QString, path);
    QFETCH(bool, started);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString record = dir.filePath("record");
    QVERIFY(fake::writeRecorder(dir.filePath("fakemail"), record));
    path.replace(QLatin1String("$D"), dir.path());

    const AppCall call(AppCall::eShellExec, program, path, false, fixedArguments({"one", "two"}));
    QCOMPARE(call.apply(), started);
    if (started) {
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(record), kStartTimeoutMs);
        QCOMPARE(fake::readRecord(record).mid(1), QStringList({"one", "two"}));
    }
}

void tst_AppCall::appleScript_data()
{
    QTest::addColumn<ParamSet>("params");
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<bool>("result");
    QTest::addColumn<bool>("ran");
    QTest::addColumn<QStringList>("arguments");

    const QStringList none;
    QTest::newRow("no recipients, no attachments")
        << ParamSet{{"", {}}, {"", {"Hi"}}, {"", {"Body"}}, {"", {}}} << QByteArray("0") << true << true
        << scriptArguments("Hi", "Body", none, none);
    QTest::newRow("recipients and attachments in order")
        << ParamSet{{"", {"a@x", "b@x"}}, {"", {"S"}}, {"", {"B"}}, {"", {"/p/1.pdf", "/p/2.pdf"}}}
        << QByteArray("0") << true << true
        << scriptArguments("S", "B", {"a@x", "b@x"}, {"/p/1.pdf", "/p/2.pdf"});
    QTest::newRow("templates ignored, values joined")
        << ParamSet{{"to %1", {"a@x"}}, {"s %1", {"Two", "words"}}, {"b %1", {"l1", "l2"}}, {"a", {}}}
        << QByteArray("0") << true << true << scriptArguments("Two words", "l1\nl2", {"a@x"}, none);
    QTest::newRow("%2 in the subject takes the content")
        << ParamSet{{"", {}}, {"", {"x%2y"}}, {"", {"C"}}, {"", {}}} << QByteArray("0") << true << true
        << scriptArguments("xCy", "C", none, none);
    QTest::newRow("short parameter set") << ParamSet{{"", {"a@x"}}} << QByteArray("0") << true << true
        << scriptArguments("", "", {"a@x"}, none);
    QTest::newRow("non-zero exit status fails")
        << ParamSet{{"", {}}, {"", {"S"}}, {"", {"B"}}, {"", {}}} << QByteArray("3") << false << true
        << scriptArguments("S", "B", none, none);
    QTest::newRow("apostrophe breaks the command")
        << ParamSet{{"", {}}, {"", {"it's"}}, {"", {"B"}}, {"", {}}} << QByteArray("0") << false << false
        << QStringList();
}

void tst_AppCall::appleScript()
{
    QFETCH(ParamSet, params);
    QFETCH(QByteArray, status);
    QFETCH(bool, result);
    QFETCH(bool, ran);
    QFETCH(QStringList, arguments);

    qputenv("FAKE_STATUS", status);
    const AppCall call(AppCall::eAppleScript, QString(), QString(), false, params);
    QCOMPARE(call.apply(), result);

    const QString record = m_bin.filePath("osascript.rec");
    QCOMPARE(QFile::exists(record), ran);
    if (ran)
        QCOMPARE(fake::readRecord(record).mid(1), arguments);
}

void tst_AppCall::url_data()
{
    QTest::addColumn<ParamSet>("params");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("opened");

    MailTo filler;
    auto filled = [&filler](MailTo::EApp app, const QString &subject, const QStringList &attachments) {
        return filler.call(app, subject, QStringLiteral("B"), attachments, QStringLiteral("r@x")).params;
    };
    QTest::newRow("mailto with the first attachment")
        << filled(MailTo::eMailtoUrlAlt, "S", {"/x/a.pdf", "/x/b.pdf"}) << true
        << "mailto:r@x?subject=%22S%22&body=%22B%22&attach=%22file:////x/a.pdf%22";
    QTest::newRow("ampersand in the subject adds a field")
        << filled(MailTo::eMailtoUrl, "a&cc=e@x", {}) << true
        << "mailto:r@x?subject=%22a&cc=e@x%22&body=%22B%22&attach=%22file:///%22";
    QTest::newRow("arguments joined with a blank") << fixedArguments({"mailto:x", "y"}) << true
        << "mailto:x y";
    QTest::newRow("no parameters: empty URL fails") << ParamSet() << false << QString();
    QTest::newRow("raw fields: empty URL fails") << filled(MailTo::eRawFields, "S", {}) << false << QString();
}

void tst_AppCall::url()
{
    QFETCH(ParamSet, params);
    QFETCH(bool, result);
    QFETCH(QString, opened);

    const AppCall call(AppCall::eUrl, QString(), QString(), false, params);
    QCOMPARE(call.apply(), result);
    QCOMPARE(m_opened, opened.isEmpty() ? QStringList() : QStringList{opened});
}

void tst_AppCall::unavailableKinds_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("drag and drop") << int(AppCall::eDragDrop);
    QTest::newRow("MAPI") << int(AppCall::eMAPI);
    QTest::newRow("5") << 5;
    QTest::newRow("-1") << -1;
    QTest::newRow("1000") << 1000;
}

void tst_AppCall::unavailableKinds()
{
    QFETCH(int, type);
    // Settings under which an eShellExec call would succeed.
    const AppCall call(AppCall::ECall(type), QStringLiteral("sh"), QStringLiteral("/bin/"), false,
                       fixedArguments({"-c", "true"}));
    QVERIFY(!call.apply());
    QVERIFY(!call.applyShellExec());
    QVERIFY(!call.applyDrapDrop());
    QVERIFY(!call.applyMAPI());
    QVERIFY(m_opened.isEmpty());
}

QTEST_MAIN(tst_AppCall)
#include "tst_appcall.moc"
