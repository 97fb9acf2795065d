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

ParamSet fixed(const QStringList &arguments)
{
    ParamSet set;
    for (const QString &argument : arguments)
        set.emplace_back(argument, QStringList());
    return set;
}

// The osascript arguments expected for one message: "-e" before each line.
QStringList script(const QString &subject, const QString &content, const QStringList &recipients = {},
                   const QStringList &attachments = {})
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
    void init() { m_opened.clear(); }
    void arguments_data();
    void arguments();
    void shellExec_data();
    void shellExec();
    void appleScript_data();
    void appleScript();
    void url_data();
    void url();
    void unavailableKinds();

private:
    QTemporaryDir m_bin;
    QStringList m_opened;
};

void tst_AppCall::initTestCase()
{
    // A stand-in osascript first on PATH, and a mailto handler that records.
    QVERIFY(fake::writeRecorder(m_bin.filePath("osascript"), m_bin.filePath("osascript.rec")));
    qputenv("PATH", QFile::encodeName(m_bin.path()) + ':' + qgetenv("PATH"));
    QDesktopServices::setUrlHandler("mailto", this, "openUrl");
}

void tst_AppCall::arguments_data()
{
    QTest::addColumn<ParamSet>("params");
    QTest::addColumn<QStringList>("filled");
    QTest::addColumn<QString>("merged");
    QTest::addColumn<QString>("quoted");

    QTest::newRow("values in placeholder order") << ParamSet{{"%2-%1", {"a", "b"}}, {"/c ipm.note", {}}}
        << QStringList{"b-a", "/c ipm.note"} << "b-a /c ipm.note" << "\"b-a\" \"/c ipm.note\"";
    QTest::newRow("value bringing a placeholder is filled later") << ParamSet{{"%1|%2|%3", {"x%3", "y", "z"}}}
        << QStringList{"xz|y|z"} << "xz|y|z" << "\"xz|y|z\"";
    QTest::newRow("lowest remaining number first") << ParamSet{{"%5 %3", {"a", "b"}}} << QStringList{"b a"}
        << "b a" << "\"b a\"";
    QTest::newRow("no placeholder drops the value, leading empty adds no blank")
        << ParamSet{{"", {"v"}}, {"x", {"w"}}} << QStringList{"", "x"} << "x" << "\"\" \"x\"";
    QTest::newRow("trailing empty leaves a blank") << fixed({"x", ""}) << QStringList{"x", ""} << "x "
        << "\"x\" \"\"";
    QTest::newRow("thunderbird defaults") << MailTo::defaultParamSet(MailTo::eThunderbird)
        << QStringList{"-compose", "to='',subject='',body='',attachment='file:///'"}
        << "-compose to='',subject='',body='',attachment='file:///'"
        << "\"-compose\" \"to='',subject='',body='',attachment='file:///'\"";
    QTest::newRow("nothing is escaped") << ParamSet{{"mailto:%1?subject=%2", {"a@b", "x&y=\"z'"}}}
        << QStringList{"mailto:a@b?subject=x&y=\"z'"} << "mailto:a@b?subject=x&y=\"z'"
        << "\"mailto:a@b?subject=x&y=\"z'\"";
    QTest::newRow("no pairs") << ParamSet() << QStringList() << "" << "";
}

void tst_AppCall::arguments()
{
    QFETCH(ParamSet, params);
    const AppCall call(AppCall::eUrl, "", "", false, params);
    QTEST(call.fillParams(), "filled");
    QTEST(call.mergeParams(false), "merged");
    QTEST(call.mergeParams(true), "quoted");
}

void tst_AppCall::shellExec_data()
{
    // "$D" stands for the directory that holds the stand-in "fakemail".
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("app");
    QTest::addColumn<bool>("started");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("outlook: three arguments, second attachment dropped") << "fakemail" << "$D/" << 3 << true
        << QStringList{"/c ipm.note", "/m \"r&subject=Hello there&body=Line 1\nLine 2\"", "/a \"/x/a b.pdf\""};
    QTest::newRow("thunderbird compose string") << "fakemail" << "$D/" << 2 << true
        << QStringList{"-compose", "to='r',subject='Hello there',body='Line 1\nLine 2',attachment='file:////x/a b.pdf'"};
    QTest::newRow("mail url switch: attachment apart") << "fakemail" << "$D/" << 5 << true
        << QStringList{"/mailurl:mailto:r?subject=Hello there&body=Line 1\nLine 2", "/attach:/x/a b.pdf"};
    QTest::newRow("empty program: path is the whole command") << "" << "$D/fakemail" << 8 << true
        << QStringList{"mailto:r?subject=\"Hello there\"&body=\"Line 1\nLine 2\"&attach=\"file:////x/a b.pdf\""};
    QTest::newRow("no path and no search") << "fakemail" << "" << 3 << false << QStringList();
    QTest::newRow("path without its slash") << "fakemail" << "$D" << 3 << false << QStringList();
}

