// Reading the address arguments of quillet-send.
#ifndef QUILLET_SEND_ADDRESSINPUT_H
#define QUILLET_SEND_ADDRESSINPUT_H

#include <Quillet.h>

#include <QList>
#include <QString>
#include <QStringList>

namespace send {

/// Splits one argument into address texts at commas and semicolons that
/// stand outside double quotes and angle brackets. Pieces are trimmed and
/// empty pieces dropped, so "a@x, b@y," gives two.
QStringList splitAddressText(const QString &text);

/// Parses every piece of every argument into an address and checks it.
/// On a piece that is not a valid address, returns false with an error that
/// names the option ("--to: ...").
bool readAddresses(const QStringList &arguments, const QString &option,
                   QList<oru::MailAddress> *addresses, QString *error);

} // namespace send

#endif
