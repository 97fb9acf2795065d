#include "mail/QuotedPrintable.h"

#include <QTextCodec>

#include <limits>

namespace {

// What the encoder does with a byte when no line break is due.
enum ByteClass : unsigned char {
    Keep,    // copied as it is
    Escape,  // written as "=XX"
    LineEnd, // LF: becomes CR LF and starts a new line
    Blank    // TAB or SPACE: escaped only when a LF follows
};

struct ByteClassTable
{
    ByteClass cls[256];

    constexpr ByteClassTable() : cls()
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
        }
    }
};

constexpr ByteClassTable Classes;
constexpr char HexDigits[] = "0123456789ABCDEF";

// Growable output buffer: the caller makes sure of room before each write.
class Output
{
public:
    explicit Output(qint64 estimate)
    {
        m_bytes.resize(clamped(estimate));
        m_begin = m_bytes.data();
        m_pos = m_begin;
        m_end = m_begin + m_bytes.size();
    }

    void ensure(int room)
    {
        if (m_end - m_pos >= room)
            return;
        const int used = int(m_pos - m_begin);
        const qint64 size = m_bytes.size();
        const qint64 needed = qint64(used) + room;
        if (needed > MaxSize)
            qBadAlloc();
        m_bytes.resize(clamped(qMax(size + size / 2, needed) + 16));
        m_begin = m_bytes.data();
        m_pos = m_begin + used;
        m_end = m_begin + m_bytes.size();
    }

    int size() const { return int(m_pos - m_begin); }
    char *pos() { return m_pos; }
    void advance(int n) { m_pos += n; }

    void put(char c) { *m_pos++ = c; }

    void escape(unsigned char b)
    {
        m_pos[0] = '=';
        m_pos[1] = HexDigits[b >> 4];
        m_pos[2] = HexDigits[b & 0xF];
        m_pos += 3;
    }

    QByteArray take()
    {
        m_bytes.resize(size());
        m_bytes.squeeze();
        return m_bytes;
    }

private:
    // Largest size asked of QByteArray; its own limit lies a little above.
    static constexpr qint64 MaxSize = std::numeric_limits<int>::max() - 64;

    static int clamped(qint64 size) { return int(qMin(size, MaxSize)); }

    QByteArray m_bytes;
    char *m_begin = nullptr;
    char *m_pos = nullptr;
    char *m_end = nullptr;
};

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

    const unsigned char *in = reinterpret_cast<const unsigned char *>(data.constData());
    const bool limited = maxLineLength >= 1;
    Output out(qint64(n) + n / 4 + 16);
    int lineStart = 0;
    bool changed = false;

    for (int i = 0; i < n; ++i) {
        // Room for the worst case of one input byte: soft break plus escape.
        out.ensure(5);
        const unsigned char b = in[i];
        const ByteClass cls = Classes.cls[b];
        if (cls == LineEnd) {
            out.put('\r');
            out.put('\n');
            lineStart = out.size();
            changed = true;
            continue;
        }
        if (limited && out.size() - lineStart >= maxLineLength) {
            out.put('=');
            out.put('\n');
            lineStart = out.size();
            changed = true;
        }
        switch (cls) {
        case Keep: {
            // Copy the run of plain bytes that fits on the current line.
            int run = n - i;
            if (limited)
                run = qMin(run, maxLineLength - (out.size() - lineStart));
            out.ensure(run);
            char *o = out.pos();
            int k = 0;
            do {
                o[k] = char(in[i + k]);
                ++k;
            } while (k < run && Classes.cls[in[i + k]] == Keep);
            out.advance(k);
            i += k - 1;
            break;
        }
        case Blank:
            if (i + 1 < n && in[i + 1] == '\n') {
                out.escape(b);
                changed = true;
            } else {
                out.put(char(b));
            }
            break;
        case Escape:
            out.escape(b);
            changed = true;
            break;
        case LineEnd:
            break;
        }
    }

    if (changed)
        data = out.take();
    return changed;
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
