// The bytes of a message between DATA and the end-of-data line: whole
// texts of typical messages and single headers. (Attachments of many
// megabytes go out whole, as one base64 line: see the hardening tests.)

#include "SmtpTestSupport.h"

#include "smtp/SmtpClient.h"

#include <QDateTime>
#include <QFile>
#include <QRegularExpression>
#include <QtTest>

using oru::EMail;
using oru::MailAddress;
using oru::SmtpClient;

Q_DECLARE_METATYPE(oru::EMail)

namespace {

const QString kFrom = QStringLiteral("s@example.org");

QByteArray golden(const QString& name)
{
    QFile file(qEnvironmentVariable("QUILLET_TEST_DATA") + QLatin1Char('/') + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "cannot read " + name.toLocal8Bit();
}

// What one message looks like between DATA and the end-of-data line.
QByteArray transmit(const EMail& mail)
{
    QStringList recipients;
    for (const MailAddress& a : mail.to + mail.cc + mail.bcc) {
        if (!a.isEmpty())
            recipients << a.address;
    }
    const Played p = play(ScriptedSmtpPeer::greetingAndEhlo()
                              + ScriptedSmtpPeer::envelope(mail.from.address, recipients)
                              + ScriptedSmtpPeer::dataAndQuit(),
                          {mail});
    return p.completed && p.waitResult == 250 ? p.data.value(0) : "failed: " + p.diagnosis;
}

// Replaces the Date value and each boundary (in order of appearance) by
// placeholders; the date must be Qt's text form of about now.
QByteArray normalised(QByteArray wire)
{
    static const QRegularExpression date(QStringLiteral("\r\nDate: ([^\r\n]*)\r\n"));
    const QRegularExpressionMatch m = date.match(QString::fromLatin1(wire));
    if (m.hasMatch()) {
        const QDateTime when = QDateTime::fromString(m.captured(1), Qt::TextDate);
        const qint64 age = when.secsTo(QDateTime::currentDateTime());
        const QByteArray placeholder =
            when.isValid() && age >= 0 && age < 120 ? "<DATE>" : "<BAD DATE>";
        wire.replace(m.captured(1).toLatin1(), placeholder);
    }
    static const QRegularExpression boundary(QStringLiteral("boundary=\"([^\"]*)\""));
    auto it = boundary.globalMatch(QString::fromLatin1(wire));
    for (int n = 1; it.hasNext(); ++n) {
        const QString b = it.next().captured(1);
        const bool wellFormed = QRegularExpression(QStringLiteral("^[0-9a-f]{3,24}$")).match(b).hasMatch();
        wire.replace(b.toLatin1(), wellFormed ? "<BOUNDARY-" + QByteArray::number(n) + '>'
                                              : QByteArray("<BAD BOUNDARY>"));
    }
    return wire;
}

// The top-level header lines as name and value, in wire order.
QList<QPair<QString, QString>> topHeaders(const QByteArray& wire)
{
    QList<QPair<QString, QString>> headers;
    for (const QByteArray& line : wire.left(wire.indexOf("\r\n\r\n")).split('\n')) {
        const QString text = QString::fromLatin1(line).remove(QLatin1Char('\r'));
        headers << qMakePair(text.section(QLatin1String(": "), 0, 0), text.section(QLatin1String(": "), 1));
    }
    return headers;
}

EMail plainOnly()
{
    EMail mail;
    mail.from = MailAddress(QString::fromUtf8("Jörg Müller"), QStringLiteral("joerg@example.org"));
    mail.replyTo = MailAddress(QStringLiteral("replies@example.org"));
    mail.to << QStringLiteral("Anna <anna@example.org>, bob@example.org");
    mail.cc << QStringLiteral("carol@example.org");
    mail.bcc << QStringLiteral("dave@example.org");
    mail.subject = QStringLiteral("Quarterly report\n");
    mail.contactCity() = QStringLiteral("Berlin");
    mail.plainTextContent().setPlainText(
        QStringLiteral("Hello Anna,\nthe total is 5 = 2 + 3.\n") + QString(80, QLatin1Char('x'))
            + QLatin1Char('\n'),
        "utf-8");
    return mail;
}

EMail htmlWithoutAttachment()
{
    EMail mail;
    mail.from = MailAddress(QStringLiteral("sender@example.org"));
    mail.to << QStringLiteral("rcpt@example.org");
    mail.subject = QString::fromUtf8("Ünïcode? yes");
    mail.setPlainText(QStringLiteral("plain body"), "utf-8");
    mail.setHtmlText(QStringLiteral("<p>html body</p>"), "utf-8");
    return mail;
}

EMail withAttachments()
{
    EMail mail;
    mail.from = MailAddress(QStringLiteral("Sender"), QStringLiteral("s@example.org"));
    mail.to << QStringLiteral("r@example.org");
    mail.subject = QStringLiteral("Files");
    mail.setPlainText(QStringLiteral("See the files"), "utf-8");
    oru::MimePart& file = mail.attach(QStringLiteral("application/octet-stream"));
    file.content = QByteArray("\x00\x01\x02" "binary\xff", 10);
    file.setContentDisposition(QStringLiteral("attachment"), QStringLiteral("data.bin"));
    oru::MimePart& image = mail.attach(QStringLiteral("image/png"));
    image.content = QByteArray("PNGDATA");
    image.setContentDisposition(QStringLiteral("inline"), QStringLiteral("pic.png"));
    return mail;
}

EMail withContentType(const QString& type, const QByteArray& content)
{
    EMail mail;
    mail.from = MailAddress(kFrom);
    mail.to << QStringLiteral("r@example.org");
    mail.plainTextContent().content = content;
    mail.plainTextContent()[QStringLiteral("Content-Type")] = type;
    return mail;
}

} // namespace

class tst_SmtpClientWire : public QObject
{
    Q_OBJECT

private slots:
    void wholeMessage_data();
    void wholeMessage();
    void header_data();
    void header();
};

void tst_SmtpClientWire::wholeMessage_data()
{
    QTest::addColumn<EMail>("mail");
    QTest::addColumn<QString>("file");

    QTest::newRow("plain text only") << plainOnly() << "smtp_wire_plain_only.eml";
    QTest::newRow("html without attachment")
        << htmlWithoutAttachment() << "smtp_wire_html_without_attachment.eml";
    QTest::newRow("attachments") << withAttachments() << "smtp_wire_attachments.eml";
}

void tst_SmtpClientWire::wholeMessage()
{
    QFETCH(EMail, mail);
    QFETCH(QString, file);

    QCOMPARE(QString::fromLatin1(normalised(transmit(mail))), QString::fromLatin1(golden(file)));
}

void tst_SmtpClientWire::header_data()
{
    QTest::addColumn<EMail>("mail");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("value");  // null: no such header line

    EMail m = textMessage(kFrom, {"r@example.org"}, QStringLiteral("a\nb\nc"));
    QTest::newRow("line feeds removed from subject") << m << "Subject" << "abc";
    m.subject = QStringLiteral("a\r\nb");
    QTest::newRow("carriage return kept and encoded") << m << "Subject" << "=?utf-8?Q?a=0Db?=";

    EMail noTo = textMessage(kFrom, {});
    noTo.bcc << QStringLiteral("hidden@example.org");
    QTest::newRow("empty To list gives no To line") << noTo << "To" << QString();
    QTest::newRow("no Cc line without copies") << noTo << "Cc" << QString();

    EMail two = textMessage(kFrom, {"x@example.org"});
    two.cc << QStringLiteral("\"Doe\" <d@example.org>; e@example.org");
    QTest::newRow("cc joined by a bare comma") << two << "Cc" << "\"Doe\" <d@example.org>,e@example.org";
    two.headers.insert(QStringLiteral("Subject"), QStringLiteral("overwritten"));
    two.subject = QStringLiteral("from the field");
    QTest::newRow("field overwrites header") << two << "Subject" << "from the field";

    QTest::newRow("upper-case TEXT/HTML is text")
        << withContentType(QStringLiteral("TEXT/HTML"), "<b>hi</b>") << "Content-Transfer-Encoding"
        << "7bit";
    QTest::newRow("application/xml is base64")
        << withContentType(QStringLiteral("application/xml"), "<x/>") << "Content-Transfer-Encoding"
        << "base64";
}

void tst_SmtpClientWire::header()
{
    QFETCH(EMail, mail);
    QFETCH(QString, name);
    QFETCH(QString, value);

    const QByteArray wire = transmit(mail);
    const QList<QPair<QString, QString>> headers = topHeaders(wire);
    QVERIFY2(!wire.startsWith("failed: "), wire.constData());
    QStringList names;
    QString found;  // null: no such header line
    for (const auto& header : headers) {
        names << header.first;
        if (header.first == name)
            found = header.second;
    }
    QCOMPARE(found, value);
    // Header lines come once each, in the order of their names.
    QStringList sorted = names;
    sorted.sort();
    sorted.removeDuplicates();
    QCOMPARE(names, sorted);
}

QTEST_GUILESS_MAIN(tst_SmtpClientWire)
#include "tst_smtpclient_wire.moc"
