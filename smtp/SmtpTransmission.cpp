#include "smtp/SmtpClient.h"

#include "mail/QuotedPrintable.h"

#include <QDateTime>

#include <cstring>

namespace oru {

namespace {

// Raw bytes handed to the socket at a time, and how much may wait in its
// buffer before the writer blocks until some of it is sent. Together they
// bound the memory a large body needs beyond its own content.
const int kChunk = 3 * 64 * 1024;  // a multiple of 3: base64 chunks join seamlessly
const qint64 kHighWater = 1024 * 1024;
const int kWaitMs = 30000;

// Lets the socket's buffer drain below the high-water mark. Once a wait on
// the connection has run out, nothing waits here any more and the rest of
// the data is left to the buffer: a stalled server costs one wait, not one
// per part, and a server that is only slow still gets every byte.
void drain(QSslSocket* socket)
{
    while (socket->bytesToWrite() > kHighWater
           && socket->error() != QAbstractSocket::SocketTimeoutError) {
        if (!socket->waitForBytesWritten(kWaitMs))
            return;
    }
}

qint64 base64Length(qint64 size)
{
    return (size + 2) / 3 * 4;
}

// Hands bytes (or their base64 form) to the socket in chunks, waiting
// whenever too much is buffered. Stops early only when the connection is
// gone, as no byte can reach the server then.
void writeBody(QSslSocket* socket, const QByteArray& bytes, bool base64)
{
    for (int offset = 0; offset < bytes.size(); offset += kChunk) {
        if (socket->state() != QAbstractSocket::ConnectedState)
            break;
        const int n = qMin(kChunk, bytes.size() - offset);
        const QByteArray piece = QByteArray::fromRawData(bytes.constData() + offset, n);
        socket->write(base64 ? piece.toBase64() : piece);
        drain(socket);
    }
}

// The local date and time in Qt's text form. Finding the local time asks
// the system for the time zone each time, so messages begun within the same
// second share one text; the text form has no finer unit.
QString currentDateText()
{
    thread_local qint64 cachedSecond = -1;
    thread_local QString cachedText;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const qint64 second = now.toSecsSinceEpoch();
    if (second != cachedSecond) {
        cachedText = now.toLocalTime().toString(Qt::TextDate);
        cachedSecond = second;
    }
    return cachedText;
}

} // namespace

bool SmtpClient::send1Mail(SmtpJob* job, EMailPtr mail)
{
    EMail& m = *mail;
    if (m.htmlTextContent().isEmpty()) {
        // Plain text only: the text node replaces the skeleton.
        const MimePart plain = m.plainTextContent();
        if (m.parts.size() > 1)
            m.parts[0].copyContentFrom(plain);
        else
            m.copyContentFrom(plain);
    } else if (m.parts.size() == 1) {
        const MimePart only = m.parts.at(0);
        m.copyContentFrom(only);
    }

    QMap<QString, QString>& headers = m.headers;
    headers.insert(QStringLiteral("From"), m.from.toQuotedPrintable());
    if (!m.sender.isEmpty())
        headers.insert(QStringLiteral("Sender"), m.sender.toQuotedPrintable());
    if (!m.replyTo.isEmpty())
        headers.insert(QStringLiteral("Reply-To"), m.replyTo.toQuotedPrintable());
    headers.insert(QStringLiteral("To"), m.to.joinQuotedPrintable(QStringLiteral(",")));
    if (!m.cc.isEmpty())
        headers.insert(QStringLiteral("Cc"), m.cc.joinQuotedPrintable(QStringLiteral(",")));
    QString subject = m.subject;
    subject.remove(QLatin1Char('\n'));
    headers.insert(QStringLiteral("Subject"), encodeQuotedPrintable(subject, 0));
    headers.insert(QStringLiteral("Date"), currentDateText());
    headers.insert(QStringLiteral("MIME-Version"), QStringLiteral("1.0"));

    writeMime(job, m);
    writeLine(job, QStringLiteral("."));
    return conversation(job, QString(), 250);
}

void SmtpClient::writeMime(SmtpJob* job, MimePart& part)
{
    QByteArray body;  // the encoded text of a text node
    bool base64 = false;
    QString boundary;

    const bool hasBody = !part.isEmpty();
    if (hasBody) {
        qint64 length;
        if (part.headers.value(QStringLiteral("Content-Type"))
                .startsWith(QLatin1String("text"), Qt::CaseInsensitive)) {
            body = part.content;
            const bool changed = encodeQuotedPrintable(body, 76);
            part.headers.insert(QStringLiteral("Content-Transfer-Encoding"),
                                changed ? QStringLiteral("quoted-printable") : QStringLiteral("7bit"));
            length = body.size();
        } else {
            // Encoded while it is written, to keep large attachments from
            // being copied whole.
            base64 = true;
            part.headers.insert(QStringLiteral("Content-Transfer-Encoding"), QStringLiteral("base64"));
            length = base64Length(part.content.size());
        }
        part.headers.insert(QStringLiteral("Content-Length"), QString::number(length));
    }

    if (!part.parts.isEmpty()) {
        boundary = randomBoundary();
        QString& type = part.headers[QStringLiteral("Content-Type")];
        type += QLatin1String("; boundary=\"") + boundary + QLatin1Char('"');
    }

    for (auto it = part.headers.constBegin(); it != part.headers.constEnd(); ++it) {
        if (!it.value().isEmpty())
            writeLine(job, it.key() + QLatin1String(": ") + it.value());
    }
    writeLine(job, QString());

    if (hasBody) {
        if (base64) {
            writeBody(job->socket, part.content, true);
        } else {
            // The body counts as a zero-terminated string.
            body.truncate(int(qstrnlen(body.constData(), uint(body.size()))));
            writeBody(job->socket, body, false);
        }
        job->socket->write("\r\n", 2);
    }

    if (!part.parts.isEmpty()) {
        const QString separator = QLatin1String("--") + boundary;
        for (int i = 0; i < part.parts.size(); ++i) {
            writeLine(job, separator);
            writeMime(job, part.parts[i]);
        }
        writeLine(job, separator + QLatin1String("--"));
    }
}

QString SmtpClient::randomBoundary()
{
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    const int a = qrand();
    const int b = qrand();
    const int c = qrand();
    QT_WARNING_POP
    return QString::number(a, 16) + QString::number(b, 16) + QString::number(c, 16);
}

} // namespace oru
