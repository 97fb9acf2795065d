#include <QtTest>

#include "mail/MailAddress.h"

using oru::MailAddress;

class TestMailAddress : public QObject
{
    Q_OBJECT

private slots:
    void parse_data();
    void parse();
    void constructors();
    void toString_data();
    void toString();
    void equalityAndEmptiness();
    void isValid_data();
    void isValid();
    void copiesAreIndependent();
};

void TestMailAddress::parse_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("address");

    QTest::newRow("name and angle address") << "Jane Doe <jane@example.org>" << "Jane Doe" << "jane@example.org";
    QTest::newRow("quoted name with comma") << "\"Doe, Jane\" <jane@example.org>" << "Doe, Jane" << "jane@example.org";
    QTest::newRow("bare address") << "jane@example.org" << QString() << "jane@example.org";
    QTest::newRow("bare address with blanks around") << " jane@example.org " << QString() << "jane@example.org";
    QTest::newRow("split at last space") << "Mary Ann mary@example.org" << "Mary Ann" << "mary@example.org";
    QTest::newRow("missing closing bracket") << "Jane <jane@example.org" << "Jane" << "jane@example.org";
    QTest::newRow("angle address only") << "<jane@example.org>" << QString() << "jane@example.org";
    QTest::newRow("blanks inside brackets") << "Jane < jane@example.org >" << "Jane" << "jane@example.org";
    QTest::newRow("closing bracket before the last opening one") << "a>b<c d" << "a>b" << "c d";
    QTest::newRow("lone closing bracket counts as nothing")
        << "Jane> jane@example.org" << "Jane>" << "jane@example.org";
    QTest::newRow("comments stay in the name, text after brackets dropped")
        << "(boss) Jane <j@example.org> (work)" << "(boss) Jane" << "j@example.org";
    QTest::newRow("empty brackets") << "<>" << QString() << QString();
    QTest::newRow("empty text") << QString() << QString() << QString();
    QTest::newRow("leading quote only") << "\"Jane <j@example.org>" << "Jane" << "j@example.org";
    QTest::newRow("blanks inside quotes trimmed") << "\" Jane \" <j@example.org>" << "Jane" << "j@example.org";
    QTest::newRow("base64 encoded name") << "=?utf-8?B?SsO2cmc=?= <j@example.org>" << "J\u00F6rg" << "j@example.org";
    QTest::newRow("quoted base64 encoded name")
        << "\"=?utf-8?B?SsO2cmc=?=\" <j@example.org>" << "J\u00F6rg" << "j@example.org";
}

void TestMailAddress::parse()
{
    QFETCH(QString, text);
    QFETCH(QString, name);
    QFETCH(QString, address);

    const MailAddress parsed(text);
    QCOMPARE(parsed.name, name);
    QCOMPARE(parsed.address, address);

    // Parsing again replaces both fields.
    MailAddress reused(QStringLiteral("Old <old@example.org>"));
    reused.parse(text);
    QCOMPARE(reused.name, name);
    QCOMPARE(reused.address, address);
}

void TestMailAddress::constructors()
{
    const MailAddress fromLatin("Jane Doe <jane@example.org>");
    QCOMPARE(fromLatin.name, QStringLiteral("Jane Doe"));
    QCOMPARE(fromLatin.address, QStringLiteral("jane@example.org"));

    const MailAddress fromWide(L"J\u00F6rg <j@example.org>");
    QCOMPARE(fromWide.name, QStringLiteral("J\u00F6rg"));
    QCOMPARE(fromWide.address, QStringLiteral("j@example.org"));
    QVERIFY(MailAddress(static_cast<const wchar_t *>(nullptr)).isEmpty());

    // Name first, then address; trimmed, never parsed.
    const MailAddress pair(QStringLiteral(" \"Jane\" "), QStringLiteral(" B <c@example.org> "));
    QCOMPARE(pair.name, QStringLiteral("\"Jane\""));
    QCOMPARE(pair.address, QStringLiteral("B <c@example.org>"));
}

void TestMailAddress::toString_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("bare");
    QTest::addColumn<QString>("withName");
    QTest::addColumn<QString>("quotedPrintable");

    QTest::newRow("no name") << QString() << "jane@example.org" << "jane@example.org" << "jane@example.org"
                             << "jane@example.org";
    QTest::newRow("plain name") << "Jane Doe" << "jane@example.org" << "jane@example.org"
                                << "\"Jane Doe\" <jane@example.org>" << "\"Jane Doe\" <jane@example.org>";
    QTest::newRow("name with dot") << "J. Doe" << "jane@example.org" << "jane@example.org"
                                   << "\"J. Doe\" <jane@example.org>"
                                   << "\"=?utf-8?Q?J=2E Doe?=\" <jane@example.org>";
    QTest::newRow("quotes and placeholders in the name stay")
        << "a\"b 100%1 %2" << "x@example.org" << "x@example.org" << "\"a\"b 100%1 %2\" <x@example.org>"
        << "\"a\"b 100%1 %2\" <x@example.org>";
    QTest::newRow("name without address") << "Jane" << QString() << QString() << "\"Jane\" <>" << "\"Jane\" <>";
}

