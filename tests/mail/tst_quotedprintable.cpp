#include <QtTest>

#include "mail/QuotedPrintable.h"

#include <QRandomGenerator>

namespace {

// The encoder written the obvious way, inserting into the array as it goes.
// The library's one-pass encoder must agree with it byte for byte.
bool referenceEncode(QByteArray &data, int maxLineLength)
{
    static const char Hex[] = "0123456789ABCDEF";
    bool changed = false;
    int p = 0;
    int s = 0;
    while (p < data.size()) {
        const char b = data.at(p);
        if (b == '\n') {
            data.insert(p, '\r');
            p += 2;
            s = p;
            changed = true;
            continue;
        }
        if (maxLineLength >= 1 && p - s >= maxLineLength) {
            data.insert(p, "=\n");
            p += 2;
            s = p;
            changed = true;
            continue;
        }
        bool escape = false;
        if (b == '\t' || b == ' ')
            escape = p + 1 < data.size() && data.at(p + 1) == '\n';
        else
            escape = static_cast<signed char>(b) < 0x20 || b == 0x7F || b == '.' || b == '='
                || b == '?';
        if (escape) {
            const unsigned char u = static_cast<unsigned char>(b);
            const char digits[] = {'=', Hex[u >> 4], Hex[u & 0xF]};
            data.replace(p, 1, digits, 3);
            p += 3;
            changed = true;
        } else {
            ++p;
        }
    }
    return changed;
}

QByteArray repeated(char c, int n)
{
    return QByteArray(n, c);
}

} // namespace

class TestQuotedPrintable : public QObject
{
    Q_OBJECT

private slots:
    void encodeBytes_data();
    void encodeBytes();
    void encodeBytesMatchesInsertingEncoder_data();
    void encodeBytesMatchesInsertingEncoder();
    void decodeBytes_data();
    void decodeBytes();
    void encodeText_data();
    void encodeText();
    void decodeText_data();
    void decodeText();
    void textRoundTripThroughBase64Word();
};

void TestQuotedPrintable::encodeBytes_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("maxLineLength");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<bool>("changed");

    QTest::newRow("empty") << QByteArray() << 0 << QByteArray() << false;
    QTest::newRow("plain ascii unchanged") << QByteArray("ab") << 0 << QByteArray("ab") << false;
    QTest::newRow("dot escaped") << QByteArray("a.b") << 0 << QByteArray("a=2Eb") << true;
    QTest::newRow("equals and question mark") << QByteArray("=?") << 0 << QByteArray("=3D=3F") << true;
    QTest::newRow("space and underscore kept") << QByteArray("a _b") << 0 << QByteArray("a _b") << false;
    QTest::newRow("space before LF escaped") << QByteArray("x \ny") << 0 << QByteArray("x=20\r\ny") << true;
    QTest::newRow("tab before LF escaped") << QByteArray("x\t\n") << 0 << QByteArray("x=09\r\n") << true;
    QTest::newRow("trailing space kept") << QByteArray("x ") << 0 << QByteArray("x ") << false;
    QTest::newRow("trailing tab kept") << QByteArray("x\t") << 0 << QByteArray("x\t") << false;
    QTest::newRow("lone LF gets CR") << QByteArray("\n") << 0 << QByteArray("\r\n") << true;
    QTest::newRow("CR LF input escapes CR") << QByteArray("a\r\nb") << 0 << QByteArray("a=0D\r\nb") << true;
    QTest::newRow("NUL escaped") << QByteArray("\0", 1) << 0 << QByteArray("=00") << true;
    QTest::newRow("DEL escaped") << QByteArray("\x7F") << 0 << QByteArray("=7F") << true;
    QTest::newRow("high bytes escaped upper-case")
        << QByteArray("J\xC3\xB6rg") << 0 << QByteArray("J=C3=B6rg") << true;
    QTest::newRow("tilde kept") << QByteArray("~") << 0 << QByteArray("~") << false;
    QTest::newRow("negative length is unlimited")
        << repeated('a', 200) << -1 << repeated('a', 200) << false;
    QTest::newRow("100 bytes at 76")
        << repeated('a', 100) << 76 << (repeated('a', 76) + "=\n" + repeated('a', 24)) << true;
    QTest::newRow("exactly 76 bytes need no break")
        << repeated('a', 76) << 76 << repeated('a', 76) << false;
    QTest::newRow("escape completed past the limit")
        << (repeated('a', 75) + "\xC3\xA9") << 76
        << (repeated('a', 75) + "=C3=\n=A9") << true;
    QTest::newRow("no soft break before a line end")
        << (repeated('a', 76) + "\nb") << 76 << (repeated('a', 76) + "\r\nb") << true;
    QTest::newRow("line length restarts after LF")
        << (QByteArray("aa\n") + repeated('b', 76)) << 76
        << (QByteArray("aa\r\n") + repeated('b', 76)) << true;
    QTest::newRow("two full lines")
        << repeated('a', 153) << 76
        << (repeated('a', 76) + "=\n" + repeated('a', 76) + "=\n" + "a") << true;
    QTest::newRow("length one breaks before every byte")
        << QByteArray("abc") << 1 << QByteArray("a=\nb=\nc") << true;
    QTest::newRow("escapes count towards the line")
        << repeated('.', 27) << 76
        << (QByteArray("=2E").repeated(26) + "=\n=2E") << true;
}

