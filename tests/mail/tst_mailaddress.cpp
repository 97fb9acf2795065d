#include <QtTest>

#include "mail/MailAddress.h"

using oru::MailAddress;

class TestMailAddress : public QObject
{
    Q_OBJECT

private slots:
    void parse_data();
    void parse();
    void parseReplacesEarlierFields();
    void constructors();
    void toString_data();
    void toString();
    void toQuotedPrintable_data();
    void toQuotedPrintable();
    void equality();
    void emptiness();
    void isValid_data();
    void isValid();
    void copiesAreIndependent();
};

void TestMailAddress::parse_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("address");

    QTest::newRow("name and angle address")
        << QStringLiteral("Jane Doe <jane@example.org>") << QStringLiteral("Jane Doe")
        << QStringLiteral("jane@example.org");
    QTest::newRow("quoted name with comma")
        << QStringLiteral("\"Doe, Jane\" <jane@example.org>") << QStringLiteral("Doe, Jane")
        << QStringLiteral("jane@example.org");
    QTest::newRow("bare address") << QStringLiteral("jane@example.org") << QString()
                                  << QStringLiteral("jane@example.org");
    QTest::newRow("bare address with blanks around")
        << QStringLiteral(" jane@example.org ") << QString() << QStringLiteral("jane@example.org");
    QTest::newRow("split at last space")
        << QStringLiteral("Jane jane@example.org") << QStringLiteral("Jane")
        << QStringLiteral("jane@example.org");
    QTest::newRow("several words before the address")
        << QStringLiteral("Mary Ann Smith mary@example.org") << QStringLiteral("Mary Ann Smith")
        << QStringLiteral("mary@example.org");
    QTest::newRow("missing closing bracket")
        << QStringLiteral("Jane <jane@example.org") << QStringLiteral("Jane")
        << QStringLiteral("jane@example.org");
    QTest::newRow("angle address only") << QStringLiteral("<jane@example.org>") << QString()
                                        << QStringLiteral("jane@example.org");
    QTest::newRow("blanks inside brackets")
        << QStringLiteral("Jane < jane@example.org >") << QStringLiteral("Jane")
        << QStringLiteral("jane@example.org");
    QTest::newRow("closing bracket before the last opening one")
        << QStringLiteral("a>b<c d") << QStringLiteral("a>b") << QStringLiteral("c d");
    QTest::newRow("lone closing bracket counts as nothing")
        << QStringLiteral("Jane> jane@example.org") << QStringLiteral("Jane>")
        << QStringLiteral("jane@example.org");
    QTest::newRow("text after the brackets dropped")
        << QStringLiteral("Jane <jane@example.org> (work)") << QStringLiteral("Jane")
        << QStringLiteral("jane@example.org");
    QTest::newRow("empty brackets") << QStringLiteral("<>") << QString() << QString();
    QTest::newRow("empty text") << QString() << QString() << QString();
    QTest::newRow("leading quote only")
        << QStringLiteral("\"Jane <j@example.org>") << QStringLiteral("Jane")
        << QStringLiteral("j@example.org");
    QTest::newRow("blanks inside quotes trimmed")
        << QStringLiteral("\" Jane \" <j@example.org>") << QStringLiteral("Jane")
        << QStringLiteral("j@example.org");
    QTest::newRow("comment stays in the name")
        << QStringLiteral("(boss) j@example.org") << QStringLiteral("(boss)")
        << QStringLiteral("j@example.org");
    QTest::newRow("base64 encoded name")
        << QStringLiteral("=?utf-8?B?SsO2cmc=?= <j@example.org>") << QStringLiteral("J\u00F6rg")
        << QStringLiteral("j@example.org");
    QTest::newRow("quoted base64 encoded name")
        << QStringLiteral("\"=?utf-8?B?SsO2cmc=?=\" <j@example.org>") << QStringLiteral("J\u00F6rg")
        << QStringLiteral("j@example.org");
    QTest::newRow("non-ascii name kept")
        << QStringLiteral("J\u00F6rg <j@example.org>") << QStringLiteral("J\u00F6rg")
        << QStringLiteral("j@example.org");
}

void TestMailAddress::parse()
{
    QFETCH(QString, text);
    QFETCH(QString, name);
    QFETCH(QString, address);

    const MailAddress parsed(text);
    QCOMPARE(parsed.name, name);
    QCOMPARE(parsed.address, address);
}

void TestMailAddress::parseReplacesEarlierFields()
{
    MailAddress a(QStringLiteral("Jane <jane@example.org>"));
    a.parse(QStringLiteral("bob@example.org"));
    QCOMPARE(a.address, QStringLiteral("bob@example.org"));
    QVERIFY(a.name.isEmpty());
}

