// The program catalogue, filling entries with a message, and trying the
// registered programs in order.

#include "mailto/MailTo.h"

#include <QDesktopServices>
#include <QUrl>
#include <QtTest>

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
        lines << pair.first + " #" + QString::number(pair.second.size()) + " [" + pair.second.join(", ") + ']';
    return lines;
}

ParamSet defaults(int app) { return MailTo::defaultParamSet(MailTo::EApp(app)); }

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
    void initTestCase() { QDesktopServices::setUrlHandler("mailto", this, "openUrl"); }
    void init() { m_opened.clear(); }
    void defaultParamSet_data();
    void defaultParamSet();
    void call_data();
    void call();
    void apply_data();
    void apply();

private:
    QStringList m_opened;
};

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
    QFETCH(int, pairs);
    const ParamSet set = defaults(app);
    QCOMPARE(int(set.size()), pairs);
    QVERIFY(set == defaults(sameAs));
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
    const QStringList outlook{"/c ipm.note #0 []", kOutlook + " #3 [r, S, B]", "/a \"%1\" #1 [/x/a.pdf]"};
    const QStringList urlSwitch{kMailUrl + " #3 [r, S, B]", "/attach:%1 #1 [/x/a.pdf]"};
    QTest::newRow("raw fields carry every attachment") << 0 << true << defaults(0) << two
        << QStringList{" #1 [r]", " #1 [S]", " #1 [B]", " #2 [/x/a.pdf, /x/b.pdf]"};
    QTest::newRow("outlook drops the second attachment") << 3 << true << defaults(3) << two << outlook;
    QTest::newRow("mailto without attachments") << 8 << true << defaults(8) << QStringList()
        << QStringList{kMailto + " #4 [r, S, B, ]"};
    QTest::newRow("unknown key: nothing written") << 9 << true << ParamSet{{"mailto:k", {"v"}}} << two
        << QStringList{"mailto:k #1 [v]"};
    QTest::newRow("missing entry gets the default shape") << 3 << false << ParamSet() << two << outlook;
    QTest::newRow("too few values") << 7 << true << ParamSet{{"mailto:%1", {"", ""}}} << QStringList()
        << QStringList{kMailto + " #4 [r, S, B, ]"};
    QTest::newRow("too few pairs") << 4 << true << ParamSet{{kMailUrl, {"", "", ""}}} << two << urlSwitch;
    QTest::newRow("larger set keeps its templates") << 7 << true
        << ParamSet{{"x:%1/%2/%3/%4", {"", "", "", ""}}, {"--extra", {}}} << two
        << QStringList{"x:%1/%2/%3/%4 #4 [r, S, B, /x/a.pdf]", "--extra #0 []"};
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
        mailTo[key] = AppCall(AppCall::eShellExec, "prog", "/opt/", true, initial);

    AppCall &entry = mailTo.call(key, "S", "B", attachments, "r");
    QCOMPARE(&entry, &mailTo.at(key));
    QCOMPARE(int(mailTo.size()), 1);
    QCOMPARE(describe(entry.params), expected);
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

    const QString url = "mailto:r@x?subject=%22S%22&body=%22B%22&attach=%22file:////x/a.pdf%22";
    QTest::newRow("empty map") << QStringList() << false << QStringList() << QList<int>();
    QTest::newRow("ascending regardless of insertion order") << QStringList{"1000:0", "42:0", "9:0"}
        << true << QStringList{"mailto:k9"} << QList<int>();
    QTest::newRow("negative key first") << QStringList{"9:0", "-5:0"} << true << QStringList{"mailto:k-5"}
        << QList<int>();
    QTest::newRow("failures are skipped") << QStringList{"1000:0", "3:3", "2:2"} << true
        << QStringList{"mailto:k1000"} << QList<int>{2, 3};
    QTest::newRow("stop at the first success") << QStringList{"8:0", "7:0", "2:3"} << true
        << QStringList{url} << QList<int>{2, 7};
    QTest::newRow("all fail") << QStringList{"77:99", "3:3", "2:2", "-1:-1"} << false << QStringList()
        << QList<int>{2, 3};
}

void tst_MailTo::apply()
{
    QFETCH(QStringList, entries);
    QFETCH(bool, result);
    QFETCH(QStringList, opened);
    QFETCH(QList<int>, filled);

    MailTo mailTo;
    for (const QString &spec : entries) {
        const int key = spec.section(':', 0, 0).toInt();
        const ParamSet params = (key >= 0 && key <= 8) ? defaults(key) : ParamSet{{"mailto:k" + QString::number(key), {}}};
        mailTo.emplace(MailTo::EApp(key), AppCall(AppCall::ECall(spec.section(':', 1).toInt()), "", "", false, params));
    }

    QCOMPARE(mailTo.apply("S", "B", {"/x/a.pdf", "/x/b.pdf"}, "r@x"), result);
    QCOMPARE(m_opened, opened);
    QList<int> changed;
    for (const auto &entry : mailTo) {
        if (entry.first >= 0 && entry.first <= 8 && entry.second.params != defaults(entry.first))
            changed << entry.first;
    }
    QCOMPARE(changed, filled);
}

QTEST_MAIN(tst_MailTo)
#include "tst_mailto.moc"
