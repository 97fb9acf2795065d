// The program catalogue, filling entries with a message, and trying the
// registered programs in order.

#include "mailto/MailTo.h"

#include <QDesktopServices>
#include <QUrl>
#include <QtTest>

#include <climits>

using oru::AppCall;
using oru::MailTo;
using oru::ParamSet;

Q_DECLARE_METATYPE(oru::ParamSet)

namespace {

// One line per pair: template, value count and values, so that a difference
// in the number of empty values shows.
QStringList describe(const ParamSet &set)
{
    QStringList lines;
    for (const auto &pair : set)
        lines << pair.first + QLatin1String(" #") + QString::number(pair.second.size())
                     + QLatin1String(" [") + pair.second.join(QLatin1String(", ")) + QLatin1Char(']');
    return lines;
}

const QString kThunderbird = QStringLiteral("to='%1',subject='%2',body='%3',attachment='file:///%4'");
const QString kOutlookMessage = QStringLiteral("/m \"%1&subject=%2&body=%3\"");
const QString kMailUrl = QStringLiteral("/mailurl:mailto:%1?subject=%2&body=%3");
const QString kMailto = QStringLiteral("mailto:%1?subject=\"%2\"&body=\"%3\"&attach=\"file:///%4\"");

} // namespace

class tst_MailTo : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE void openUrl(const QUrl &url) { m_opened << url.toString(); }

private slots:
    void initTestCase() { QDesktopServices::setUrlHandler(QStringLiteral("mailto"), this, "openUrl"); }
    void cleanupTestCase() { QDesktopServices::unsetUrlHandler(QStringLiteral("mailto")); }
    void init() { m_opened.clear(); }

    void defaultParamSet_data();
    void defaultParamSet();
    void call_data();
    void call();
    void apply_data();
    void apply();
    void entryCreatedByCallOpensItsUrl();
    void defaultEntryOfUnknownKeyFails();

private:
    QStringList m_opened;
};

void tst_MailTo::defaultParamSet_data()
{
    QTest::addColumn<int>("app");
    QTest::addColumn<QStringList>("expected");

    const QStringList raw{" #1 []", " #1 []", " #1 []", " #1 []"};
    QTest::newRow("0 raw fields") << 0 << raw;
    QTest::newRow("1 raw fields alt") << 1 << raw;
    QTest::newRow("2 thunderbird") << 2
        << QStringList{"-compose #0 []", kThunderbird + " #4 [, , , ]"};
    QTest::newRow("3 outlook") << 3
        << QStringList{"/c ipm.note #0 []", kOutlookMessage + " #3 [, , ]", "/a \"%1\" #1 []"};
    const QStringList urlSwitch{kMailUrl + " #3 [, , ]", "/attach:%1 #1 []"};
    QTest::newRow("4 mail url switch") << 4 << urlSwitch;
    QTest::newRow("5 mail url switch alt 1") << 5 << urlSwitch;
    QTest::newRow("6 mail url switch alt 2") << 6 << urlSwitch;
    QTest::newRow("7 mailto url") << 7 << QStringList{kMailto + " #4 [, , , ]"};
    QTest::newRow("8 mailto url alt") << 8 << QStringList{kMailto + " #4 [, , , ]"};
    QTest::newRow("9 is unknown") << 9 << QStringList();
    QTest::newRow("1000 is unknown") << 1000 << QStringList();
    QTest::newRow("-1 is unknown") << -1 << QStringList();
    QTest::newRow("INT_MIN is unknown") << INT_MIN << QStringList();
}

void tst_MailTo::defaultParamSet()
{
    QFETCH(int, app);
    QFETCH(QStringList, expected);
    const ParamSet set = MailTo::defaultParamSet(MailTo::EApp(app));
    QCOMPARE(describe(set), expected);
    // Every value is an empty string rather than a null one left unset.
    for (const auto &pair : set)
        for (const QString &value : pair.second)
            QVERIFY(value.isEmpty());
}

