// An ordered list of mail addresses.
#ifndef QUILLET_MAIL_MAILADDRESSLIST_H
#define QUILLET_MAIL_MAILADDRESSLIST_H

#include "quillet_export.h"
#include "mail/MailAddress.h"

#include <QList>
#include <QRegExp>
#include <QStringList>

namespace oru {

/// A list of addresses, built from separated text or from strings, and
/// written back as strings. Order, duplicates and empty entries are kept.
/// Text is split at every comma or semicolon, also inside quoted names, and
/// every piece, even an empty one, becomes an entry.
class QUILLET_EXPORT MailAddressList : public QList<MailAddress>
{
public:
    /// "[,;]": a comma or a semicolon separates entries.
    static const QRegExp LIST_SEPARATOR;

    MailAddressList();
    MailAddressList(const QList<MailAddress> &addresses);
    /// One entry parsed from each string.
    explicit MailAddressList(const QStringList &texts);
    /// The entries of text, split at separator (see split()).
    explicit MailAddressList(const QString &text, const QRegExp &separator = LIST_SEPARATOR);

    /// Appends one entry per piece of text between separator matches. Pieces
    /// are neither trimmed nor skipped: "" gives one empty entry and
    /// "a@example.org," gives a second, empty one.
    void split(const QString &text, const QRegExp &separator = LIST_SEPARATOR);

    /// Replaces the contents.
    MailAddressList &operator=(const QStringList &texts);
    MailAddressList &operator=(const QList<MailAddress> &addresses);
    MailAddressList &operator=(const QString &text);

    /// Appends.
    MailAddressList &operator<<(const QStringList &texts);
    MailAddressList &operator<<(const QList<MailAddress> &addresses);
    MailAddressList &operator<<(const QString &text);
    MailAddressList &operator<<(const MailAddress &address);

    /// One string per entry, empty entries giving empty strings.
    QStringList toStringList(bool withName) const;
    QStringList toQuotedPrintable() const;
    QString join(const QString &separator, bool withName) const;
    QString joinQuotedPrintable(const QString &separator) const;

    operator QStringList() const { return toStringList(true); }
    /// The entries with names, joined with ", ".
    operator QString() const;
};

} // namespace oru

Q_DECLARE_METATYPE(oru::MailAddressList)

#endif