void TestMailAddress::constructors()
{
    const MailAddress empty;
    QVERIFY(empty.address.isEmpty());
    QVERIFY(empty.name.isEmpty());

    const MailAddress fromLatin("Jane Doe <jane@example.org>");
    QCOMPARE(fromLatin.name, QStringLiteral("Jane Doe"));
    QCOMPARE(fromLatin.address, QStringLiteral("jane@example.org"));

    const MailAddress fromWide(L"J\u00F6rg <j@example.org>");
    QCOMPARE(fromWide.name, QStringLiteral("J\u00F6rg"));
    QCOMPARE(fromWide.address, QStringLiteral("j@example.org"));

    const MailAddress fromNullWide(static_cast<const wchar_t *>(nullptr));
    QVERIFY(fromNullWide.isEmpty());

    // Name first, then address; trimmed, never parsed.
    const MailAddress pair(QStringLiteral(" \"Jane\" "), QStringLiteral(" B <c@example.org> "));
    QCOMPARE(pair.name, QStringLiteral("\"Jane\""));
    QCOMPARE(pair.address, QStringLiteral("B <c@example.org>"));

    const MailAddress implicitFromString = QStringLiteral("x@example.org");
    QCOMPARE(implicitFromString.address, QStringLiteral("x@example.org"));
}

void TestMailAddress::toString_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("address");
    QTest::addColumn<bool>("withName");
    QTest::addColumn<QString>("expected");

    QTest::newRow("without name flag") << QStringLiteral("Jane Doe") << QStringLiteral("jane@example.org")
                                       << false << QStringLiteral("jane@example.org");
    QTest::newRow("no name") << QString() << QStringLiteral("jane@example.org") << true
                             << QStringLiteral("jane@example.org");
    QTest::newRow("with name") << QStringLiteral("Jane Doe") << QStringLiteral("jane@example.org")
                               << true << QStringLiteral("\"Jane Doe\" <jane@example.org>");
    QTest::newRow("quotes in the name not escaped")
        << QStringLiteral("a\"b") << QStringLiteral("x@example.org") << true
        << QStringLiteral("\"a\"b\" <x@example.org>");
    QTest::newRow("placeholders in the name stay")
        << QStringLiteral("100%1 %2") << QStringLiteral("x@example.org") << true
        << QStringLiteral("\"100%1 %2\" <x@example.org>");
    QTest::newRow("name without address") << QStringLiteral("Jane") << QString() << true
                                          << QStringLiteral("\"Jane\" <>");
}

void TestMailAddress::toString()
{
    QFETCH(QString, name);
    QFETCH(QString, address);
    QFETCH(bool, withName);
    QFETCH(QString, expected);

    const MailAddress a(name, address);
    QCOMPARE(a.toString(withName), expected);
    if (withName)
        QCOMPARE(QString(a), expected);
}

void TestMailAddress::toQuotedPrintable_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");

    QTest::newRow("no name") << QString() << QStringLiteral("jane@example.org");
    QTest::newRow("plain name") << QStringLiteral("Jane") << QStringLiteral("\"Jane\" <jane@example.org>");
    QTest::newRow("name with dot")
        << QStringLiteral("J. Doe") << QStringLiteral("\"=?utf-8?Q?J=2E Doe?=\" <jane@example.org>");
    QTest::newRow("non-ascii name")
        << QStringLiteral("J\u00F6rg") << QStringLiteral("\"=?utf-8?Q?J=C3=B6rg?=\" <jane@example.org>");
}

void TestMailAddress::toQuotedPrintable()
{
    QFETCH(QString, name);
    QFETCH(QString, expected);
    QCOMPARE(MailAddress(name, QStringLiteral("jane@example.org")).toQuotedPrintable(), expected);
}

void TestMailAddress::equality()
{
    const MailAddress a(QStringLiteral("Jane"), QStringLiteral("jane@example.org"));
    const MailAddress b(QStringLiteral("Janet"), QStringLiteral("jane@example.org"));
    const MailAddress c(QStringLiteral("Jane"), QStringLiteral("Jane@example.org"));
    QVERIFY(a == b);
    QVERIFY(!(a != b));
    QVERIFY(a != c);
    QVERIFY(a == QStringLiteral("jane@example.org"));
    QVERIFY(a != QStringLiteral("Jane <jane@example.org>"));
}

void TestMailAddress::emptiness()
{
    MailAddress a(QStringLiteral("Jane"), QString());
    QVERIFY(a.isEmpty());
    a.address = QStringLiteral("j@example.org");
    QVERIFY(!a.isEmpty());
    a.clear();
    QVERIFY(a.isEmpty());
    QVERIFY(a.name.isEmpty());
}

