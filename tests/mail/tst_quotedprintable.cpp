#include <QtTest>

#include "mail/QuotedPrintable.h"

namespace {

QByteArray as(int n)
{
    return QByteArray(n, 'a');
}

} // namespace

class TestQuotedPrintable : public QObject
{
    Q_OBJECT

private slots:
    void encodeBytes_data();
    void encodeBytes();
    void decodeBytes_data();
    void decodeBytes();
    void encodeText_data();
    void encodeText();
    void decodeText_data();
    void decodeText();
};

void TestQuotedPrintable::encodeBytes_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("maxLineLength");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<bool>("changed");

    QTest::newRow("empty") << QByteArray() << 0 << QByteArray() << false;
    QTest::newRow("printable kept, space and underscore too")
        << QByteArray("ab _~") << 0 << QByteArray("ab _~") << false;
    QTest::newRow("dot escaped") << QByteArray("a.b") << 0 << QByteArray("a=2Eb") << true;
    QTest::newRow("equals and question mark") << QByteArray("=?") << 0 << QByteArray("=3D=3F") << true;
    QTest::newRow("space before LF escaped") << QByteArray("x \ny") << 0 << QByteArray("x=20\r\ny") << true;
    QTest::newRow("tab before LF escaped, last tab kept")
        << QByteArray("x\t\ny\t") << 0 << QByteArray("x=09\r\ny\t") << true;
    QTest::newRow("trailing space kept") << QByteArray("x ") << 0 << QByteArray("x ") << false;
    QTest::newRow("lone LF gets CR") << QByteArray("\n") << 0 << QByteArray("\r\n") << true;
    QTest::newRow("CR LF input escapes CR") << QByteArray("a\r\nb") << 0 << QByteArray("a=0D\r\nb") << true;
    QTest::newRow("controls, DEL and high bytes escaped upper-case")
        << QByteArray("\0\x1F\x7FJ\xC3\xB6", 6) << 0 << QByteArray("=00=1F=7FJ=C3=B6") << true;
    QTest::newRow("negative length is unlimited") << as(200) << -1 << as(200) << false;
    QTest::newRow("100 bytes at 76") << as(100) << 76 << (as(76) + "=\n" + as(24)) << true;
    QTest::newRow("exactly 76 bytes need no break") << as(76) << 76 << as(76) << false;
    QTest::newRow("escape completed past the limit")
        << (as(75) + "\xC3\xA9") << 76 << (as(75) + "=C3=\n=A9") << true;
    QTest::newRow("no soft break before a line end")
        << (as(76) + "\nb") << 76 << (as(76) + "\r\nb") << true;
    QTest::newRow("blank at the limit before a line end")
        << (as(76) + " \n") << 76 << (as(76) + "=\n=20\r\n") << true;
    QTest::newRow("line length restarts after LF")
        << (QByteArray("aa\n") + as(76)) << 76 << (QByteArray("aa\r\n") + as(76)) << true;
    QTest::newRow("length one breaks before every byte")
        << QByteArray("abc") << 1 << QByteArray("a=\nb=\nc") << true;
    QTest::newRow("escapes count towards the line")
        << QByteArray(27, '.') << 76 << (QByteArray("=2E").repeated(26) + "=\n=2E") << true;
}

void TestQuotedPrintable::encodeBytes()
{
    QFETCH(QByteArray, input);
    QFETCH(int, maxLineLength);
    QFETCH(QByteArray, expected);
    QFETCH(bool, changed);

    QCOMPARE(encodeQuotedPrintable(input, maxLineLength), changed);
    QCOMPARE(input, expected);
}

