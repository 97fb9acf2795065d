// Textual IPv4 address test used by the address validator.
#ifndef QUILLET_SUPPORT_IPADDRESS_H
#define QUILLET_SUPPORT_IPADDRESS_H

#include <QByteArray>

namespace oru {

/// Tests of textual IP addresses.
class IPAddress
{
public:
    /// True when text is a strict dotted quad. Grammar:
    ///   address = field "." field "." field "." field
    ///   field   = "0" | nonzero-digit [ digit [ digit ] ]   (value 0 to 255)
    /// Nothing else is accepted: no leading zeros ("010"), no signs, no white
    /// space, no empty fields, no trailing dot, no shorter forms ("10.1").
    static bool isIPv4Address(const QByteArray &text);
};

} // namespace oru

#endif