void tst_MailTo::call_data()
{
    QTest::addColumn<int>("app");
    QTest::addColumn<bool>("preset");
    QTest::addColumn<ParamSet>("initial");
    QTest::addColumn<QStringList>("attachments");
    QTest::addColumn<QStringList>("expected");

    const QStringList two{"/x/a.pdf", "/x/b.pdf"};
    auto def = [](int app) { return MailTo::defaultParamSet(MailTo::EApp(app)); };

    QTest::newRow("raw fields carry every attachment") << 0 << true << def(0) << two
        << QStringList{" #1 [r@x]", " #1 [S]", " #1 [B]", " #2 [/x/a.pdf, /x/b.pdf]"};
    QTest::newRow("raw fields alt without attachments") << 1 << true << def(1) << QStringList()
        << QStringList{" #1 [r@x]", " #1 [S]", " #1 [B]", " #0 []"};
    QTest::newRow("thunderbird keeps the first attachment") << 2 << true << def(2) << two
        << QStringList{"-compose #0 []", kThunderbird + " #4 [r@x, S, B, /x/a.pdf]"};
    QTest::newRow("outlook drops the second attachment") << 3 << true << def(3) << two
        << QStringList{"/c ipm.note #0 []", kOutlookMessage + " #3 [r@x, S, B]", "/a \"%1\" #1 [/x/a.pdf]"};
    QTest::newRow("mail url switch alt 2") << 6 << true << def(6) << two
        << QStringList{kMailUrl + " #3 [r@x, S, B]", "/attach:%1 #1 [/x/a.pdf]"};
    QTest::newRow("mailto url without attachments") << 8 << true << def(8) << QStringList()
        << QStringList{kMailto + " #4 [r@x, S, B, ]"};
    QTest::newRow("unknown key: nothing written") << 9 << true << ParamSet{{"mailto:fixed", {"v"}}} << two
        << QStringList{"mailto:fixed #1 [v]"};
    QTest::newRow("missing entry gets the default shape") << 3 << false << ParamSet() << two
        << QStringList{"/c ipm.note #0 []", kOutlookMessage + " #3 [r@x, S, B]", "/a \"%1\" #1 [/x/a.pdf]"};
    QTest::newRow("missing raw entry gets four pairs") << 1 << false << ParamSet() << QStringList()
        << QStringList{" #1 [r@x]", " #1 [S]", " #1 [B]", " #0 []"};
    QTest::newRow("too few values: default shape first") << 7 << true << ParamSet{{"mailto:%1", {"", ""}}}
        << QStringList() << QStringList{kMailto + " #4 [r@x, S, B, ]"};
    QTest::newRow("too few pairs: default shape first") << 4 << true << ParamSet{{kMailUrl, {"", "", ""}}}
        << two << QStringList{kMailUrl + " #3 [r@x, S, B]", "/attach:%1 #1 [/x/a.pdf]"};
    ParamSet extra = def(7);
    extra.front().first = QStringLiteral("custom:%1/%2/%3/%4");
    extra.emplace_back(QStringLiteral("--extra"), QStringList());
    QTest::newRow("larger set keeps its own templates") << 7 << true << extra << two
        << QStringList{"custom:%1/%2/%3/%4 #4 [r@x, S, B, /x/a.pdf]", "--extra #0 []"};
}

