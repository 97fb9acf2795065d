// Handing a message to a mail program: the catalogue, filling entries,
// trying the registered programs in order, turning a parameter set into
// arguments, and each call kind against stand-in programs and a recording
// URL handler.

#include "FakeProgram.h"
#include "mailto/MailTo.h"

#include <QDesktopServices>
#include <QTemporaryDir>
#include <QUrl>
#include <QtTest>

using oru::AppCall;
using oru::MailTo;
using oru::ParamSet;

Q_DECLARE_METATYPE(oru::ParamSet)

namespace {

ParamSet defaults(int app) { return MailTo::defaultParamSet(MailTo::EApp(app)); }

ParamSet fixed(const QStringList &arguments)
{
    ParamSet set;
    for (const QString &argument : arguments)
        set.emplace_back(argument, QStringList());
    return set;
}

// One line per pair: template, value count and values, so that a difference
// in the number of empty values shows.
QStringList describe(const ParamSet &set)
{
    QStringList lines;
    for (const auto &pair : set)
        lines << pair.first + " #" + QString::number(pair.second.size()) + " [" + pair.second.join(", ") + ']';
    return lines;
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
    if (!attachments.isEmpty())
        lines << "    tell content";
    for (const QString &a : attachments)
        lines << "      make new attachment with properties {file name:\"" + a + "\"} at after the last word of the last paragraph";
    if (!attachments.isEmpty())
        lines << "    end tell";
    lines << "    set visible to true" << "  end tell" << "end tell";
    QStringList arguments;
    for (const QString &line : lines)
        arguments << "-e" << line;
    return arguments;
}

const QString kOutlook = "/m \"%1&subject=%2&body=%3\"";
const QString kMailUrl = "/mailurl:mailto:%1?subject=%2&body=%3";
const QString kMailto = "mailto:%1?subject=\"%2\"&body=\"%3\"&attach=\"file:///%4\"";

} // namespace

class tst_MailTo : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE void openUrl(const QUrl &url) { m_opened << url.toString(); }

private slots:
    void initTestCase();
    void init() { m_opened.clear(); }
    void defaultParamSet_data();
    void defaultParamSet();
    void call_data();
    void call();
    void apply_data();
    void apply();
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

void tst_MailTo::initTestCase()
{
    // A stand-in osascript first on PATH, and a mailto handler that records.
    QVERIFY(fake::writeRecorder(m_bin.filePath("osascript"), m_bin.filePath("osascript.rec")));
    qputenv("PATH", QFile::encodeName(m_bin.path()) + ':' + qgetenv("PATH"));
    QDesktopServices::setUrlHandler("mailto", this, "openUrl");
}

void tst_MailTo::defaultParamSet_data()
{
    QTest::addColumn<int>("app");
    QTest::addColumn<int>("sameAs");
    QTest::addColumn<int>("pairs");
    const int rows[][3] = {{1, 0, 4}, {5, 4, 2}, {6, 4, 2}, {8, 7, 1}, {2, 2, 2}, {3, 3, 3},
                           {9, -1, 0}, {1000, -1, 0}, {-1, -1, 0}, {INT_MIN, -1, 0}};
    for (const auto &row : rows)
        QTest::addRow("%d", row[0]) << row[0] << row[1] << row[2];
}

void tst_MailTo::defaultParamSet()
{
    QFETCH(int, app);
    QFETCH(int, sameAs);
    const ParamSet set = defaults(app);
    QTEST(int(set.size()), "pairs");
    QVERIFY(set == defaults(sameAs));
    for (const auto &pair : set)
        QVERIFY(pair.second.join("").isEmpty());
}

void tst_MailTo::call_data()
{
    QTest::addColumn<int>("app");
    QTest::addColumn<bool>("preset");
    QTest::addColumn<ParamSet>("initial");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("raw fields carry every attachment") << 0 << true << defaults(0)
        << QStringList{" #1 [r]", " #1 [S]", " #1 [B]", " #2 [/x/a.pdf, /x/b.pdf]"};
    QTest::newRow("unknown key: nothing written") << 9 << true << ParamSet{{"mailto:k", {"v"}}}
        << QStringList{"mailto:k #1 [v]"};
    QTest::newRow("missing entry gets the default shape") << 3 << false << ParamSet()
        << QStringList{"/c ipm.note #0 []", kOutlook + " #3 [r, S, B]", "/a \"%1\" #1 [/x/a.pdf]"};
    QTest::newRow("too few values") << 7 << true << ParamSet{{"mailto:%1", {"", ""}}}
        << QStringList{kMailto + " #4 [r, S, B, /x/a.pdf]"};
    QTest::newRow("too few pairs") << 4 << true << ParamSet{{kMailUrl, {"", "", ""}}}
        << QStringList{kMailUrl + " #3 [r, S, B]", "/attach:%1 #1 [/x/a.pdf]"};
    QTest::newRow("larger set keeps its templates") << 7 << true
        << ParamSet{{"x:%1/%2/%3/%4", {"", "", "", ""}}, {"--extra", {}}}
        << QStringList{"x:%1/%2/%3/%4 #4 [r, S, B, /x/a.pdf]", "--extra #0 []"};
}