void TestMailAddress::toString()
{
    QFETCH(QString, name);
    QFETCH(QString, address);
    QFETCH(QString, bare);
    QFETCH(QString, withName);
    QFETCH(QString, quotedPrintable);

    const MailAddress a(name, address);
    QCOMPARE(a.toString(false), bare);
    QCOMPARE(a.toString(true), withName);
    QCOMPARE(QString(a), withName);
    QCOMPARE(a.toQuotedPrintable(), quotedPrintable);
}

void TestMailAddress::equalityAndEmptiness()
{
    const MailAddress a(QStringLiteral("Jane"), QStringLiteral("jane@example.org"));
    QVERIFY(a == MailAddress(QStringLiteral("Janet"), QStringLiteral("jane@example.org")));
    QVERIFY(a != MailAddress(QStringLiteral("Jane"), QStringLiteral("Jane@example.org")));
    QVERIFY(a == QStringLiteral("jane@example.org"));
    QVERIFY(a != QStringLiteral("Jane <jane@example.org>"));

    MailAddress b(QStringLiteral("Jane"), QString());
    QVERIFY(b.isEmpty());
    b.address = QStringLiteral("j@example.org");
    QVERIFY(!b.isEmpty());
    b.clear();
    QVERIFY(b.isEmpty() && b.name.isEmpty());
}

void TestMailAddress::isValid_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<bool>("asciiOnly");
    QTest::addColumn<bool>("valid");

    QTest::newRow("plus and dot") << "a.b+c@example.org" << true << true;
    QTest::newRow("domain without dot") << "x@localhost" << true << true;
    QTest::newRow("ipv4 literal") << "x@[10.0.0.1]" << true << true;
    QTest::newRow("bad ipv4 literal") << "x@[10.0.0.256]" << true << false;
    QTest::newRow("no at sign") << "example.org" << true << false;
    QTest::newRow("empty domain") << "x@" << true << false;
    QTest::newRow("empty local part") << "@example.org" << true << false;
    QTest::newRow("leading dot local") << ".x@example.org" << true << false;
    QTest::newRow("trailing dot local") << "x.@example.org" << true << false;
    QTest::newRow("leading dot domain") << "x@.example.org" << true << false;
    QTest::newRow("trailing dot domain") << "x@example.org." << true << false;
    QTest::newRow("space in local part") << "a b@example.org" << true << false;
    QTest::newRow("consecutive dots pass") << "a..b@example..org" << true << true;
    QTest::newRow("all symbols") << "!#$%&'*+-/=?^_`{|}~.x@example.org" << true << true;
    QTest::newRow("second at sign in domain") << "a@b@example.org" << true << false;
    QTest::newRow("quoted local part") << "\"ab\"@example.org" << true << true;
    QTest::newRow("quoted space") << "\"a b\"@example.org" << true << false;
    QTest::newRow("empty quotes") << "\"\"@example.org" << true << false;
    QTest::newRow("lone quote") << "\"@example.org" << true << false;
    QTest::newRow("leading quote only") << "\"ab@example.org" << true << false;
    QTest::newRow("quoted dot first") << "\".ab\"@example.org" << true << false;
    QTest::newRow("underscore in domain") << "x@ex_ample.org" << true << false;
    QTest::newRow("hyphen anywhere in domain") << "x@-example-.org" << true << true;
    QTest::newRow("international, not ascii only") << "j\u00F6rg@ex\u00E4mple.org" << false << true;
    QTest::newRow("international, ascii only") << "j\u00F6rg@ex\u00E4mple.org" << true << false;
    QTest::newRow("international domain, ascii only") << "jorg@ex\u00E4mple.org" << true << false;
    QTest::newRow("non-ascii symbol rejected") << "j\u20ACrg@example.org" << false << false;
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

    MailAddress a(QStringLiteral("ignored < name >"), QString());
    a.address = address;
    QCOMPARE(a.isValid(asciiOnly), valid);
}

void TestMailAddress::copiesAreIndependent()
{
    MailAddress original(QStringLiteral("Jane"), QStringLiteral("jane@example.org"));
    MailAddress copy = original;
    copy.name = QStringLiteral("Bob");
    copy.address = QStringLiteral("bob@example.org");
    QCOMPARE(original.toString(true), QStringLiteral("\"Jane\" <jane@example.org>"));
    original.clear();
    QCOMPARE(copy.toString(true), QStringLiteral("\"Bob\" <bob@example.org>"));
}

QTEST_APPLESS_MAIN(TestMailAddress)
#include "tst_mailaddress.moc"
