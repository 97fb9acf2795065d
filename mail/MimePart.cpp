#include "mail/MimePart.h"

#include "support/FileUtils.h"

#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QTextCodec>

namespace oru {

namespace {

const QString ContentType = QStringLiteral("Content-Type");
const QString ContentPrefix = QStringLiteral("Content");
const QString PlainTextType = QStringLiteral("text/plain");
const QString HtmlTextType = QStringLiteral("text/html");

// No limit on what a file may bring; wait up to 30 s for slow devices.
const qint64 FileCopyLimit = 4294967295LL;
const int FileCopyWaitMs = 30000;

} // namespace

MimePart::MimePart(const QString &contentType)
{
    headers.insert(ContentType, contentType);
}

void MimePart::clear()
{
    headers.clear();
    parts.clear();
    content.clear();
}

QString &MimePart::operator[](const QString &headerName)
{
    return headers[headerName];
}

QString MimePart::operator[](const QString &headerName) const
{
    return headers.value(headerName);
}

MimePart &MimePart::operator[](int index)
{
    if (index >= parts.size()) {
        parts.reserve(index + 1);
        while (parts.size() <= index)
            parts.append(MimePart(PlainTextType));
    }
    return parts[index];
}

const MimePart &MimePart::operator[](int index) const
{
    return parts.at(index);
}

MimePart &MimePart::operator<<(const MimePart &part)
{
    parts.append(part);
    return *this;
}

MimePart &MimePart::attach(const QString &contentType)
{
    parts.append(MimePart(contentType));
    return parts.last();
}

void MimePart::copyContentFrom(const MimePart &source)
{
    // Take shared copies first: source may live in the child list dropped below.
    const QByteArray sourceContent = source.content;
    const QMap<QString, QString> sourceHeaders = source.headers;

    content = sourceContent;
    for (auto it = sourceHeaders.lowerBound(ContentPrefix);
         it != sourceHeaders.cend() && it.key().startsWith(ContentPrefix); ++it) {
        headers.insert(it.key(), it.value());
    }
    parts.clear();
}

void MimePart::setContentDisposition(const QString &disposition, const QString &fileName)
{
    QString &value = headers[QStringLiteral("Content-Disposition")];
    if (fileName.isEmpty())
        value = disposition;
    else
        value = QStringLiteral("%1; filename=\"%2\"").arg(disposition, fileName);
}

void MimePart::setFile(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    QBuffer buffer(&content);
    buffer.open(QIODevice::ReadWrite);
    FileUtils::copy(file, buffer, FileCopyLimit, FileCopyWaitMs);
    file.close();
}

void MimePart::setImage(const QImage &image, const char *format)
{
    QBuffer buffer(&content);
    buffer.open(QIODevice::ReadWrite);
    image.save(&buffer, format, -1);
}

void MimePart::setText(const QString &text, const char *charset)
{
    QTextCodec *codec = charset ? QTextCodec::codecForName(charset) : nullptr;
    headers[ContentType] += QStringLiteral("; charset=") + QLatin1String(charset);
    content = codec ? codec->fromUnicode(text) : text.toUtf8();
}

void MimePart::setPlainText(const QString &text, const char *charset)
{
    headers[ContentType] = PlainTextType;
    setText(text, charset);
}

void MimePart::setHtmlText(const QString &text, const char *charset)
{
    headers[ContentType] = HtmlTextType;
    setText(text, charset);
}

} // namespace oru