void tst_MailTo::call()
{
    QFETCH(int, app);
    QFETCH(bool, preset);
    QFETCH(ParamSet, initial);

    MailTo mailTo;
    const MailTo::EApp key = MailTo::EApp(app);
    if (preset)
        mailTo[key] = AppCall(AppCall::eShellExec, "prog", "/opt/", true, initial);
    AppCall &entry = mailTo.call(key, "S", "B", {"/x/a.pdf", "/x/b.pdf"}, "r");
    QCOMPARE(&entry, &mailTo.at(key));
    QCOMPARE(int(mailTo.size()), 1);
    QTEST(describe(entry.params), "expected");
    // The host's own settings of the entry are left alone.
    QCOMPARE(int(entry.type), int(preset ? AppCall::eShellExec : AppCall::eUrl));
    QCOMPARE(entry.searchPending, preset);
}

void tst_MailTo::apply_data()
{
    // Entries as "key:type" in insertion order. Keys 0..8 get their default
    // set; any other key a fixed URL naming the key.
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("opened");
    QTest::addColumn<QList<int>>("filled");

    QTest::newRow("empty map") << QStringList() << false << QStringList() << QList<int>();
    QTest::newRow("ascending signed order regardless of insertion order") << QStringList{"1000:0", "42:0", "9:0", "-5:0"}
        << true << QStringList{"mailto:k-5"} << QList<int>();
    QTest::newRow("failures are skipped") << QStringList{"1000:0", "3:3", "2:2"} << true << QStringList{"mailto:k1000"}
        << QList<int>{2, 3};
    QTest::newRow("stop at the first success") << QStringList{"8:0", "7:0", "2:3"} << true
        << QStringList{"mailto:r@x?subject=%22S%22&body=%22B%22&attach=%22file:////x/a.pdf%22"} << QList<int>{2, 7};
    QTest::newRow("all fail") << QStringList{"77:99", "3:3", "2:2", "-1:-1"} << false << QStringList()
        << QList<int>{2, 3};
}

void tst_MailTo::apply()
{
    QFETCH(QStringList, entries);
    QFETCH(QList<int>, filled);

    MailTo mailTo;
    for (const QString &entry : entries) {
        const int key = entry.section(':', 0, 0).toInt();
        const ParamSet params = (key >= 0 && key <= 8) ? defaults(key) : fixed({"mailto:k" + QString::number(key)});
        mailTo.emplace(MailTo::EApp(key), AppCall(AppCall::ECall(entry.section(':', 1).toInt()), "", "", false, params));
    }
    QTEST(mailTo.apply("S", "B", {"/x/a.pdf", "/x/b.pdf"}, "r@x"), "result");
    QTEST(m_opened, "opened");
    QList<int> changed;
    for (const auto &entry : mailTo) {
        if (entry.first >= 0 && entry.first <= 8 && entry.second.params != defaults(entry.first))
            changed << entry.first;
    }
    QCOMPARE(changed, filled);
}

void tst_MailTo::arguments_data()
{
    QTest::addColumn<ParamSet>("params");
    QTest::addColumn<QStringList>("filled");
    QTest::addColumn<QString>("merged");
    QTest::addColumn<QString>("quoted");

    QTest::newRow("values in placeholder order") << ParamSet{{"%2-%1", {"a", "b"}}, {"/c ipm.note", {}}}
        << QStringList{"b-a", "/c ipm.note"} << "b-a /c ipm.note" << "\"b-a\" \"/c ipm.note\"";
    QTest::newRow("value bringing a placeholder is filled later") << ParamSet{{"%1|%2|%3", {"x%3", "y", "z"}}}
        << QStringList{"xz|y|z"} << "xz|y|z" << "\"xz|y|z\"";
    QTest::newRow("no placeholder drops the value, leading empty adds no blank")
        << ParamSet{{"", {"v"}}, {"x", {"w"}}} << QStringList{"", "x"} << "x" << "\"\" \"x\"";
    QTest::newRow("trailing empty leaves a blank") << fixed({"x", ""}) << QStringList{"x", ""} << "x "
        << "\"x\" \"\"";
    QTest::newRow("nothing is escaped") << ParamSet{{"mailto:%1?subject=%2", {"a@b", "x&y=\"z'"}}}
        << QStringList{"mailto:a@b?subject=x&y=\"z'"} << "mailto:a@b?subject=x&y=\"z'"
        << "\"mailto:a@b?subject=x&y=\"z'\"";
    QTest::newRow("no pairs") << ParamSet() << QStringList() << "" << "";
}

void tst_MailTo::arguments()
{
    QFETCH(ParamSet, params);
    const AppCall call(AppCall::eUrl, "", "", false, params);
    QTEST(call.fillParams(), "filled");
    QTEST(call.mergeParams(false), "merged");
    QTEST(call.mergeParams(true), "quoted");
}

