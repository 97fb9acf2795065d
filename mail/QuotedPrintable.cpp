#include "mail/QuotedPrintable.h"

#include <QTextCodec>

#include <cstdint>
#include <limits>

#if defined(Q_OS_LINUX)
#include <sys/mman.h>
#endif

namespace {

// What the encoder does with a byte when no line break is due. Copied
// classes come first, so that one comparison tells them apart.
enum ByteClass : unsigned char {
    Keep,    // copied as it is
    Blank,   // TAB or SPACE: copied, but escaped when a LF follows
    Escape,  // written as "=XX"
    LineEnd  // LF: becomes CR LF and starts a new line
};

struct ByteTables
{
    ByteClass cls[256];
    // Output bytes at most: a LF counts for the escape of a blank before it.
    unsigned char maxOutput[256];

    constexpr ByteTables() : cls(), maxOutput()
    {
        for (int b = 0; b < 256; ++b) {
            // Bytes from 0x80 up are negative as signed bytes, so they escape
            // together with the control bytes.
            ByteClass c = Keep;
            if (b == '\n')
                c = LineEnd;
            else if (b == '\t' || b == ' ')
                c = Blank;
            else if (b < 0x20 || b >= 0x7F || b == '.' || b == '=' || b == '?')
                c = Escape;
            cls[b] = c;
            maxOutput[b] = c == Escape ? 3 : c == LineEnd ? 4 : 1;
        }
    }
};

constexpr ByteTables Tables;
constexpr char HexDigits[] = "0123456789ABCDEF";

// Largest array size asked of QByteArray; its own limit lies a little above.
constexpr qint64 MaxArraySize = std::numeric_limits<int>::max() - 64;

// Upper bound of the encoder's output for data. Every soft break follows at
// least maxLineLength characters of its line, so there are at most
// size / maxLineLength of them, two characters each.
qint64 encodedSizeBound(const unsigned char *in, int n, int maxLineLength)
{
    qint64 size = 0;
    for (int i = 0; i < n; ++i)
        size += Tables.maxOutput[in[i]];
    if (maxLineLength >= 1)
        size += 2 * (size / maxLineLength);
    return size;
}

// Prepares a large output buffer that has not been touched yet: asks for
// huge pages where the buffer spans them, and faults the rest of its pages in
// with one call instead of one trap per page. Both are hints; failures are
// harmless and ignored.
void prepareLargeBuffer(char *buffer, qint64 size)
{
#if defined(Q_OS_LINUX)
    constexpr qint64 MinSize = 256 * 1024;
    if (size < MinSize)
        return;
    const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(buffer);
    const std::uintptr_t stop = start + std::uintptr_t(size);
#if defined(MADV_HUGEPAGE)
    constexpr std::uintptr_t HugePage = 2 * 1024 * 1024;
    const std::uintptr_t firstHuge = (start + HugePage - 1) & ~(HugePage - 1);
    const std::uintptr_t lastHuge = stop & ~(HugePage - 1);
    if (lastHuge > firstHuge)
        madvise(reinterpret_cast<void *>(firstHuge), lastHuge - firstHuge, MADV_HUGEPAGE);
#endif
#if defined(MADV_POPULATE_WRITE)
    constexpr std::uintptr_t Page = 4096;
    const std::uintptr_t firstPage = (start + Page - 1) & ~(Page - 1);
    const std::uintptr_t lastPage = stop & ~(Page - 1);
    if (lastPage > firstPage)
        madvise(reinterpret_cast<void *>(firstPage), lastPage - firstPage, MADV_POPULATE_WRITE);
#endif
#else
    Q_UNUSED(buffer)
    Q_UNUSED(size)
#endif
}

inline char *writeEscape(char *o, unsigned char b)
{
    o[0] = '=';
    o[1] = HexDigits[b >> 4];
    o[2] = HexDigits[b & 0xF];
    return o + 3;
}

// Value of one escape digit, including for bytes that are not hex digits.
int digitValue(char c)
{
    const int v = static_cast<signed char>(c);
    return v > '@' ? v - 55 : v - 48;
}

unsigned char decodeEscape(char high, char low)
{
    const unsigned int h = static_cast<unsigned int>(digitValue(high));
    const unsigned int shift = static_cast<unsigned int>(digitValue(low) + 4) & 31u;
    return static_cast<unsigned char>(h << shift);
}

// Waits for ever on a byte that the decoder cannot consume. The volatile read
// keeps the loop a real, well-defined wait.
[[noreturn]] void stallOn(const char *byte)
{
    const volatile char *watched = byte;
    for (;;)
        (void)*watched;
}

bool startsAndEndsAsWord(const QString &text)
{
    return text.startsWith(QLatin1String("=?")) && text.endsWith(QLatin1String("?="));
}

} // namespace

