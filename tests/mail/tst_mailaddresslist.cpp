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
    void splitWithOtherSeparator();
    void textAppendsAndReplaces();
    void stringLists();
    void addressLists();
    void writing_data();
    void writing();
    void joinKeepsEmptyPlaces();
    void copiesAreIndependent();
};

void TestMailAddressList::assignText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("addresses");
    QTest::addColumn<QStringList>("names");

    QTest::newRow("comma and semicolon")
        << QStringLiteral("a@example.org, b@example.org;c@example.org")
        << QStringList{"a@example.org", "b@example.org", "c@example.org"}
        << QStringList{"", "", ""};
    QTest::newRow("trailing comma gives an empty entry")
        << QStringLiteral("a@example.org,") << QStringList{"a@example.org", ""} << QStringList{"", ""};
    QTest::newRow("empty text gives one empty entry") << QString() << QStringList{""} << QStringList{""};
    QTest::newRow("blank piece gives an empty entry")
        << QStringLiteral("a@example.org; ;b@example.org")
        << QStringList{"a@example.org", "", "b@example.org"} << QStringList{"", "", ""};
    QTest::newRow("comma inside a quoted name splits")
        << QStringLiteral("\"Doe, Jane\" <jane@example.org>")
        << QStringList{"\"Doe", "jane@example.org"} << QStringList{"", "Jane"};
    QTest::newRow("names parsed per entry")
        << QStringLiteral("Jane <jane@example.org>; Bob bob@example.org")
        << QStringList{"jane@example.org", "bob@example.org"} << QStringList{"Jane", "Bob"};
    QTest::newRow("duplicates kept")
        << QStringLiteral("a@example.org,a@example.org")
        << QStringList{"a@example.org", "a@example.org"} << QStringList{"", ""};
}

void TestMailAddressList::assignText()
{
    QFETCH(QString, text);
    QFETCH(QStringList, addresses);
    QFETCH(QStringList, names);

    MailAddressList list;
    list = text;
    QCOMPARE(list.size(), addresses.size());
    for (int i = 0; i < list.size(); ++i) {
        QCOMPARE(list.at(i).address, addresses.at(i));
        QCOMPARE(list.at(i).name, names.at(i));
    }

    const MailAddressList constructed(text);
    QCOMPARE(constructed.toStringList(true), list.toStringList(true));
}

void TestMailAddressList::splitWithOtherSeparator()
{
    MailAddressList list(QStringLiteral("a@example.org|b@example.org,c@example.org"), QRegExp(QStringLiteral("\\|")));
    QCOMPARE(list.toStringList(false),
             (QStringList{"a@example.org", "b@example.org,c@example.org"}));

    list.split(QStringLiteral("d@example.org;e@example.org"));
    QCOMPARE(list.size(), 4);
    QCOMPARE(list.at(2).address, QStringLiteral("d@example.org"));
}

void TestMailAddressList::textAppendsAndReplaces()
{
    MailAddressList list;
    list = QStringLiteral("a@example.org");
    list << QStringLiteral("b@example.org, c@example.org");
    QCOMPARE(list.toStringList(false), (QStringList{"a@example.org", "b@example.org", "c@example.org"}));

    list << "d@example.org";
    QCOMPARE(list.size(), 4);

    list = QStringLiteral("x@example.org");
    QCOMPARE(list.toStringList(false), QStringList{"x@example.org"});
}

void TestMailAddressList::stringLists()
{
    const QStringList texts{"Jane <jane@example.org>", "bob@example.org, not split"};
    MailAddressList list(texts);
    QCOMPARE(list.size(), 2);
    QCOMPARE(list.at(0).name, QStringLiteral("Jane"));
    // Each string is one address; separators inside it are not looked at.
    QCOMPARE(list.at(1).address, QStringLiteral("split"));

    list << QStringList{"c@example.org"};
    QCOMPARE(list.size(), 3);

    list = QStringList{"z@example.org"};
    QCOMPARE(list.toStringList(false), QStringList{"z@example.org"});

    const QStringList converted = list;
    QCOMPARE(converted, QStringList{"z@example.org"});
}

void TestMailAddressList::addressLists()
{
    const QList<MailAddress> plain{MailAddress(QStringLiteral("A"), QStringLiteral("a@example.org")),
                                   MailAddress(QStringLiteral("b@example.org"))};
    MailAddressList list(plain);
    QCOMPARE(list.size(), 2);

    list << plain;
    QCOMPARE(list.size(), 4);
    QCOMPARE(list.at(2).name, QStringLiteral("A"));

    list << MailAddress(QStringLiteral("c@example.org"));
    QCOMPARE(list.last().address, QStringLiteral("c@example.org"));

    list = plain;
    QCOMPARE(list.size(), 2);

    list += MailAddress(QStringLiteral("d@example.org"));
    list.append(MailAddress());
    QCOMPARE(list.size(), 4);
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
        << QStringLiteral("\"=?utf-8?Q?J=C3=B6rg?=\" <j@example.org>,x@example.org");
    QTest::newRow("plain names stay readable")
        << QStringList{"Jane Doe <jane@example.org>"}
        << QStringList{"\"Jane Doe\" <jane@example.org>"}
        << QStringList{"jane@example.org"}
        << QStringLiteral("\"Jane Doe\" <jane@example.org>");
    QTest::newRow("empty entry") << QStringList{""} << QStringList{""} << QStringList{""} << QString();
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
    QCOMPARE(QString(list), withNames.join(QStringLiteral(", ")));
}

void TestMailAddressList::joinKeepsEmptyPlaces()
{
    MailAddressList list;
    list = QStringLiteral("a@example.org,");
    QCOMPARE(list.join(QStringLiteral(","), true), QStringLiteral("a@example.org,"));
    QCOMPARE(list.toQuotedPrintable(), (QStringList{"a@example.org", ""}));

    list = QStringLiteral("a@example.org, b@example.org;c@example.org");
    QCOMPARE(QString(list), QStringLiteral("a@example.org, b@example.org, c@example.org"));
}

void TestMailAddressList::copiesAreIndependent()
{
    MailAddressList original;
    original = QStringLiteral("a@example.org, b@example.org");
    MailAddressList copy = original;
    copy[0].address = QStringLiteral("changed@example.org");
    copy << QStringLiteral("c@example.org");
    QCOMPARE(original.toStringList(false), (QStringList{"a@example.org", "b@example.org"}));

    original.clear();
    QCOMPARE(copy.size(), 3);
}

QTEST_APPLESS_MAIN(TestMailAddressList)
#include "tst_mailaddresslist.moc"
