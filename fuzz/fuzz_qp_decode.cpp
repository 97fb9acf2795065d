// The encoded-word decoder on words built from the fuzz input: B words with
// any text, and Q words whose inner text is made only of "=XY" escapes (any
// X other than LF, any Y) and "=" LF soft breaks, the form on which the
// decoder returns. Other Q text makes the decoder wait for ever by design and
// is never built here.
//
// Input: a charset byte (a name known to the codec registry, an unknown one,
// or one taken from the input), an encoding byte (the label, and for B words
// whether the text is the base64 of the payload or the payload itself), then
// the payload.

#include "FuzzSupport.h"

#include "mail/QuotedPrintable.h"

#include <QByteArray>
#include <QString>
#include <QTextCodec>

namespace {

const char *const Charsets[] = {
    "utf-8", "UTF-8", "ISO-8859-1", "latin1", "windows-1252", "UTF-16", "UTF-16LE",
    "UTF-32", "Shift_JIS", "EUC-JP", "ISO-2022-JP", "Big5", "GB18030", "KOI8-R",
    "ISO-8859-15", "US-ASCII",
    // Not in the registry.
    "x-unknown", "", "utf-9", "iso-8859-99"};
const int CharsetCount = int(sizeof(Charsets) / sizeof(Charsets[0]));

const char *const Labels[] = {"B", "b", "Base64", "Q", "q", "Quoted", "X", ""};

// A charset name of up to 16 input bytes; "?" would end the name early.
QByteArray charsetFrom(fuzz::Input &input)
{
    QByteArray name = input.take(input.byte() % 17);
    name.replace('?', '_');
    return name;
}

bool isQ(const char *label)
{
    return label[0] == 'Q' || label[0] == 'q';
}

// Inner text of a Q word from payload: each step reads a control byte; a
// multiple of 8 makes a soft break, anything else an escape of the next two
// bytes. "?" would end the word's text and LF as the first digit would make
// a soft break of the escape, so both are replaced.
QByteArray qText(const QByteArray &payload, int *escapes)
{
    QByteArray text;
    text.reserve(payload.size() * 2);
    *escapes = 0;
    for (int i = 0; i < payload.size();) {
        const char control = payload.at(i++);
        if (control % 8 == 0) {
            text.append("=\n");
            continue;
        }
        char high = i < payload.size() ? payload.at(i++) : '0';
        char low = i < payload.size() ? payload.at(i++) : '0';
        if (high == '\n' || high == '?')
            high = 'A';
        if (low == '?')
            low = 'F';
        text.append('=').append(high).append(low);
        ++*escapes;
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    const int charsetChoice = input.byte() % (CharsetCount + 1);
    const uint8_t encodingByte = input.byte();
    const QByteArray charset =
        charsetChoice < CharsetCount ? QByteArray(Charsets[charsetChoice]) : charsetFrom(input);
    const char *label = Labels[encodingByte & 7];
    const bool base64OfPayload = encodingByte & 8;
    const QByteArray payload = input.rest();

    QByteArray inner;
    int escapes = 0;
    if (isQ(label))
        inner = qText(payload, &escapes);
    else
        inner = base64OfPayload ? payload.toBase64() : payload;

    const QString word = QLatin1String("=?") + fuzz::latin1Text(charset) + QLatin1Char('?')
        + QLatin1String(label) + QLatin1Char('?') + fuzz::latin1Text(inner)
        + QLatin1String("?=");
    fuzz::require(fuzz::wordDecoderReturns(word), "the built word is one the decoder finishes");
    const QString decoded = decodeQuotedPrintable(word);

    if (!QTextCodec::codecForName(charset))
        fuzz::require(decoded == word, "an unknown charset returns the word as it is");
    else if (charset == "ISO-8859-1" && label[0] == 'B' && base64OfPayload)
        fuzz::require(decoded == fuzz::latin1Text(payload), "a Latin-1 B word reads back");

    if (isQ(label)) {
        QByteArray bytes = inner;
        const bool changed = decodeQuotedPrintable(bytes);
        fuzz::require(changed == !inner.isEmpty(), "decoding escapes and breaks changes the data");
        fuzz::require(bytes.size() == escapes, "one byte per escape");
    }
    return 0;
}