void tst_MailTo::call()
{
    QFETCH(int, app);
    QFETCH(bool, preset);
    QFETCH(ParamSet, initial);
    QFETCH(QStringList, attachments);
    QFETCH(QStringList, expected);

    MailTo mailTo;
    const MailTo::EApp key = MailTo::EApp(app);
    if (preset)
        mailTo[key] = AppCall(AppCall::eShellExec, QStringLiteral("prog"), QStringLiteral("/opt/"), true, initial);

    AppCall &entry = mailTo.call(key, QStringLiteral("S"), QStringLiteral("B"), attachments, QStringLiteral("r@x"));
    QCOMPARE(&entry, &mailTo.at(key));
    QCOMPARE(int(mailTo.size()), 1);
    QCOMPARE(describe(entry.params), expected);
    // The call record's own settings are the host's and stay as they were.
    QCOMPARE(int(entry.type), int(preset ? AppCall::eShellExec : AppCall::eUrl));
    QCOMPARE(entry.program, preset ? QStringLiteral("prog") : QString());
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

    const QString url = QStringLiteral("mailto:r@x?subject=%22S%22&body=%22B%22&attach=%22file:////x/a.pdf%22");
    QTest::newRow("empty map") << QStringList() << false << QStringList() << QList<int>();
    QTest::newRow("ascending regardless of insertion order") << QStringList{"1000:0", "42:0", "9:0"}
        << true << QStringList{"mailto:k9"} << QList<int>();
    QTest::newRow("negative key first") << QStringList{"9:0", "-5:0"}
        << true << QStringList{"mailto:k-5"} << QList<int>();
    QTest::newRow("failures are skipped") << QStringList{"1000:0", "3:3", "2:2"}
        << true << QStringList{"mailto:k1000"} << QList<int>{2, 3};
    QTest::newRow("stop at the first success") << QStringList{"8:0", "7:0", "2:3"}
        << true << QStringList{url} << QList<int>{2, 7};
    QTest::newRow("all fail") << QStringList{"77:99", "3:3", "2:2", "-1:-1"}
        << false << QStringList() << QList<int>{2, 3};
}

void tst_MailTo::apply()
{
    QFETCH(QStringList, entries);
    QFETCH(bool, result);
    QFETCH(QStringList, opened);
    QFETCH(QList<int>, filled);

    MailTo mailTo;
    for (const QString &spec : entries) {
        const int key = spec.section(QLatin1Char(':'), 0, 0).toInt();
        const int type = spec.section(QLatin1Char(':'), 1, 1).toInt();
        const ParamSet params = (key >= 0 && key <= 8)
            ? MailTo::defaultParamSet(MailTo::EApp(key))
            : ParamSet{{QStringLiteral("mailto:k%1").arg(key), {}}};
        mailTo.emplace(MailTo::EApp(key), AppCall(AppCall::ECall(type), QString(), QString(), false, params));
    }

    QCOMPARE(mailTo.apply(QStringLiteral("S"), QStringLiteral("B"), {"/x/a.pdf", "/x/b.pdf"}, QStringLiteral("r@x")),
             result);
    QCOMPARE(m_opened, opened);

    QList<int> changed;
    for (const auto &entry : mailTo) {
        if (entry.first >= 0 && entry.first <= 8 && entry.second.params != MailTo::defaultParamSet(entry.first))
            changed << entry.first;
    }
    QCOMPARE(changed, filled);
}

void tst_MailTo::entryCreatedByCallOpensItsUrl()
{
    MailTo mailTo;
    QVERIFY(mailTo.call(MailTo::eMailtoUrl, QStringLiteral("Hi"), QStringLiteral("Yo"), {}, QStringLiteral("a@b.c")).apply());
    QCOMPARE(m_opened, QStringList{"mailto:a@b.c?subject=%22Hi%22&body=%22Yo%22&attach=%22file:///%22"});
}

void tst_MailTo::defaultEntryOfUnknownKeyFails()
{
    MailTo mailTo;
    const AppCall &entry = mailTo.call(MailTo::EApp(9), QStringLiteral("S"), QStringLiteral("B"), {}, QStringLiteral("r@x"));
    QVERIFY(entry.params.empty());
    QVERIFY(!entry.apply());
    QVERIFY(m_opened.isEmpty());
}

QTEST_MAIN(tst_MailTo)
#include "tst_mailto.moc"