bool encodeQuotedPrintable(QByteArray &data, int maxLineLength)
{
    const int n = data.size();
    if (n == 0)
        return false;

    const unsigned char *const first = reinterpret_cast<const unsigned char *>(data.constData());
    const unsigned char *const end = first + n;
    const unsigned char *p = first;
    const bool limited = maxLineLength >= 1;

    // Size the output once for the worst case, so the loop never reallocates.
    const qint64 bound = encodedSizeBound(first, n, maxLineLength);
    if (bound > MaxArraySize)
        qBadAlloc();
    QByteArray encoded;
    encoded.resize(int(bound));
    char *const begin = encoded.data();
    prepareLargeBuffer(begin, bound);
    char *o = begin;
    const char *lineStart = begin;
    bool changed = false;

    while (p < end) {
        const unsigned char b = *p;
        const ByteClass cls = Tables.cls[b];
        if (cls == LineEnd) {
            // A blank right before the LF was copied as the last output byte
            // (no soft break can come between them); escape it now.
            if (p != first && Tables.cls[p[-1]] == Blank)
                o = writeEscape(o - 1, p[-1]);
            *o++ = '\r';
            *o++ = '\n';
            lineStart = o;
            changed = true;
            ++p;
            continue;
        }
        if (limited && o - lineStart >= maxLineLength) {
            *o++ = '=';
            *o++ = '\n';
            lineStart = o;
            changed = true;
        }
        if (cls <= Blank) {
            // Copy the run of copied bytes that still fits on the line.
            qint64 room = end - p;
            if (limited)
                room = qMin<qint64>(room, maxLineLength - (o - lineStart));
            const unsigned char *const runEnd = p + room;
            do {
                *o++ = char(*p++);
            } while (p < runEnd && Tables.cls[*p] <= Blank);
        } else {
            o = writeEscape(o, b);
            changed = true;
            ++p;
        }
    }

    if (!changed)
        return false;
    const int used = int(o - begin);
    encoded.resize(used);
    if (bound - used > used / 8)
        encoded.squeeze(); // give back a large unused reserve
    data = encoded;
    return true;
}

bool decodeQuotedPrintable(QByteArray &data)
{
    if (data.isEmpty())
        return false;

    // Decoded bytes are never longer than their source, so the result is
    // compacted towards the front of the same array.
    char *const bytes = data.data();
    const int n = data.size();
    int read = 0;
    int write = 0;
    bool changed = false;
    while (read < n) {
        if (bytes[read] == '=' && read + 1 < n && bytes[read + 1] == '\n') {
            read += 2;
            changed = true;
        } else if (bytes[read] == '=' && read + 2 < n) {
            bytes[write++] = char(decodeEscape(bytes[read + 1], bytes[read + 2]));
            read += 3;
            changed = true;
        } else {
            stallOn(bytes + read);
        }
    }
    data.truncate(write);
    return changed;
}

QString encodeQuotedPrintable(const QString &text, int maxLineLength)
{
    if (text.isEmpty() || startsAndEndsAsWord(text))
        return text;

    QByteArray bytes = text.toUtf8();
    if (!encodeQuotedPrintable(bytes, maxLineLength))
        return text;

    QString word;
    word.reserve(bytes.size() + 12);
    word += QLatin1String("=?utf-8?Q?");
    word += QLatin1String(bytes);
    word += QLatin1String("?=");
    return word;
}

QString decodeQuotedPrintable(const QString &text)
{
    if (!startsAndEndsAsWord(text))
        return text;

    const QChar separator(QLatin1Char('?'));
    const QByteArray charset = text.section(separator, 1, 1).toLatin1();
    const QString encoding = text.section(separator, 2, 2);
    QByteArray bytes = text.section(separator, 3, 3).toLatin1();

    if (encoding.startsWith(QLatin1Char('B'), Qt::CaseInsensitive))
        bytes = QByteArray::fromBase64(bytes);
    else if (encoding.startsWith(QLatin1Char('Q'), Qt::CaseInsensitive))
        decodeQuotedPrintable(bytes);

    QTextCodec *codec = QTextCodec::codecForName(charset);
    if (!codec)
        return text;
    return codec->toUnicode(bytes);
}