void TestMailAddress::isValid_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<bool>("asciiOnly");
    QTest::addColumn<bool>("valid");

    QTest::newRow("plus and dot") << QStringLiteral("a.b+c@example.org") << true << true;
    QTest::newRow("domain without dot") << QStringLiteral("x@localhost") << true << true;
    QTest::newRow("ipv4 literal") << QStringLiteral("x@[10.0.0.1]") << true << true;
    QTest::newRow("bad ipv4 literal") << QStringLiteral("x@[10.0.0.256]") << true << false;
    QTest::newRow("ipv6 literal not recognised") << QStringLiteral("x@[::1]") << true << false;
    QTest::newRow("empty literal") << QStringLiteral("x@[]") << true << false;
    QTest::newRow("no at sign") << QStringLiteral("example.org") << true << false;
    QTest::newRow("empty") << QString() << true << false;
    QTest::newRow("empty domain") << QStringLiteral("x@") << true << false;
    QTest::newRow("empty local part") << QStringLiteral("@example.org") << true << false;
    QTest::newRow("leading dot local") << QStringLiteral(".x@example.org") << true << false;
    QTest::newRow("trailing dot local") << QStringLiteral("x.@example.org") << true << false;
    QTest::newRow("leading dot domain") << QStringLiteral("x@.example.org") << true << false;
    QTest::newRow("trailing dot domain") << QStringLiteral("x@example.org.") << true << false;
    QTest::newRow("space in local part") << QStringLiteral("a b@example.org") << true << false;
    QTest::newRow("consecutive dots pass") << QStringLiteral("a..b@example..org") << true << true;
    QTest::newRow("all symbols") << QStringLiteral("!#$%&'*+-/=?^_`{|}~.x@example.org") << true << true;
    QTest::newRow("second at sign in domain") << QStringLiteral("a@b@example.org") << true << false;
    QTest::newRow("quoted local part") << QStringLiteral("\"ab\"@example.org") << true << true;
    QTest::newRow("quoted space") << QStringLiteral("\"a b\"@example.org") << true << false;
    QTest::newRow("empty quotes") << QStringLiteral("\"\"@example.org") << true << false;
    QTest::newRow("lone quote") << QStringLiteral("\"@example.org") << true << false;
    QTest::newRow("leading quote only") << QStringLiteral("\"ab@example.org") << true << false;
    QTest::newRow("quoted dot first") << QStringLiteral("\".ab\"@example.org") << true << false;
    QTest::newRow("underscore in domain") << QStringLiteral("x@ex_ample.org") << true << false;
    QTest::newRow("hyphen anywhere in domain") << QStringLiteral("x@-example-.org") << true << true;
    QTest::newRow("international, not ascii only")
        << QStringLiteral("j\u00F6rg@ex\u00E4mple.org") << false << true;
    QTest::newRow("international, ascii only")
        << QStringLiteral("j\u00F6rg@ex\u00E4mple.org") << true << false;
    QTest::newRow("international domain, ascii only")
        << QStringLiteral("jorg@ex\u00E4mple.org") << true << false;
    QTest::newRow("non-ascii symbol rejected")
        << QStringLiteral("j\u20ACrg@example.org") << false << false;
    QTest::newRow("supplementary letter")
        << (QStringLiteral("a") + QString::fromUcs4(U"\U00010400") + QStringLiteral("@example.org"))
        << false << true;
    QTest::newRow("lone surrogate rejected")
        << (QStringLiteral("a") + QChar(0xD801) + QStringLiteral("@example.org")) << false << false;
}

void TestMailAddress::isValid()
{
    QFETCH(QString, address);
    QFETCH(bool, asciiOnly);
    QFETCH(bool, valid);

    MailAddress a;
    a.address = address;
    a.name = QStringLiteral("ignored < name >");
    QCOMPARE(a.isValid(asciiOnly), valid);
}

void TestMailAddress::copiesAreIndependent()
{
    MailAddress original(QStringLiteral("Jane"), QStringLiteral("jane@example.org"));
    MailAddress copy = original;
    copy.name = QStringLiteral("Bob");
    copy.address = QStringLiteral("bob@example.org");
    QCOMPARE(original.name, QStringLiteral("Jane"));
    QCOMPARE(original.address, QStringLiteral("jane@example.org"));

    original.clear();
    QCOMPARE(copy.address, QStringLiteral("bob@example.org"));
}

QTEST_APPLESS_MAIN(TestMailAddress)
#include "tst_mailaddress.moc"
