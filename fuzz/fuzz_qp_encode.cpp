// The quoted-printable encoders, checked against what a reader of their
// output relies on.
//
// Input: a mode byte (low two bits: how the data is read as text for the
// string encoder, see fuzz::textFromBytes), two bytes giving one more line
// length (-8 to 191), then the data. The byte encoder runs on the data at the
// line lengths 0, 1, 2, 76 and the derived one; the string encoder at 0 and
// the derived one.
//
// Checked: the encoded bytes are printable ASCII, TAB (kept unless a line
// end follows) and line ends; a CR appears only before a LF and never after a
// blank; soft breaks ("=" LF, no CR) appear only with a line limit, never in
// front of a line end, and each broken line holds between the limit and two
// characters more; taking out the soft breaks and the added CRs and reading
// the escapes by the standard rule gives back the data; the result flag says
// whether anything changed. The string encoder returns the text itself, or
// one "=?utf-8?Q?...?=" word whose inner text reads back to the text's UTF-8.

#include "FuzzSupport.h"

#include "mail/QuotedPrintable.h"

#include <QByteArray>
#include <QString>

#include <initializer_list>

namespace {

bool isWordByte(char c)
{
    const auto b = static_cast<unsigned char>(c);
    return (b >= 0x20 && b <= 0x7E) || b == '\t';
}

// Bytes the encoder passes through untouched when no line end follows.
bool isPlainByte(char c)
{
    return isWordByte(c) && c != '.' && c != '=' && c != '?';
}

void checkLines(const QByteArray &encoded, int maxLineLength)
{
    const bool limited = maxLineLength >= 1;
    int lineStart = 0;
    bool afterSoftBreak = false;
    const int n = encoded.size();
    for (int i = 0; i <= n; ++i) {
        if (i < n && encoded.at(i) != '\n')
            continue;
        // The line is encoded[lineStart, i); at i a LF or the end.
        int length = i - lineStart;
        const bool soft = i < n && length > 0 && encoded.at(i - 1) == '=';
        const bool hard = i < n && !soft;
        if (hard) {
            fuzz::require(length > 0 && encoded.at(i - 1) == '\r', "a line end is CR LF");
            // Transports may strip white space at line ends.
            fuzz::require(length < 2 || (encoded.at(i - 2) != ' ' && encoded.at(i - 2) != '\t'),
                          "no blank right before a line end");
        }
        if (soft || hard)
            --length;
        if (afterSoftBreak && hard)
            fuzz::require(length > 0, "no soft break in front of a line end");
        else if (afterSoftBreak)
            fuzz::require(length > 0, "a soft break has a byte after it");
        if (soft) {
            fuzz::require(limited, "soft breaks only with a line limit");
            fuzz::require(length >= maxLineLength, "a broken line is full");
        }
        if (limited)
            fuzz::require(length <= maxLineLength + 2, "a line holds at most two more than the limit");
        afterSoftBreak = soft;
        lineStart = i + 1;
    }
}

void checkBytes(const QByteArray &data, int maxLineLength)
{
    QByteArray encoded = data;
    const bool changed = encodeQuotedPrintable(encoded, maxLineLength);
    fuzz::require(changed == (encoded != data), "the result says whether data changed");

    for (int i = 0; i < encoded.size(); ++i) {
        const char c = encoded.at(i);
        fuzz::require(isWordByte(c) || c == '\n' || c == '\r', "encoded bytes are printable");
        if (c == '\r')
            fuzz::require(i + 1 < encoded.size() && encoded.at(i + 1) == '\n', "a CR only before a LF");
    }
    checkLines(encoded, maxLineLength);

    bool wellFormed = false;
    const QByteArray decoded = fuzz::standardDecode(encoded, &wellFormed);
    fuzz::require(wellFormed, "every = starts an escape or a soft break");
    fuzz::require(decoded == data, "standard decoding gives back the data");
}

void checkText(const QString &text, int maxLineLength)
{
    const QString word = encodeQuotedPrintable(text, maxLineLength);
    if (text.isEmpty()
        || (text.startsWith(QLatin1String("=?")) && text.endsWith(QLatin1String("?=")))) {
        fuzz::require(word == text, "empty and word-shaped texts are returned as they are");
        return;
    }

    const QByteArray utf8 = text.toUtf8();
    bool plain = maxLineLength < 1 || utf8.size() <= maxLineLength;
    for (const char c : utf8)
        plain = plain && isPlainByte(c);
    if (plain) {
        fuzz::require(word == text, "text that needs no escape is returned as it is");
        return;
    }

    const QLatin1String head("=?utf-8?Q?");
    const QLatin1String tail("?=");
    fuzz::require(word.startsWith(head) && word.endsWith(tail), "the result is one Q word");
    const QString inner = word.mid(head.size(), word.size() - head.size() - tail.size());
    for (const QChar c : inner)
        fuzz::require(c.unicode() < 0x80, "the word is ASCII");
    const QByteArray innerBytes = inner.toLatin1();
    if (maxLineLength < 1)
        fuzz::require(!innerBytes.contains("=\n"), "no soft breaks without a line limit");
    bool wellFormed = false;
    fuzz::require(fuzz::standardDecode(innerBytes, &wellFormed) == utf8 && wellFormed,
                  "the word's inner text reads back to the text's UTF-8");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    const uint8_t mode = input.byte();
    const int low = input.byte();
    const int derived = (low | (input.byte() << 8)) % 200 - 8;
    const QByteArray bytes = input.rest();

    for (const int length : {0, 1, 2, 76, derived})
        checkBytes(bytes, length);

    const QString text = fuzz::textFromBytes(mode, bytes);
    checkText(text, 0);
    checkText(text, derived);
    return 0;
}