void tst_AppCall::shellExec()
{
    QFETCH(QString, program);
    QFETCH(QString, path);
    QFETCH(int, app);
    QFETCH(bool, started);
    QFETCH(QStringList, expected);

    QTemporaryDir dir;
    const QString record = dir.filePath("record");
    QVERIFY(fake::writeRecorder(dir.filePath("fakemail"), record));

    MailTo mailTo;
    const MailTo::EApp key = MailTo::EApp(app);
    mailTo[key] = AppCall(AppCall::eShellExec, program, path.replace("$D", dir.path()), false,
                          MailTo::defaultParamSet(key));
    QCOMPARE(mailTo.apply("Hello there", "Line 1\nLine 2", {"/x/a b.pdf", "/x/c.pdf"}, "r"), started);
    if (!started)
        return;
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(record), 10000);
    const QStringList fields = fake::readRecord(record);
    QCOMPARE(fields.mid(1), expected);
    if (!program.isEmpty())
        QCOMPARE(fields.value(0), QDir(dir.path()).canonicalPath());
}

void tst_AppCall::appleScript_data()
{
    QTest::addColumn<ParamSet>("params");
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("arguments"); // empty: osascript never ran

    QTest::newRow("no recipients, no attachments") << ParamSet{{"", {}}, {"", {"Hi"}}, {"", {"Body"}}, {"", {}}}
        << QByteArray("0") << true << script("Hi", "Body");
    QTest::newRow("recipients and attachments in order")
        << ParamSet{{"", {"a@x", "b@x"}}, {"", {"S"}}, {"", {"B"}}, {"", {"/p/1.pdf", "/p/2.pdf"}}}
        << QByteArray("0") << true << script("S", "B", {"a@x", "b@x"}, {"/p/1.pdf", "/p/2.pdf"});
    QTest::newRow("templates ignored, values joined")
        << ParamSet{{"to %1", {"a@x"}}, {"s %1", {"Two", "words"}}, {"b %1", {"l1", "l2"}}}
        << QByteArray("0") << true << script("Two words", "l1\nl2", {"a@x"});
    QTest::newRow("%2 in the subject takes the content") << ParamSet{{"", {}}, {"", {"x%2y"}}, {"", {"C"}}}
        << QByteArray("0") << true << script("xCy", "C");
    QTest::newRow("non-zero exit status fails") << ParamSet{{"", {}}, {"", {"S"}}, {"", {"B"}}}
        << QByteArray("3") << false << script("S", "B");
    QTest::newRow("apostrophe breaks the command") << ParamSet{{"", {}}, {"", {"it's"}}, {"", {"B"}}}
        << QByteArray("0") << false << QStringList();
}

void tst_AppCall::appleScript()
{
    QFETCH(ParamSet, params);
    QFETCH(QByteArray, status);
    QFETCH(QStringList, arguments);

    const QString record = m_bin.filePath("osascript.rec");
    QFile::remove(record);
    qputenv("FAKE_STATUS", status);
    QTEST(AppCall(AppCall::eAppleScript, "", "", false, params).apply(), "result");
    QCOMPARE(fake::readRecord(record).mid(1), arguments);
}

void tst_AppCall::url_data()
{
    QTest::addColumn<ParamSet>("params");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("opened");

    MailTo mailTo;
    auto filled = [&mailTo](int app, const QString &subject, const QStringList &attachments) {
        return mailTo.call(MailTo::EApp(app), subject, "B", attachments, "r@x").params;
    };
    QTest::newRow("mailto with the first attachment") << filled(8, "S", {"/x/a.pdf", "/x/b.pdf"}) << true
        << QStringList{"mailto:r@x?subject=%22S%22&body=%22B%22&attach=%22file:////x/a.pdf%22"};
    QTest::newRow("ampersand in the subject adds a field") << filled(7, "a&cc=e@x", {}) << true
        << QStringList{"mailto:r@x?subject=%22a&cc=e@x%22&body=%22B%22&attach=%22file:///%22"};
    QTest::newRow("arguments joined with a blank") << fixed({"mailto:x", "y"}) << true
        << QStringList{"mailto:x y"};
    QTest::newRow("no parameters: empty URL fails") << ParamSet() << false << QStringList();
    QTest::newRow("raw fields: empty URL fails") << filled(0, "S", {}) << false << QStringList();
}

void tst_AppCall::url()
{
    QFETCH(ParamSet, params);
    QTEST(AppCall(AppCall::eUrl, "", "", false, params).apply(), "result");
    QTEST(m_opened, "opened");
}

void tst_AppCall::unavailableKinds()
{
    // Settings under which an eShellExec call would succeed.
    for (int type : {int(AppCall::eDragDrop), int(AppCall::eMAPI), 5, -1, 1000}) {
        const AppCall call(AppCall::ECall(type), "sh", "/bin/", false, fixed({"-c", "true"}));
        QVERIFY2(!call.apply(), qPrintable(QString::number(type)));
        QVERIFY(!call.applyShellExec() && !call.applyDrapDrop() && !call.applyMAPI());
    }
}

QTEST_MAIN(tst_AppCall)
#include "tst_appcall.moc"
