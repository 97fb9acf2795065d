#include "FuzzSupport.h"

#include <QChar>
#include <QVector>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fuzz {

namespace {

void dropMessage(QtMsgType, const QMessageLogContext &, const QString &)
{
}

// The cleaning the parser applies to a raw display name before decoding it.
QString cleanedName(QString name)
{
    name = name.trimmed();
    if (name.startsWith(QLatin1Char('"')))
        name = name.mid(1).trimmed();
    if (name.endsWith(QLatin1Char('"')))
        name = name.left(name.size() - 1).trimmed();
    return name;
}

// The raw display name of text: before the last "<" when there is one, else
// before the last space, else nothing.
QString rawName(const QString &text)
{
    const int open = text.lastIndexOf(QLatin1Char('<'));
    if (open >= 0)
        return text.left(open);
    const int space = text.lastIndexOf(QLatin1Char(' '));
    return space >= 0 ? text.left(space) : QString();
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

QByteArray Input::rest()
{
    return take(remaining());
}

QByteArray Input::take(size_t n)
{
    if (n > remaining())
        n = remaining();
    const QByteArray bytes(reinterpret_cast<const char *>(m_data + m_pos), int(n));
    m_pos += n;
    return bytes;
}

QString textFromBytes(uint8_t mode, const QByteArray &bytes)
{
    switch (mode & 3) {
    case 0:
        return QString::fromUtf8(bytes.constData(), bytes.size());
    case 1:
        return latin1Text(bytes);
    case 2: {
        QVector<char16_t> units(bytes.size() / 2);
        std::memcpy(units.data(), bytes.constData(), size_t(units.size()) * 2);
        return QString::fromUtf16(units.constData(), units.size());
    }
    default: {
        QVector<uint> points(bytes.size() / 4);
        std::memcpy(points.data(), bytes.constData(), size_t(points.size()) * 4);
        return QString::fromUcs4(points.constData(), points.size());
    }
    }
}

QString latin1Text(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.constData(), bytes.size());
}

void require(bool ok, const char *what)
{
    if (ok)
        return;
    std::fprintf(stderr, "fuzz invariant failed: %s\n", what);
    std::abort();
}

void quietQtMessages()
{
    qInstallMessageHandler(dropMessage);
}

bool byteDecoderReturns(const QByteArray &bytes)
{
    const int n = bytes.size();
    int p = 0;
    while (p < n) {
        if (bytes.at(p) != '=')
            return false;
        if (p + 1 < n && bytes.at(p + 1) == '\n')
            p += 2;
        else if (p + 2 < n)
            p += 3;
        else
            return false;
    }
    return true;
}

bool wordDecoderReturns(const QString &text)
{
    if (!text.startsWith(QLatin1String("=?")) || !text.endsWith(QLatin1String("?=")))
        return true;
    const QChar separator(QLatin1Char('?'));
    const QString encoding = text.section(separator, 2, 2);
    if (encoding.startsWith(QLatin1Char('B'), Qt::CaseInsensitive))
        return true;
    if (!encoding.startsWith(QLatin1Char('Q'), Qt::CaseInsensitive))
        return true;
    return byteDecoderReturns(text.section(separator, 3, 3).toLatin1());
}

bool addressParseReturns(const QString &text)
{
    return wordDecoderReturns(cleanedName(rawName(text.trimmed())))
        && wordDecoderReturns(cleanedName(rawName(text)));
}

bool addressParseReturns(const QStringList &texts)
{
    for (const QString &text : texts) {
        if (!addressParseReturns(text))
            return false;
    }
    return true;
}

QByteArray standardDecode(const QByteArray &encoded, bool *wellFormed)
{
    QByteArray out;
    out.reserve(encoded.size());
    bool ok = true;
    const int n = encoded.size();
    for (int i = 0; i < n; ++i) {
        const char c = encoded.at(i);
        if (c == '=') {
            if (i + 1 < n && encoded.at(i + 1) == '\n') {
                ++i;
                continue;
            }
            const int high = i + 1 < n ? hexValue(encoded.at(i + 1)) : -1;
            const int low = i + 2 < n ? hexValue(encoded.at(i + 2)) : -1;
            if (high < 0 || low < 0) {
                ok = false;
                out.append(c);
                continue;
            }
            out.append(char(high * 16 + low));
            i += 2;
        } else if (c == '\r') {
            if (i + 1 < n && encoded.at(i + 1) == '\n')
                continue;
            ok = false;
            out.append(c);
        } else {
            out.append(c);
        }
    }
    if (wellFormed)
        *wellFormed = ok;
    return out;
}

} // namespace fuzz
