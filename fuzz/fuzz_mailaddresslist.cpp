// Address-list splitting and joining: every way of filling a list, and every
// way of writing it back.
//
// Input: one mode byte (low two bits: how the rest is read as text, see
// fuzz::textFromBytes; bits 2-3: the separator for the text-and-separator
// constructor), then the text. Its lines also serve as a string list.
// Inputs with a piece whose display name the decoder cannot finish are
// skipped.

#include "FuzzSupport.h"

#include "mail/MailAddressList.h"

#include <QRegExp>
#include <QString>
#include <QStringList>

using oru::MailAddress;
using oru::MailAddressList;

namespace {

// Separators a caller may hand to split(); the first is the list's own.
QRegExp separatorFor(uint8_t mode)
{
    switch ((mode >> 2) & 3) {
    case 0:
        return MailAddressList::LIST_SEPARATOR;
    case 1:
        return QRegExp(QStringLiteral("\\s+"));
    case 2:
        return QRegExp(QStringLiteral("[\n|]"));
    default:
        return QRegExp(QStringLiteral(","), Qt::CaseSensitive, QRegExp::FixedString);
    }
}

int separatorCount(const QString &text)
{
    return text.count(QLatin1Char(',')) + text.count(QLatin1Char(';'));
}

void checkWriting(const MailAddressList &list)
{
    const QStringList plain = list.toStringList(false);
    const QStringList named = list.toStringList(true);
    const QStringList header = list.toQuotedPrintable();
    fuzz::require(plain.size() == list.size() && named.size() == list.size()
                      && header.size() == list.size(),
                  "one written string per entry");
    for (int i = 0; i < list.size(); ++i) {
        fuzz::require(plain.at(i) == list.at(i).address, "plain strings are the bare addresses");
        fuzz::require(list.at(i).isEmpty() == plain.at(i).isEmpty(),
                      "an empty entry gives an empty string");
    }

    // Joined forms keep every entry's place, empty ones included.
    const QString sep = QStringLiteral("\x1f");
    if (!plain.join(QString()).contains(sep)) {
        fuzz::require(list.join(sep, false).split(sep).size() == qMax(1, list.size()),
                      "plain join keeps one place per entry");
    }
    fuzz::require(list.join(sep, true) == named.join(sep), "join is the joined string list");
    fuzz::require(list.joinQuotedPrintable(QStringLiteral(",")) == header.join(QLatin1Char(',')),
                  "header join is the joined header strings");
    const QString asString = list;
    fuzz::require(asString == named.join(QStringLiteral(", ")), "conversion joins with \", \"");
    const QStringList asList = list;
    fuzz::require(asList == named, "conversion to QStringList is toStringList(true)");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    const uint8_t mode = input.byte();
    const QString text = fuzz::textFromBytes(mode, input.rest());
    const QRegExp separator = separatorFor(mode);
    const QStringList lines = text.split(QLatin1Char('\n'));

    const QStringList pieces = text.split(MailAddressList::LIST_SEPARATOR, Qt::KeepEmptyParts);
    if (!fuzz::addressParseReturns(pieces) || !fuzz::addressParseReturns(lines)
        || !fuzz::addressParseReturns(text.split(separator, Qt::KeepEmptyParts)))
        return 0;

    // Assigning text replaces; appending text keeps what was there.
    MailAddressList list;
    list = text;
    fuzz::require(list.size() == separatorCount(text) + 1, "one entry per separated piece");
    checkWriting(list);

    MailAddressList appended(lines);
    const int before = appended.size();
    appended << text;
    fuzz::require(appended.size() == before + separatorCount(text) + 1,
                  "appending text keeps the entries and adds one per piece");
    for (int i = 0; i < before; ++i)
        fuzz::require(appended.at(i).address == MailAddress(lines.at(i)).address,
                      "appending keeps earlier entries in order");
    checkWriting(appended);

    // String lists: one entry per string, replacing or appending.
    MailAddressList fromLines;
    fromLines = lines;
    fuzz::require(fromLines.size() == lines.size(), "one entry per string");
    fromLines << lines;
    fuzz::require(fromLines.size() == 2 * lines.size(), "appending strings adds one each");
    checkWriting(fromLines);

    // Lists of addresses.
    MailAddressList copy(static_cast<const QList<MailAddress> &>(list));
    fuzz::require(copy == list, "a copied list equals its source");
    copy << static_cast<const QList<MailAddress> &>(fromLines);
    fuzz::require(copy.size() == list.size() + fromLines.size(), "appending a list adds all");
    copy = static_cast<const QList<MailAddress> &>(fromLines);
    fuzz::require(copy.size() == fromLines.size(), "assigning a list replaces the contents");

    // The text-and-separator constructor and split() with other separators.
    MailAddressList custom(text, separator);
    const int customSize = custom.size();
    fuzz::require(customSize == text.split(separator, Qt::KeepEmptyParts).size(),
                  "one entry per piece between separator matches");
    custom.split(text, separator);
    fuzz::require(custom.size() == 2 * customSize, "split appends");
    checkWriting(custom);
    return 0;
}