void TestQuotedPrintable::encodeBytes()
{
    QFETCH(QByteArray, input);
    QFETCH(int, maxLineLength);
    QFETCH(QByteArray, expected);
    QFETCH(bool, changed);

    QByteArray data = input;
    QCOMPARE(encodeQuotedPrintable(data, maxLineLength), changed);
    QCOMPARE(data, expected);
}

void TestQuotedPrintable::encodeBytesMatchesInsertingEncoder_data()
{
    QTest::addColumn<int>("maxLineLength");
    QTest::newRow("unlimited") << 0;
    QTest::newRow("1") << 1;
    QTest::newRow("2") << 2;
    QTest::newRow("7") << 7;
    QTest::newRow("76") << 76;
}

void TestQuotedPrintable::encodeBytesMatchesInsertingEncoder()
{
    QFETCH(int, maxLineLength);

    // Runs of plain text mixed with every kind of byte the rules single out.
    static const char Alphabet[] = {'a', 'b', 'c', 'd', 'e', ' ', '\t', '\n', '\r', '.',
                                    '=', '?', '_', '\x7F', '\0', '\xC3', '\xA9', 'Z'};
    QRandomGenerator random(4711);
    for (int round = 0; round < 300; ++round) {
        QByteArray input;
        const int length = random.bounded(400);
        for (int i = 0; i < length; ++i) {
            const int pick = random.bounded(int(sizeof(Alphabet)) * 3);
            input.append(pick < int(sizeof(Alphabet)) ? Alphabet[pick] : 'a' + pick % 26);
        }
        QByteArray expected = input;
        const bool expectedChanged = referenceEncode(expected, maxLineLength);
        QByteArray actual = input;
        const bool actualChanged = encodeQuotedPrintable(actual, maxLineLength);
        if (actual != expected || actualChanged != expectedChanged)
            QFAIL(qPrintable(QStringLiteral("round %1 differs for input %2")
                                 .arg(round)
                                 .arg(QString::fromLatin1(input.toHex()))));
    }
}

void TestQuotedPrintable::decodeBytes_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<bool>("changed");

    QTest::newRow("empty") << QByteArray() << QByteArray() << false;
    QTest::newRow("=20=41") << QByteArray("=20=41") << QByteArray("\x20\x80") << true;
    QTest::newRow("soft break then escape") << QByteArray("=\n=20") << QByteArray(" ") << true;
    QTest::newRow("soft break alone") << QByteArray("=\n") << QByteArray() << true;
    QTest::newRow("two soft breaks") << QByteArray("=\n=\n") << QByteArray() << true;
    QTest::newRow("=30") << QByteArray("=30") << QByteArray("\x30") << true;
    QTest::newRow("=40") << QByteArray("=40") << QByteArray("\x40") << true;
    QTest::newRow("lower-case =a0") << QByteArray("=a0") << QByteArray("\xA0") << true;
    QTest::newRow("=3D") << QByteArray("=3D") << QByteArray(1, '\0') << true;
    QTest::newRow("=C3") << QByteArray("=C3") << QByteArray(1, '\0') << true;
    QTest::newRow("=0A") << QByteArray("=0A") << QByteArray(1, '\0') << true;
    QTest::newRow("=7E") << QByteArray("=7E") << QByteArray(1, '\0') << true;
    QTest::newRow("=E9") << QByteArray("=E9") << QByteArray(1, '\0') << true;
    QTest::newRow("=4A") << QByteArray("=4A") << QByteArray(1, '\0') << true;
    QTest::newRow("=12 shifts by 6") << QByteArray("=12") << QByteArray("\x40") << true;
    QTest::newRow("non-hex digits use the same formula")
        << QByteArray("=!0") << QByteArray("\x10") << true;
    QTest::newRow("three escapes") << QByteArray("=20=30=40") << QByteArray("\x20\x30\x40") << true;
}