void TestQuotedPrintable::decodeBytes_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<bool>("changed");

    QTest::newRow("empty") << QByteArray() << QByteArray() << false;
    QTest::newRow("=20=41") << QByteArray("=20=41") << QByteArray("\x20\x80") << true;
    QTest::newRow("soft break then escape") << QByteArray("=\n=20") << QByteArray(" ") << true;
    QTest::newRow("two soft breaks") << QByteArray("=\n=\n") << QByteArray() << true;
    QTest::newRow("=20=30=40") << QByteArray("=20=30=40") << QByteArray("\x20\x30\x40") << true;
    QTest::newRow("lower-case =a0") << QByteArray("=a0") << QByteArray("\xA0") << true;
    QTest::newRow("=3D =C3 =0A =7E =E9 =4A give zero")
        << QByteArray("=3D=C3=0A=7E=E9=4A") << QByteArray(6, '\0') << true;
    QTest::newRow("=12 shifts by 6") << QByteArray("=12") << QByteArray("\x40") << true;
    QTest::newRow("non-hex digits use the same formula, @ below A")
        << QByteArray("=!0=@0") << QByteArray("\x10\0", 2) << true;
}

void TestQuotedPrintable::decodeBytes()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, expected);
    QFETCH(bool, changed);

    QCOMPARE(decodeQuotedPrintable(input), changed);
    QCOMPARE(input, expected);
}

void TestQuotedPrintable::encodeText_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("expected");

    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("plain name") << "John Smith" << "John Smith";
    QTest::newRow("dot with raw space") << "J. Smith" << "=?utf-8?Q?J=2E Smith?=";
    QTest::newRow("umlaut") << "J\u00F6rg" << "=?utf-8?Q?J=C3=B6rg?=";
    QTest::newRow("already encoded") << "=?x?=" << "=?x?=";
    QTest::newRow("LF becomes CR LF inside the word") << "a\nb" << "=?utf-8?Q?a\r\nb?=";
    QTest::newRow("only a prefix is not a word") << "=?abc" << "=?utf-8?Q?=3D=3Fabc?=";
    QTest::newRow("long text is one unbroken word")
        << QStringLiteral("\u00E9").repeated(100)
        << (QStringLiteral("=?utf-8?Q?") + QStringLiteral("=C3=A9").repeated(100) + QStringLiteral("?="));
}

void TestQuotedPrintable::encodeText()
{
    QFETCH(QString, input);
    QFETCH(QString, expected);
    QCOMPARE(encodeQuotedPrintable(input, 0), expected);
}

void TestQuotedPrintable::decodeText_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("expected");

    QTest::newRow("base64 word") << "=?utf-8?B?SsO2cmc=?=" << "J\u00F6rg";
    QTest::newRow("lower-case b") << "=?utf-8?b?SsO2cmc=?=" << "J\u00F6rg";
    QTest::newRow("latin-1 charset") << "=?ISO-8859-1?B?SvZyZw==?=" << "J\u00F6rg";
    QTest::newRow("plain text unchanged") << "J\u00F6rg" << "J\u00F6rg";
    QTest::newRow("Q word of escapes") << "=?utf-8?Q?=20=40?=" << " @";
    QTest::newRow("lower-case q") << "=?utf-8?q?=30?=" << "0";
    QTest::newRow("empty Q text") << "=?utf-8?Q?" "?=" << QString();
    QTest::newRow("other encoding keeps bytes") << "=?utf-8?X?abc?=" << "abc";
    QTest::newRow("unknown charset returns text")
        << "=?no-such-charset?B?YWJj?=" << "=?no-such-charset?B?YWJj?=";
    QTest::newRow("word after plain text unchanged")
        << "Hi =?utf-8?B?SsO2cmc=?=" << "Hi =?utf-8?B?SsO2cmc=?=";
    QTest::newRow("word before plain text unchanged")
        << "=?utf-8?B?SsO2cmc=?= Hi" << "=?utf-8?B?SsO2cmc=?= Hi";
    QTest::newRow("two words decode the first") << "=?utf-8?B?SsO2cmc=?= =?utf-8?B?YWJj?=" << "J\u00F6rg";
}

void TestQuotedPrintable::decodeText()
{
    QFETCH(QString, input);
    QFETCH(QString, expected);
    QCOMPARE(decodeQuotedPrintable(input), expected);
}

QTEST_APPLESS_MAIN(TestQuotedPrintable)
#include "tst_quotedprintable.moc"
