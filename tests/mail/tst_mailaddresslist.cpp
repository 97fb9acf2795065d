#include <QtTest>

#include "mail/MailAddressList.h"

using oru::MailAddress;
using oru::MailAddressList;

class TestMailAddressList : public QObject
{
    Q_OBJECT

private slots:
    void assignText_data();
    void assignText();
    void appendingAndReplacing();
    void writing_data();
    void writing();
    void copiesAreIndependent();
};

void TestMailAddressList::assignText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("addresses");
    QTest::addColumn<QStringList>("names");

    QTest::newRow("comma and semicolon, duplicates kept")
        << "a@example.org, b@example.org;a@example.org"
        << QStringList{"a@example.org", "b@example.org", "a@example.org"} << QStringList{"", "", ""};
    QTest::newRow("trailing comma gives an empty entry")
        << "a@example.org," << QStringList{"a@example.org", ""} << QStringList{"", ""};
    QTest::newRow("empty text gives one empty entry") << QString() << QStringList{""} << QStringList{""};
    QTest::newRow("blank piece gives an empty entry")
        << "a@example.org; ;b@example.org" << QStringList{"a@example.org", "", "b@example.org"}
        << QStringList{"", "", ""};
    QTest::newRow("comma inside a quoted name splits")
        << "\"Doe, Jane\" <jane@example.org>" << QStringList{"\"Doe", "jane@example.org"} << QStringList{"", "Jane"};
    QTest::newRow("names parsed per entry")
        << "Jane <jane@example.org>; Bob bob@example.org"
        << QStringList{"jane@example.org", "bob@example.org"} << QStringList{"Jane", "Bob"};
}

void TestMailAddressList::assignText()
{
    QFETCH(QString, text);
    QFETCH(QStringList, addresses);
    QFETCH(QStringList, names);

    MailAddressList list;
    list = QStringLiteral("old@example.org");
    list = text;
    QCOMPARE(list.toStringList(false), addresses);
    for (int i = 0; i < list.size(); ++i)
        QCOMPARE(list.at(i).name, names.at(i));

    QCOMPARE(MailAddressList(text).toStringList(true), list.toStringList(true));
}

void TestMailAddressList::appendingAndReplacing()
{
    MailAddressList list(QStringLiteral("a@example.org|b@example.org,c@example.org"), QRegExp(QStringLiteral("\\|")));
    QCOMPARE(list.toStringList(false), (QStringList{"a@example.org", "b@example.org,c@example.org"}));
    list.split(QStringLiteral("d@example.org;e@example.org"));
    QCOMPARE(list.size(), 4);

    list << QStringLiteral("f@example.org, g@example.org");
    QCOMPARE(list.size(), 6);
    QCOMPARE(list.at(5).address, QStringLiteral("g@example.org"));

    // Each string of a string list is one address; separators in it are not looked at.
    list << QStringList{"Jane <jane@example.org>", "bob@example.org, not split"};
    QCOMPARE(list.at(6).name, QStringLiteral("Jane"));
    QCOMPARE(list.at(7).address, QStringLiteral("split"));

    const QList<MailAddress> plain{MailAddress(QStringLiteral("A"), QStringLiteral("a@example.org"))};
    list << plain;
    QCOMPARE(list.size(), 9);
    QCOMPARE(list.last().name, QStringLiteral("A"));

    list = QStringList{"z@example.org"};
    QCOMPARE(QStringList(list), QStringList{"z@example.org"});
    list = plain;
    QCOMPARE(list.toStringList(true), QStringList{"\"A\" <a@example.org>"});
}

void TestMailAddressList::writing_data()
{
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<QStringList>("withNames");
    QTest::addColumn<QStringList>("bare");
    QTest::addColumn<QString>("joinedQuotedPrintable");

    QTest::newRow("mixed")
        << QStringList{"J\u00F6rg <j@example.org>", "x@example.org"}
        << QStringList{"\"J\u00F6rg\" <j@example.org>", "x@example.org"}
        << QStringList{"j@example.org", "x@example.org"}
        << "\"=?utf-8?Q?J=C3=B6rg?=\" <j@example.org>,x@example.org";
    QTest::newRow("plain names stay readable")
        << QStringList{"Jane Doe <jane@example.org>"} << QStringList{"\"Jane Doe\" <jane@example.org>"}
        << QStringList{"jane@example.org"} << "\"Jane Doe\" <jane@example.org>";
    QTest::newRow("empty entry keeps its place")
        << QStringList{"a@example.org", ""} << QStringList{"a@example.org", ""}
        << QStringList{"a@example.org", ""} << "a@example.org,";
    QTest::newRow("no entries") << QStringList() << QStringList() << QStringList() << QString();
}

void TestMailAddressList::writing()
{
    QFETCH(QStringList, entries);
    QFETCH(QStringList, withNames);
    QFETCH(QStringList, bare);
    QFETCH(QString, joinedQuotedPrintable);

    const MailAddressList list(entries);
    QCOMPARE(list.toStringList(true), withNames);
    QCOMPARE(list.toStringList(false), bare);
    QCOMPARE(list.join(QStringLiteral("; "), true), withNames.join(QStringLiteral("; ")));
    QCOMPARE(list.join(QStringLiteral(","), false), bare.join(QStringLiteral(",")));
    QCOMPARE(list.joinQuotedPrintable(QStringLiteral(",")), joinedQuotedPrintable);
    QCOMPARE(list.toQuotedPrintable().join(QStringLiteral(",")), joinedQuotedPrintable);
    QCOMPARE(QString(list), withNames.join(QStringLiteral(", ")));
}

void TestMailAddressList::copiesAreIndependent()
{
    MailAddressList original(QStringLiteral("a@example.org, b@example.org"));
    MailAddressList copy = original;
    copy[0].address = QStringLiteral("changed@example.org");
    copy << QStringLiteral("c@example.org");
    QCOMPARE(original.toStringList(false), (QStringList{"a@example.org", "b@example.org"}));
    original.clear();
    QCOMPARE(copy.size(), 3);
}

QTEST_APPLESS_MAIN(TestMailAddressList)
#include "tst_mailaddresslist.moc"