void TestQuotedPrintable::decodeBytes()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, expected);
    QFETCH(bool, changed);

    QByteArray data = input;
    QCOMPARE(decodeQuotedPrintable(data), changed);
    QCOMPARE(data, expected);
}

void TestQuotedPrintable::encodeText_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("expected");

    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("plain name") << QStringLiteral("John Smith") << QStringLiteral("John Smith");
    QTest::newRow("dot with raw space")
        << QStringLiteral("J. Smith") << QStringLiteral("=?utf-8?Q?J=2E Smith?=");
    QTest::newRow("umlaut") << QStringLiteral("J\u00F6rg") << QStringLiteral("=?utf-8?Q?J=C3=B6rg?=");
    QTest::newRow("already encoded") << QStringLiteral("=?x?=") << QStringLiteral("=?x?=");
    QTest::newRow("question mark") << QStringLiteral("why?") << QStringLiteral("=?utf-8?Q?why=3F?=");
    QTest::newRow("LF becomes CR LF inside the word")
        << QStringLiteral("a\nb") << QStringLiteral("=?utf-8?Q?a\r\nb?=");
    QTest::newRow("only a prefix is not a word")
        << QStringLiteral("=?abc") << QStringLiteral("=?utf-8?Q?=3D=3Fabc?=");
    QTest::newRow("euro sign") << QStringLiteral("\u20AC") << QStringLiteral("=?utf-8?Q?=E2=82=AC?=");
    const QString longText = QStringLiteral("\u00E9").repeated(100);
    QTest::newRow("long text is one unbroken word")
        << longText
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

    QTest::newRow("base64 word") << QStringLiteral("=?utf-8?B?SsO2cmc=?=") << QStringLiteral("J\u00F6rg");
    QTest::newRow("lower-case b") << QStringLiteral("=?utf-8?b?SsO2cmc=?=") << QStringLiteral("J\u00F6rg");
    QTest::newRow("latin-1 charset")
        << QStringLiteral("=?ISO-8859-1?B?SvZyZw==?=") << QStringLiteral("J\u00F6rg");
    QTest::newRow("plain text unchanged") << QStringLiteral("J\u00F6rg") << QStringLiteral("J\u00F6rg");
    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("Q word of escapes") << QStringLiteral("=?utf-8?Q?=20=40?=") << QStringLiteral(" @");
    QTest::newRow("lower-case q") << QStringLiteral("=?utf-8?q?=30?=") << QStringLiteral("0");
    QTest::newRow("empty Q text") << QStringLiteral("=?utf-8?Q?" "?=") << QString();
    QTest::newRow("other encoding keeps bytes") << QStringLiteral("=?utf-8?X?abc?=") << QStringLiteral("abc");
    QTest::newRow("unknown charset returns text")
        << QStringLiteral("=?no-such-charset?B?YWJj?=") << QStringLiteral("=?no-such-charset?B?YWJj?=");
    QTest::newRow("word after plain text unchanged")
        << QStringLiteral("Hi =?utf-8?B?SsO2cmc=?=") << QStringLiteral("Hi =?utf-8?B?SsO2cmc=?=");
    QTest::newRow("word before plain text unchanged")
        << QStringLiteral("=?utf-8?B?SsO2cmc=?= Hi") << QStringLiteral("=?utf-8?B?SsO2cmc=?= Hi");
    QTest::newRow("two words decode the first")
        << QStringLiteral("=?utf-8?B?SsO2cmc=?= =?utf-8?B?YWJj?=") << QStringLiteral("J\u00F6rg");
}

void TestQuotedPrintable::decodeText()
{
    QFETCH(QString, input);
    QFETCH(QString, expected);
    QCOMPARE(decodeQuotedPrintable(input), expected);
}

void TestQuotedPrintable::textRoundTripThroughBase64Word()
{
    const QString text = QStringLiteral("Gr\u00FC\u00DFe aus K\u00F6ln, \u20AC 5");
    const QString word = QStringLiteral("=?utf-8?B?%1?=").arg(QString::fromLatin1(text.toUtf8().toBase64()));
    QCOMPARE(decodeQuotedPrintable(word), text);
}

QTEST_APPLESS_MAIN(TestQuotedPrintable)
#include "tst_quotedprintable.moc"
