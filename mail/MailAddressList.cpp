#include "mail/MailAddressList.h"

namespace oru {

const QRegExp MailAddressList::LIST_SEPARATOR(QStringLiteral("[,;]"), Qt::CaseSensitive, QRegExp::RegExp);

MailAddressList::MailAddressList() = default;

MailAddressList::MailAddressList(const QList<MailAddress> &addresses)
    : QList<MailAddress>(addresses)
{
}

MailAddressList::MailAddressList(const QStringList &texts)
{
    *this << texts;
}

MailAddressList::MailAddressList(const QString &text, const QRegExp &separator)
{
    split(text, separator);
}

void MailAddressList::split(const QString &text, const QRegExp &separator)
{
    const QStringList pieces = text.split(separator, Qt::KeepEmptyParts);
    reserve(size() + pieces.size());
    for (const QString &piece : pieces)
        append(MailAddress(piece));
}

MailAddressList &MailAddressList::operator=(const QStringList &texts)
{
    clear();
    return *this << texts;
}

MailAddressList &MailAddressList::operator=(const QList<MailAddress> &addresses)
{
    QList<MailAddress>::operator=(addresses);
    return *this;
}

MailAddressList &MailAddressList::operator=(const QString &text)
{
    clear();
    split(text, LIST_SEPARATOR);
    return *this;
}

MailAddressList &MailAddressList::operator<<(const QStringList &texts)
{
    reserve(size() + texts.size());
    for (const QString &text : texts)
        append(MailAddress(text));
    return *this;
}

MailAddressList &MailAddressList::operator<<(const QList<MailAddress> &addresses)
{
    append(addresses);
    return *this;
}

MailAddressList &MailAddressList::operator<<(const QString &text)
{
    split(text, LIST_SEPARATOR);
    return *this;
}

MailAddressList &MailAddressList::operator<<(const MailAddress &address)
{
    append(address);
    return *this;
}

QStringList MailAddressList::toStringList(bool withName) const
{
    QStringList strings;
    strings.reserve(size());
    for (const MailAddress &address : *this)
        strings.append(address.toString(withName));
    return strings;
}

QStringList MailAddressList::toQuotedPrintable() const
{
    QStringList strings;
    strings.reserve(size());
    for (const MailAddress &address : *this)
        strings.append(address.toQuotedPrintable());
    return strings;
}

QString MailAddressList::join(const QString &separator, bool withName) const
{
    return toStringList(withName).join(separator);
}

QString MailAddressList::joinQuotedPrintable(const QString &separator) const
{
    return toQuotedPrintable().join(separator);
}

MailAddressList::operator QString() const
{
    return join(QStringLiteral(", "), true);
}

} // namespace oru
