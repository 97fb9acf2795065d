// One e-mail address with an optional display name.
#ifndef QUILLET_MAIL_MAILADDRESS_H
#define QUILLET_MAIL_MAILADDRESS_H

#include "quillet_export.h"

#include <QMetaType>
#include <QString>

namespace oru {

/// An e-mail address ("local@domain") and its display name. Parsing takes any
/// text and never fails; validity is asked for separately with isValid().
/// Two addresses are equal when their address fields are equal; names do not
/// count. An address with a name but no address is empty.
class QUILLET_EXPORT MailAddress
{
public:
    MailAddress();
    /// Parses text (see parse()).
    MailAddress(const QString &text);
    /// Parses text given in the local 8-bit encoding.
    explicit MailAddress(const char *text);
    /// Parses zero-terminated UCS-4 text.
    explicit MailAddress(const wchar_t *text);
    /// Takes name and address as they are, trimmed; nothing is parsed.
    MailAddress(const QString &name, const QString &address);

    /// Sets both fields from "Name <addr>", "<addr>", "Name addr" or "addr".
    /// White space around the text is ignored. With a "<", the address is
    /// what follows the last "<" up to the last ">" (or to the end when there
    /// is no ">" after it) and the name what precedes it; otherwise the text
    /// is split at its last space. Surrounding quotes are taken off the name,
    /// and a name that is one encoded word "=?charset?B|Q?...?=" is decoded.
    /// Comments, escaped quotes and groups are not recognised.
    void parse(const QString &text);

    /// With withName and a non-empty name: "\"name\" <address>", the name
    /// inserted as it is; otherwise the bare address.
    QString toString(bool withName = true) const;
    operator QString() const { return toString(true); }

    /// Header form: like toString(true), but the name passes through the
    /// quoted-printable word encoder, so a name that needs encoding appears as
    /// "\"=?utf-8?Q?...?=\" <address>". The address is never encoded.
    QString toQuotedPrintable() const;

    void clear();
    bool isEmpty() const { return address.isEmpty(); }

    bool operator==(const MailAddress &other) const { return address == other.address; }
    bool operator!=(const MailAddress &other) const { return !(*this == other); }
    bool operator==(const QString &other) const { return address == other; }
    bool operator!=(const QString &other) const { return !(*this == other); }

    /// True when the address has an "@" and the parts before and after the
    /// first "@" pass isValidLocalPart() and isValidDomainName().
    bool isValid(bool asciiOnly) const;

    /// A local part of ASCII letters, digits and !#$%&'*+-/=?^_`{|}~. that
    /// neither starts nor ends with "." (consecutive dots pass). A part in
    /// double quotes is checked without them, against the same characters.
    /// Without asciiOnly, non-ASCII letters and numbers pass too.
    static bool isValidLocalPart(const QString &localPart, bool asciiOnly);

    /// A domain of ASCII letters, digits, "-" and "." that neither starts nor
    /// ends with "."; no length, label or hyphen rules, so "localhost" passes.
    /// "[...]" is an address literal and must hold a dotted IPv4 address.
    /// Without asciiOnly, non-ASCII letters and numbers pass too.
    static bool isValidDomainName(const QString &domain, bool asciiOnly);

    QString address; ///< The bare address, without angle brackets.
    QString name;    ///< The display name, without quotes; may be empty.
};

} // namespace oru

Q_DECLARE_TYPEINFO(oru::MailAddress, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(oru::MailAddress)

#endif
