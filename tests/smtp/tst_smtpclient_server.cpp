// Delivery to a real SMTP server (aiosmtpd) with AUTH LOGIN, over STARTTLS
// and over SSL from the start; what arrived is decoded by Python's email
// package and compared with what was sent.

#include "AiosmtpdServer.h"
#include "ParsedMessage.h"
#include "SmtpTestSupport.h"
#include "TestCertificate.h"

#include "smtp/SmtpClient.h"

#include <QImage>
#include <QSslSocket>
#include <QTemporaryDir>
#include <QtTest>

using oru::EMail;
using oru::SmtpClient;

namespace {

ParsedPart partOfType(const ParsedMessage& message, const char* type)
{
    for (const ParsedPart& part : message.parts) {
        if (part.contentType == QLatin1String(type))
            return part;
    }
    return ParsedPart();
}

} // namespace

class tst_SmtpClientServer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase_data();
    void initTestCase();
    void deliversToRealServer();
};

void tst_SmtpClientServer::initTestCase_data()
{
    QTest::addColumn<bool>("smtps");
    QTest::newRow("starttls login") << false;
    QTest::newRow("smtps login") << true;
}

void tst_SmtpClientServer::initTestCase()
{
    QVERIFY2(QSslSocket::supportsSsl() && TestCertificate::shared().isValid(),
             qPrintable(TestCertificate::shared().error()));
}

void tst_SmtpClientServer::deliversToRealServer()
{
    QFETCH_GLOBAL(bool, smtps);

    AiosmtpdServer::Options options;
    options.starttls = !smtps;
    options.smtps = smtps;
    options.user = QStringLiteral("joe");
    options.password = QStringLiteral("s3cret");
    options.lineLimit = 1 << 20;
    AiosmtpdServer server(options);
    QVERIFY2(server.start(), qPrintable(server.error()));

    // A file attachment read from disk and an image encoded by Qt.
    QTemporaryDir dir;
    QByteArray fileBytes(40000, '\0');
    for (int i = 0; i < fileBytes.size(); ++i)
        fileBytes[i] = char(i * 31 + i / 97);
    const QString path = dir.filePath(QStringLiteral("report.bin"));
    QFile out(path);
    QVERIFY(out.open(QIODevice::WriteOnly) && out.write(fileBytes) == fileBytes.size() && out.flush());
    QImage image(16, 16, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);

    EMail mail;
    mail.from = oru::MailAddress(QStringLiteral("Sender <sender@example.org>"));
    mail.to << QStringLiteral("rcpt@example.org");
    mail.cc << QStringLiteral("copy@example.org");
    mail.bcc << QStringLiteral("hidden@example.org");
    mail.subject = QString::fromUtf8("Grüße vom Test");
    const QString text = QString::fromUtf8("Hällo,\nthe report and a picture are attached.\n");
    mail.setPlainText(text, "utf-8");
    mail.setHtmlText(QStringLiteral("<p>H&auml;llo</p>"), "utf-8");
    oru::MimePart& file = mail.attach(QStringLiteral("application/octet-stream"));
    file.setFile(path);
    file.setContentDisposition(QStringLiteral("attachment"), QStringLiteral("report.bin"));
    oru::MimePart& picture = mail.attach(QStringLiteral("image/png"));
    picture.setImage(image, "PNG");
    picture.setContentDisposition(QStringLiteral("inline"), QStringLiteral("picture.png"));
    const QByteArray pngBytes = mail.parts.at(2).content;
    QVERIFY(pngBytes.startsWith("\x89PNG"));

    oru::SmtpAccess access(QStringLiteral("127.0.0.1"), int(server.port()), options.user, options.password);
    access.ssl = smtps;
    access.tls = !smtps;
    SmtpClient client(access);
    SentRecorder recorder(&client);

    const int id = client.send(mail);
    QVERIFY2(client.waitForSent(id, 60000) == 250, qPrintable(server.log()));
    QCOMPARE(recorder.take().value(0).code, 250);

    QVERIFY(server.waitForMessages(1, 10000));
    QCOMPARE(server.envelopes().first().mailFrom, QStringLiteral("sender@example.org"));
    QCOMPARE(server.envelopes().first().recipients,
             (QStringList{"rcpt@example.org", "copy@example.org", "hidden@example.org"}));

    const ParsedMessage parsed = parseWithPython(server.messages().first());
    QVERIFY2(parsed.ok, qPrintable(parsed.error));
    // Each of the two containers is marked base64, which the parser notes as
    // one defect per container; anything beyond that would be a fault.
    QVERIFY2(parsed.defects.size() == 2, qPrintable(parsed.defects.join(QLatin1Char('\n'))));
    QCOMPARE(parsed.subject, mail.subject);

    const ParsedPart plain = partOfType(parsed, "text/plain");
    QCOMPARE(QString(plain.text).replace(QStringLiteral("\r\n"), QStringLiteral("\n")), text);
    QCOMPARE(partOfType(parsed, "text/html").text.trimmed(), QStringLiteral("<p>H&auml;llo</p>"));
    const ParsedPart attachment = partOfType(parsed, "application/octet-stream");
    QCOMPARE(attachment.filename, QStringLiteral("report.bin"));
    QCOMPARE(attachment.disposition, QStringLiteral("attachment"));
    QVERIFY(attachment.payload == fileBytes);
    const ParsedPart png = partOfType(parsed, "image/png");
    QCOMPARE(png.filename, QStringLiteral("picture.png"));
    QVERIFY(png.payload == pngBytes);
}

QTEST_GUILESS_MAIN(tst_SmtpClientServer)
#include "tst_smtpclient_server.moc"
