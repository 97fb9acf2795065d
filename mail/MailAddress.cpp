#include "mail/MailAddress.h"

#include "mail/QuotedPrintable.h"
#include "support/IPAddress.h"

#include <cstring>

namespace oru {

namespace {

bool isAsciiLetterOrDigit(uint c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool isLocalPartSymbol(uint c)
{
    static const char Symbols[] = "!#$%&'*+-/=?^_`{|}~.";
    return c != 0 && c < 0x80 && std::strchr(Symbols, int(c)) != nullptr;
}

bool isInternationalLetterOrNumber(uint c)
{
    return c >= 0x80 && QChar::isLetterOrNumber(c);
}

// Checks every character of text[from, to) with accept(); surrogate pairs are
// checked as the one character they encode.
template <typename Accept>
bool allCharacters(const QString &text, int from, int to, Accept accept)
{
    for (int i = from; i < to; ++i) {
        uint c = text.at(i).unicode();
        if (QChar::isHighSurrogate(c) && i + 1 < to && text.at(i + 1).isLowSurrogate()) {
            c = QChar::surrogateToUcs4(ushort(c), text.at(i + 1).unicode());
            ++i;
        }
        if (!accept(c))
            return false;
    }
    return true;
}

QString unquotedName(QString name)
{
    name = name.trimmed();
    if (name.startsWith(QLatin1Char('"')))
        name = name.mid(1).trimmed();
    if (name.endsWith(QLatin1Char('"')))
        name = name.left(name.size() - 1).trimmed();
    return decodeQuotedPrintable(name);
}

QString withNameForm(const QString &name, const QString &address)
{
    return QStringLiteral("\"%1\" <%2>").arg(name, address);
}

} // namespace

MailAddress::MailAddress() = default;

MailAddress::MailAddress(const QString &text)
{
    parse(text);
}

MailAddress::MailAddress(const char *text)
{
    parse(QString::fromLocal8Bit(text));
}

MailAddress::MailAddress(const wchar_t *text)
{
    QString converted;
    if (text) {
        if constexpr (sizeof(wchar_t) == sizeof(uint))
            converted = QString::fromUcs4(reinterpret_cast<const uint *>(text));
        else
            converted = QString::fromWCharArray(text);
    }
    parse(converted);
}

MailAddress::MailAddress(const QString &name, const QString &address)
    : address(address.trimmed())
    , name(name.trimmed())
{
}

void MailAddress::parse(const QString &input)
{
    const QString text = input.trimmed();
    const int open = text.lastIndexOf(QLatin1Char('<'));
    const int close = text.lastIndexOf(QLatin1Char('>'));
    const int space = text.lastIndexOf(QLatin1Char(' '));

    QString rawName;
    if (open >= 0) {
        // A ">" before the "<" does not end the address: it runs to the end.
        const bool closed = close > open;
        address = (closed ? text.mid(open + 1, close - open - 1) : text.mid(open + 1)).trimmed();
        rawName = text.left(open);
    } else if (space < 0) {
        address = text;
    } else {
        address = text.mid(space + 1).trimmed();
        rawName = text.left(space);
    }
    name = unquotedName(rawName);
}

QString MailAddress::toString(bool withName) const
{
    if (withName && !name.isEmpty())
        return withNameForm(name, address);
    return address;
}

QString MailAddress::toQuotedPrintable() const
{
    if (name.isEmpty())
        return address;
    return withNameForm(encodeQuotedPrintable(name, 0), address);
}

void MailAddress::clear()
{
    address.clear();
    name.clear();
}

bool MailAddress::isValid(bool asciiOnly) const
{
    const int at = address.indexOf(QLatin1Char('@'));
    if (at < 0)
        return false;
    return isValidLocalPart(address.left(at), asciiOnly)
        && isValidDomainName(address.mid(at + 1), asciiOnly);
}

bool MailAddress::isValidLocalPart(const QString &localPart, bool asciiOnly)
{
    if (localPart.isEmpty())
        return false;
    int from = 0;
    int to = localPart.size();
    if (localPart.startsWith(QLatin1Char('"')) && localPart.endsWith(QLatin1Char('"'))) {
        ++from;
        --to;
    }
    if (to <= from)
        return false;
    if (localPart.at(from) == QLatin1Char('.') || localPart.at(to - 1) == QLatin1Char('.'))
        return false;
    return allCharacters(localPart, from, to, [asciiOnly](uint c) {
        return isAsciiLetterOrDigit(c) || isLocalPartSymbol(c)
            || (!asciiOnly && isInternationalLetterOrNumber(c));
    });
}

bool MailAddress::isValidDomainName(const QString &domain, bool asciiOnly)
{
    if (domain.isEmpty() || domain.startsWith(QLatin1Char('.')))
        return false;
    if (domain.startsWith(QLatin1Char('[')) && domain.endsWith(QLatin1Char(']')))
        return IPAddress::isIPv4Address(domain.mid(1, domain.size() - 2).toUtf8());
    if (domain.endsWith(QLatin1Char('.')))
        return false;
    return allCharacters(domain, 0, domain.size(), [asciiOnly](uint c) {
        return isAsciiLetterOrDigit(c) || c == '-' || c == '.'
            || (!asciiOnly && isInternationalLetterOrNumber(c));
    });
}

} // namespace oru
