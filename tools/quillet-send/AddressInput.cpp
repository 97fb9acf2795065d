#include "AddressInput.h"

namespace send {

QStringList splitAddressText(const QString &text)
{
    QStringList pieces;
    bool quoted = false;
    int angle = 0;
    int start = 0;
    const auto take = [&](int end) {
        const QString piece = text.mid(start, end - start).trimmed();
        if (!piece.isEmpty())
            pieces.append(piece);
        start = end + 1;
    };
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == QLatin1Char('\\') && quoted) {
            ++i;  // an escaped character inside a quoted name
        } else if (c == QLatin1Char('"')) {
            quoted = !quoted;
        } else if (!quoted && c == QLatin1Char('<')) {
            ++angle;
        } else if (!quoted && c == QLatin1Char('>') && angle > 0) {
            --angle;
        } else if (!quoted && angle == 0 && (c == QLatin1Char(',') || c == QLatin1Char(';'))) {
            take(i);
        }
    }
    take(text.size());
    return pieces;
}

bool readAddresses(const QStringList &arguments, const QString &option,
                   QList<oru::MailAddress> *addresses, QString *error)
{
    for (const QString &argument : arguments) {
        const QStringList pieces = splitAddressText(argument);
        if (pieces.isEmpty()) {
            *error = QStringLiteral("%1: no address in \"%2\"").arg(option, argument);
            return false;
        }
        for (const QString &piece : pieces) {
            const oru::MailAddress address(piece);
            if (!address.isValid(false)) {
                *error = QStringLiteral("%1: \"%2\" is not a valid address").arg(option, piece);
                return false;
            }
            addresses->append(address);
        }
    }
    return true;
}

} // namespace send
