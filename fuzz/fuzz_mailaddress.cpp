// Address parsing, validation and both written forms on any text.
//
// Input: one mode byte (its low two bits choose how the rest is read as text,
// see fuzz::textFromBytes), then the text. The text is parsed through each
// constructor; its two halves around the first line feed also make a name
// and an address taken as they are. Texts whose display name would be a
// Q-encoded word that the decoder cannot finish are skipped.

#include "FuzzSupport.h"

#include "mail/MailAddress.h"

#include <QByteArray>
#include <QString>

#include <vector>

using oru::MailAddress;

namespace {

bool isAscii(const QString &text)
{
    for (const QChar c : text) {
        if (c.unicode() >= 0x80)
            return false;
    }
    return true;
}

void checkOutputs(const MailAddress &a)
{
    fuzz::require(a.isEmpty() == a.address.isEmpty(), "isEmpty follows the address");
    fuzz::require(a.toString(false) == a.address, "toString(false) is the bare address");
    fuzz::require(a == a.address, "an address equals its own address text");

    const QString withName = a.toString(true);
    const QString header = a.toQuotedPrintable();
    const QString tail = QLatin1String(" <") + a.address + QLatin1Char('>');
    if (a.name.isEmpty()) {
        fuzz::require(withName == a.address, "toString(true) without a name is the bare address");
        fuzz::require(header == a.address, "header form without a name is the bare address");
    } else {
        fuzz::require(withName == QLatin1Char('"') + a.name + QLatin1Char('"') + tail,
                      "toString(true) is the quoted name and the bracketed address");
        fuzz::require(header.startsWith(QLatin1Char('"')) && header.endsWith(QLatin1Char('"') + tail),
                      "header form is a quoted name and the bracketed address");
    }
    const QString defaultForm = a;
    fuzz::require(defaultForm == withName, "conversion to QString is toString(true)");
}

void checkValidity(const MailAddress &a)
{
    const bool ascii = a.isValid(true);
    const bool international = a.isValid(false);
    fuzz::require(!ascii || international, "an ASCII-valid address is valid without the flag");
    fuzz::require(!ascii || isAscii(a.address), "an ASCII-valid address is ASCII");
    fuzz::require(!international || a.address.contains(QLatin1Char('@')),
                  "a valid address has an @");

    // The raw address text as a local part and as a domain.
    for (const QString &part : {a.address, a.name}) {
        const bool localAscii = MailAddress::isValidLocalPart(part, true);
        fuzz::require(!localAscii || MailAddress::isValidLocalPart(part, false),
                      "local part: ASCII-valid implies valid");
        const bool domainAscii = MailAddress::isValidDomainName(part, true);
        fuzz::require(!domainAscii || MailAddress::isValidDomainName(part, false),
                      "domain: ASCII-valid implies valid");
        fuzz::require(!domainAscii || isAscii(part), "an ASCII-valid domain is ASCII");
    }
}

void checkParsed(const MailAddress &a)
{
    fuzz::require(a.address == a.address.trimmed(), "a parsed address is trimmed");
    checkOutputs(a);
    checkValidity(a);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    const uint8_t mode = input.byte();
    const QByteArray bytes = input.rest();
    const QString text = fuzz::textFromBytes(mode, bytes);

    if (fuzz::addressParseReturns(text)) {
        MailAddress a(text);
        checkParsed(a);

        MailAddress again;
        again.parse(text);
        fuzz::require(again.address == a.address && again.name == a.name,
                      "parse gives what the constructor gives");
        again.clear();
        fuzz::require(again.isEmpty() && again.name.isEmpty(), "clear empties both fields");
    }

    // 8-bit text up to its first zero byte.
    const QByteArray zeroTerminated(bytes.constData());
    if (fuzz::addressParseReturns(QString::fromLocal8Bit(zeroTerminated.constData())))
        checkParsed(MailAddress(zeroTerminated.constData()));

    // Wide text up to its first zero character.
    std::vector<wchar_t> wide(bytes.size() / sizeof(wchar_t) + 1, L'\0');
    for (size_t i = 0; i + 1 < wide.size(); ++i) {
        uint32_t v = 0;
        for (size_t k = 0; k < sizeof(wchar_t); ++k)
            v |= uint32_t(uint8_t(bytes.at(int(i * sizeof(wchar_t) + k)))) << (8 * k);
        wide[i] = wchar_t(v);
    }
    const QString wideText = QString::fromUcs4(reinterpret_cast<const uint *>(wide.data()));
    if (fuzz::addressParseReturns(wideText))
        checkParsed(MailAddress(wide.data()));

    // Name and address given apart are never parsed or decoded.
    const int split = text.indexOf(QLatin1Char('\n'));
    const MailAddress given(split < 0 ? QString() : text.left(split), text.mid(split + 1));
    fuzz::require(given.name == given.name.trimmed() && given.address == given.address.trimmed(),
                  "name and address given apart are trimmed");
    checkOutputs(given);
    checkValidity(given);
    return 0;
}
