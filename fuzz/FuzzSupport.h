// Helpers shared by the fuzz targets: reading the fuzz input, turning bytes
// into text, failing loudly, and telling ahead of time whether a text would
// reach the quoted-printable decoder paths that never return.
#ifndef QUILLET_FUZZ_FUZZSUPPORT_H
#define QUILLET_FUZZ_FUZZSUPPORT_H

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>

namespace fuzz {

/// Reads the fuzz input front to back; reading past the end gives zeros.
class Input
{
public:
    Input(const uint8_t *data, size_t size) : m_data(data), m_size(size) {}

    uint8_t byte() { return m_pos < m_size ? m_data[m_pos++] : 0; }
    bool atEnd() const { return m_pos >= m_size; }
    size_t remaining() const { return m_size - m_pos; }
    /// Everything not read yet; the input is used up.
    QByteArray rest();
    /// At most n bytes.
    QByteArray take(size_t n);

private:
    const uint8_t *m_data;
    size_t m_size;
    size_t m_pos = 0;
};

/// Text in one of four readings of the bytes, chosen by mode (low two bits):
/// UTF-8, Latin-1, UTF-16 (host order, unpaired surrogates kept) and UCS-4.
QString textFromBytes(uint8_t mode, const QByteArray &bytes);

/// All of bytes as Latin-1 text, zero bytes included (Qt's QByteArray
/// overloads stop at the first zero byte).
QString latin1Text(const QByteArray &bytes);

/// Prints what failed and aborts, so that libFuzzer records the input.
void require(bool ok, const char *what);

/// Silences Qt's own warnings (socket errors and the like) for the process.
void quietQtMessages();

/// True when the library's byte decoder returns on bytes: every scanned
/// position must hold "=" starting a soft break "=" LF or an escape with two
/// bytes after it.
bool byteDecoderReturns(const QByteArray &bytes);

/// True when the library's string decoder returns on text: anything but a
/// Q-encoded word whose inner text fails byteDecoderReturns().
bool wordDecoderReturns(const QString &text);

/// True when parsing text as one address returns: the display name that
/// parsing takes from it is decoded as a word, so it must pass
/// wordDecoderReturns(). Checks the name under both ways of finding it (the
/// text trimmed first or searched as it is), so that it errs on the safe side.
bool addressParseReturns(const QString &text);
bool addressParseReturns(const QStringList &texts);

/// Standard quoted-printable reading of encoded: "=" LF is removed, CR LF
/// becomes LF, "=XY" with upper-case hex digits is the byte 0xXY, and every
/// other byte stands for itself. Clears *wellFormed (when given) on an "="
/// that starts neither form or a CR that is not followed by LF.
QByteArray standardDecode(const QByteArray &encoded, bool *wellFormed);

} // namespace fuzz

#endif
