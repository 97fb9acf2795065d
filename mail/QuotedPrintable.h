// Quoted-printable bodies and header encoded words.
#ifndef QUILLET_MAIL_QUOTEDPRINTABLE_H
#define QUILLET_MAIL_QUOTEDPRINTABLE_H

#include "quillet_export.h"

#include <QByteArray>
#include <QString>

/// Encodes data in place, one pass from the first byte. A LF becomes CR LF.
/// With maxLineLength of 1 or more, a line that already holds maxLineLength
/// characters when the next input byte is reached gets a soft break "=" LF
/// (no CR) in front of that byte; escapes are never split, so a broken line
/// carries up to maxLineLength + 2 characters before its "=". Escaped as "=XX"
/// (upper-case hex): TAB or SPACE right before a LF, every other byte below
/// 0x20 (CR included), 0x7F to 0xFF, and ".", "=", "?". Space and "_" are kept.
/// Returns true when anything was inserted or escaped.
QUILLET_EXPORT bool encodeQuotedPrintable(QByteArray &data, int maxLineLength);

/// Decodes data in place. "=" LF is a soft break and is removed. "=" and two
/// digit bytes c1 c2 become one byte: with v(c) = c - 55 for c above "@" and
/// c - 48 otherwise (c read as a signed byte), the byte is the low eight bits
/// of v(c1) << ((v(c2) + 4) mod 32). So "=20" gives 0x20 and "=41" gives 0x80,
/// while "=3D" gives 0x00. The data must consist of such sequences only: any
/// other byte, or an "=" among the last two bytes that is not a soft break,
/// makes the call wait on that byte for ever. Returns true when data changed;
/// false for empty data.
QUILLET_EXPORT bool decodeQuotedPrintable(QByteArray &data);

/// Returns text unchanged when it is empty, already looks like an encoded word
/// (starts with "=?" and ends with "?="), or when its UTF-8 bytes need no
/// quoted-printable escape. Otherwise returns exactly one word
/// "=?utf-8?Q?...?=" holding the encoded bytes, however long; spaces stay
/// spaces. Header callers pass 0 as maxLineLength (no soft breaks).
QUILLET_EXPORT QString encodeQuotedPrintable(const QString &text, int maxLineLength);

/// Decodes text that is one encoded word "=?charset?enc?data?=" from its first
/// to its last character; any other text is returned as it is. Encoding "B"
/// is base64, "Q" runs the byte decoder above ("_" stays "_"), anything else
/// takes the bytes as they are. The bytes are then read in the named charset;
/// a charset unknown to Qt's codec registry returns the text unchanged.
QUILLET_EXPORT QString decodeQuotedPrintable(const QString &text);

#endif