void tst_MailTo::shellExec_data()
{
    // "$D" stands for the directory that holds the stand-in "fakemail".
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("app");
    QTest::addColumn<QStringList>("expected"); // empty: nothing may start

    QTest::newRow("outlook: three arguments, second attachment dropped") << "fakemail" << "$D/" << 3
        << QStringList{"/c ipm.note", "/m \"r&subject=Hello there&body=Line 1\nLine 2\"", "/a \"/x/a b.pdf\""};
    QTest::newRow("thunderbird compose string") << "fakemail" << "$D/" << 2
        << QStringList{"-compose", "to='r',subject='Hello there',body='Line 1\nLine 2',attachment='file:////x/a b.pdf'"};
    QTest::newRow("empty program: path is the whole command") << "" << "$D/fakemail" << 8
        << QStringList{"mailto:r?subject=\"Hello there\"&body=\"Line 1\nLine 2\"&attach=\"file:////x/a b.pdf\""};
    QTest::newRow("no path and no search") << "fakemail" << "" << 3 << QStringList();
    QTest::newRow("path without its slash") << "fakemail" << "$D" << 3 << QStringList();
}

void tst_MailTo::shellExec()
{
    QFETCH(QString, program);
    QFETCH(QString, path);
    QFETCH(int, app);
    QFETCH(QStringList, expected);

    QTemporaryDir dir;
    const QString record = dir.filePath("record");
    QVERIFY(fake::writeRecorder(dir.filePath("fakemail"), record));
    MailTo mailTo;
    const MailTo::EApp key = MailTo::EApp(app);
    mailTo[key] = AppCall(AppCall::eShellExec, program, path.replace("$D", dir.path()), false, defaults(app));
    QCOMPARE(mailTo.apply("Hello there", "Line 1\nLine 2", {"/x/a b.pdf", "/x/c.pdf"}, "r"), !expected.isEmpty());
    if (expected.isEmpty())
        return;
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(record), 10000);
    const QStringList fields = fake::readRecord(record);
    QCOMPARE(fields.mid(1), expected);
    if (!program.isEmpty()) // runs in its own directory
        QCOMPARE(fields.value(0), QDir(dir.path()).canonicalPath());
}

void tst_MailTo::appleScript_data()
{
    QTest::addColumn<ParamSet>("params");
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("arguments"); // empty: osascript never ran

    QTest::newRow("no recipients, no attachments") << ParamSet{{"", {}}, {"", {"Hi"}}, {"", {"Body"}}, {"", {}}}
        << QByteArray("0") << true << script("Hi", "Body");
    QTest::newRow("templates ignored, values joined, lists in order")
        << ParamSet{{"to %1", {"a@x", "b@x"}}, {"s %1", {"Two", "words"}}, {"b %1", {"l1", "l2"}},
                    {"", {"/p/1.pdf", "/p/2.pdf"}}}
        << QByteArray("0") << true << script("Two words", "l1\nl2", {"a@x", "b@x"}, {"/p/1.pdf", "/p/2.pdf"});
    QTest::newRow("%2 in the subject takes the content") << ParamSet{{"", {}}, {"", {"x%2y"}}, {"", {"C"}}}
        << QByteArray("0") << true << script("xCy", "C");
    QTest::newRow("non-zero exit status fails") << ParamSet{{"", {}}, {"", {"S"}}, {"", {"B"}}}
        << QByteArray("3") << false << script("S", "B");
    QTest::newRow("apostrophe breaks the command") << ParamSet{{"", {}}, {"", {"it's"}}, {"", {"B"}}}
        << QByteArray("0") << false << QStringList();
}

void tst_MailTo::appleScript()
{
    QFETCH(ParamSet, params);
    QFETCH(QByteArray, status);

    const QString record = m_bin.filePath("osascript.rec");
    QFile::remove(record);
    qputenv("FAKE_STATUS", status);
    QTEST(AppCall(AppCall::eAppleScript, "", "", false, params).apply(), "result");
    QTEST(QStringList(fake::readRecord(record).mid(1)), "arguments");
}

void tst_MailTo::url_data()
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
    QTest::newRow("ampersand adds a field, no attachment leaves the prefix") << filled(7, "a&cc=e@x", {}) << true
        << QStringList{"mailto:r@x?subject=%22a&cc=e@x%22&body=%22B%22&attach=%22file:///%22"};
    QTest::newRow("arguments joined with a blank") << fixed({"mailto:x", "y"}) << true << QStringList{"mailto:x y"};
    QTest::newRow("raw fields: empty URL fails") << filled(0, "S", {}) << false << QStringList();
}

void tst_MailTo::url()
{
    QFETCH(ParamSet, params);
    QTEST(AppCall(AppCall::eUrl, "", "", false, params).apply(), "result");
    QTEST(m_opened, "opened");
}

void tst_MailTo::unavailableKinds()
{
    // Settings under which an eShellExec call would succeed.
    for (int type : {int(AppCall::eDragDrop), int(AppCall::eMAPI), 5, -1}) {
        const AppCall call(AppCall::ECall(type), "sh", "/bin/", false, fixed({"-c", "true"}));
        QVERIFY2(!call.apply(), qPrintable(QString::number(type)));
        QVERIFY(!call.applyShellExec() && !call.applyDrapDrop() && !call.applyMAPI());
    }
}

QTEST_MAIN(tst_MailTo)
#include "tst_mailto.moc"
