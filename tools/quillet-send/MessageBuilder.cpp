#include "MessageBuilder.h"

#include "AddressInput.h"

#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QUrl>

#include <cstdio>

namespace send {

namespace {

// The whole of a file, or of standard input for "-", as UTF-8 text with
// line feeds for line ends.
bool readTextFile(const QString &path, const QString &option, QString *text, QString *error)
{
    QFile file;
    bool opened = false;
    if (path == QLatin1String("-")) {
        opened = file.open(stdin, QIODevice::ReadOnly);
    } else {
        file.setFileName(path);
        opened = QFileInfo(path).isFile() && file.open(QIODevice::ReadOnly);
    }
    if (!opened) {
        *error = QStringLiteral("%1: cannot read \"%2\"").arg(option, path);
        return false;
    }
    QByteArray bytes = file.readAll();
    bytes.replace("\r\n", "\n");
    *text = QString::fromUtf8(bytes);
    return true;
}

bool isPlainFileName(const QString &name)
{
    for (const QChar c : name) {
        if (c.unicode() < 0x20 || c.unicode() > 0x7e || c == QLatin1Char('"') || c == QLatin1Char('\\'))
            return false;
    }
    return true;
}

bool checkFileList(const QStringList &paths, const QString &option, QString *error)
{
    for (const QString &path : paths) {
        const QFileInfo info(path);
        if (!info.exists()) {
            *error = QStringLiteral("%1: \"%2\" does not exist").arg(option, path);
            return false;
        }
        if (!info.isFile() || !info.isReadable()) {
            *error = QStringLiteral("%1: \"%2\" is not a readable file").arg(option, path);
            return false;
        }
    }
    return true;
}

// The wire adds a line end after the body of a message that is one single
// text part; dropping the text's own final line end keeps the text as it
// was. A blank before it stays escaped only while the line end follows, so
// such a text keeps its line end.
QString singlePartText(const QString &text)
{
    if (!text.endsWith(QLatin1Char('\n')) || text.size() < 2)
        return text;
    const QChar before = text.at(text.size() - 2);
    if (before == QLatin1Char(' ') || before == QLatin1Char('\t'))
        return text;
    return text.left(text.size() - 1);
}

} // namespace

bool readTexts(const SendOptions &options, MessageTexts *texts, QString *error)
{
    if (options.textGiven) {
        texts->text = options.text;
        texts->text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
        texts->hasText = true;
    } else if (!options.textFile.isEmpty()) {
        if (!readTextFile(options.textFile, QStringLiteral("--text-file"), &texts->text, error))
            return false;
        texts->hasText = true;
    }
    if (!options.htmlFile.isEmpty()) {
        if (!readTextFile(options.htmlFile, QStringLiteral("--html-file"), &texts->html, error))
            return false;
        texts->hasHtml = true;
    }
    return true;
}

bool checkFiles(const SendOptions &options, QString *error)
{
    return checkFileList(options.attachments, QStringLiteral("--attach"), error)
        && checkFileList(options.inlineImages, QStringLiteral("--inline-image"), error);
}

void placeTexts(oru::EMail &mail, const MessageTexts &texts, bool withFiles)
{
    if (texts.hasText && texts.hasHtml) {
        mail.plainTextContent().setPlainText(texts.text, "utf-8");
        if (withFiles) {
            mail.htmlTextContent().setHtmlText(texts.html, "utf-8");
        } else {
            // The HTML alternative stays empty, so the sender treats the
            // message as plain text and collapses root child 0 into the plain
            // text; with the HTML as root child 1, the root is the
            // alternative container of both.
            mail[QStringLiteral("Content-Type")] = QStringLiteral("multipart/alternative");
            mail.attach(QStringLiteral("text/html")).setHtmlText(texts.html, "utf-8");
        }
    } else if (texts.hasText) {
        mail.plainTextContent().setPlainText(withFiles ? texts.text : singlePartText(texts.text), "utf-8");
    } else if (texts.hasHtml) {
        mail.plainTextContent().setHtmlText(withFiles ? texts.html : singlePartText(texts.html), "utf-8");
    }
}

bool attachFile(oru::EMail &mail, const QString &path, bool inlinePart, QString *error)
{
    static const QMimeDatabase database;
    const QFileInfo info(path);
    const QString name = info.fileName();
    oru::MimePart &part = mail.attach(database.mimeTypeForFile(info).name());
    part.setFile(path);
    if (part.content.size() != info.size()) {
        *error = QStringLiteral("%1: could not read all of \"%2\"")
                     .arg(inlinePart ? QStringLiteral("--inline-image") : QStringLiteral("--attach"), path);
        return false;
    }
    const QString disposition = inlinePart ? QStringLiteral("inline") : QStringLiteral("attachment");
    if (isPlainFileName(name)) {
        part.setContentDisposition(disposition, name);
    } else {
        const QByteArray encoded = QUrl::toPercentEncoding(name, "!#$&+^`|");
        part[QStringLiteral("Content-Disposition")] =
            disposition + QStringLiteral("; filename*=utf-8''") + QString::fromLatin1(encoded);
    }
    if (inlinePart)
        part[QStringLiteral("Content-ID")] = QLatin1Char('<') + name + QLatin1Char('>');
    return true;
}

bool buildMessage(const SendOptions &options, oru::EMail *mail, QString *error)
{
    QList<oru::MailAddress> from;
    if (!readAddresses({options.from}, QStringLiteral("--from"), &from, error))
        return false;
    if (from.size() != 1) {
        *error = QStringLiteral("--from: give exactly one address, not \"%1\"").arg(options.from);
        return false;
    }
    QList<oru::MailAddress> to, cc, bcc;
    if (!readAddresses(options.to, QStringLiteral("--to"), &to, error)
        || !readAddresses(options.cc, QStringLiteral("--cc"), &cc, error)
        || !readAddresses(options.bcc, QStringLiteral("--bcc"), &bcc, error))
        return false;

    MessageTexts texts;
    if (!readTexts(options, &texts, error) || !checkFiles(options, error))
        return false;

    mail->from = from.first();
    mail->to = to;
    mail->cc = cc;
    mail->bcc = bcc;
    mail->subject = options.subject;

    const bool withFiles = !options.attachments.isEmpty() || !options.inlineImages.isEmpty();
    placeTexts(*mail, texts, withFiles);
    if (!options.inlineImages.isEmpty())
        (*mail)[QStringLiteral("Content-Type")] = QStringLiteral("multipart/related");
    else if (withFiles)
        (*mail)[QStringLiteral("Content-Type")] = QStringLiteral("multipart/mixed");
    for (const QString &path : options.inlineImages) {
        if (!attachFile(*mail, path, true, error))
            return false;
    }
    for (const QString &path : options.attachments) {
        if (!attachFile(*mail, path, false, error))
            return false;
    }
    return true;
}

} // namespace send
