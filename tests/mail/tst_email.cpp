#include <QtTest>

#include "mail/EMail.h"

#include <QTemporaryDir>

using oru::EMail;
using oru::MimePart;

namespace {

const QString ContentType = QStringLiteral("Content-Type");

} // namespace

class TestEMail : public QObject
{
    Q_OBJECT

private slots:
    void skeleton();
    void textAlternatives_data();
    void textAlternatives();
    void settingAgainKeepsOtherAlternative();
    void contentAccessors();
    void contactHeaders();
    void accessorsRecreateClearedSkeleton();
    void attachments();
    void copiesAreIndependent();
};

void TestEMail::skeleton()
{
    EMail mail;
    QCOMPARE(mail.headers, (QMap<QString, QString>{{"Content-Type", "multipart/related"}}));
    QVERIFY(mail.content.isEmpty());
    QCOMPARE(mail.parts.size(), 1);

    const MimePart &alternative = mail.parts.at(0);
    QCOMPARE(alternative.headers, (QMap<QString, QString>{{"Content-Type", "multipart/alternative"}}));
    QVERIFY(alternative.content.isEmpty());
    QCOMPARE(alternative.parts.size(), 2);

    const MimePart &plain = alternative.parts.at(0);
    const MimePart &html = alternative.parts.at(1);
    QCOMPARE(plain.headers, (QMap<QString, QString>{{"Content-Type", "text/plain"}}));
    QCOMPARE(html.headers, (QMap<QString, QString>{{"Content-Type", "text/html"}}));
    QVERIFY(plain.isEmpty());
    QVERIFY(html.isEmpty());

    QVERIFY(mail.from.isEmpty());
    QVERIFY(mail.sender.isEmpty());
    QVERIFY(mail.replyTo.isEmpty());
    QVERIFY(mail.to.isEmpty());
    QVERIFY(mail.cc.isEmpty());
    QVERIFY(mail.bcc.isEmpty());
    QVERIFY(mail.subject.isEmpty());
}

void TestEMail::textAlternatives_data()
{
    // Each step: "p:" sets the plain text, "h:" the HTML text.
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<QString>("plainType");
    QTest::addColumn<QByteArray>("html");
    QTest::addColumn<QString>("htmlType");

    QTest::newRow("html only fills plain too")
        << QStringList{"h:<b>x</b>"} << QByteArray("<b>x</b>") << QStringLiteral("text/plain; charset=utf-8")
        << QByteArray("<b>x</b>") << QStringLiteral("text/html; charset=utf-8");
    QTest::newRow("plain only fills html too")
        << QStringList{"p:a & b"} << QByteArray("a & b") << QStringLiteral("text/plain; charset=utf-8")
        << QByteArray("a & b") << QStringLiteral("text/html; charset=utf-8");
    QTest::newRow("plain then html")
        << QStringList{"p:a", "h:<p>b</p>"} << QByteArray("a") << QStringLiteral("text/plain; charset=utf-8")
        << QByteArray("<p>b</p>") << QStringLiteral("text/html; charset=utf-8");
    QTest::newRow("html then plain")
        << QStringList{"h:<p>b</p>", "p:a"} << QByteArray("a") << QStringLiteral("text/plain; charset=utf-8")
        << QByteArray("<p>b</p>") << QStringLiteral("text/html; charset=utf-8");
    QTest::newRow("plain twice")
        << QStringList{"p:a", "p:c"} << QByteArray("c") << QStringLiteral("text/plain; charset=utf-8")
        << QByteArray("a") << QStringLiteral("text/html; charset=utf-8");
}

void TestEMail::textAlternatives()
{
    QFETCH(QStringList, steps);
    QFETCH(QByteArray, plain);
    QFETCH(QString, plainType);
    QFETCH(QByteArray, html);
    QFETCH(QString, htmlType);

    EMail mail;
    for (const QString &step : steps) {
        const QString text = step.mid(2);
        if (step.startsWith(QLatin1String("p:")))
            mail.setPlainText(text, "utf-8");
        else
            mail.setHtmlText(text, "utf-8");
    }
    QCOMPARE(mail.parts.at(0).parts.at(0).content, plain);
    QCOMPARE(mail.parts.at(0).parts.at(0).headers.value(ContentType), plainType);
    QCOMPARE(mail.parts.at(0).parts.at(1).content, html);
    QCOMPARE(mail.parts.at(0).parts.at(1).headers.value(ContentType), htmlType);
    QCOMPARE(mail.parts.size(), 1);
    QCOMPARE(mail.parts.at(0).parts.size(), 2);
    QCOMPARE(mail[ContentType], QStringLiteral("multipart/related"));
}

void TestEMail::settingAgainKeepsOtherAlternative()
{
    EMail mail;
    mail.setHtmlText(QStringLiteral("<i>\u00E9</i>"), "utf-8");
    mail.setHtmlText(QStringLiteral("<i>\u00E9</i>"), "ISO-8859-1");
    QCOMPARE(mail.htmlTextContent().content, QByteArray("<i>\xE9</i>"));
    QCOMPARE(mail.htmlTextContent()[ContentType], QStringLiteral("text/html; charset=ISO-8859-1"));
    QCOMPARE(mail.plainTextContent().content, QByteArray("<i>\xC3\xA9</i>"));
    QCOMPARE(mail.plainTextContent()[ContentType], QStringLiteral("text/plain; charset=utf-8"));
}

void TestEMail::contentAccessors()
{
    EMail mail;
    mail.plainTextContent().content = "plain";
    mail.htmlTextContent().content = "html";
    QCOMPARE(mail.parts.at(0).parts.at(0).content, QByteArray("plain"));
    QCOMPARE(mail.parts.at(0).parts.at(1).content, QByteArray("html"));
    QCOMPARE(&mail.plainTextContent(), &mail[0][0]);
    QCOMPARE(&mail.htmlTextContent(), &mail[0][1]);
}

void TestEMail::contactHeaders()
{
    EMail mail;
    QString &city = mail.contactCity();
    QVERIFY(city.isEmpty());
    QCOMPARE(mail.headers.keys(), (QStringList{"Contact-City", "Content-Type"}));
    QCOMPARE(mail.parts.at(0).headers.size(), 1);
    QCOMPARE(mail.parts.at(0).parts.at(0).headers.size(), 1);

    mail.contactName() = QStringLiteral("Jane");
    mail.contactStreet() = QStringLiteral("Main St 1");
    mail.contactCity() = QStringLiteral("Springfield");
    mail.contactPhone() = QStringLiteral("+1 555");
    QCOMPARE(mail.headers.value(QStringLiteral("Contact-Name")), QStringLiteral("Jane"));
    QCOMPARE(mail.headers.value(QStringLiteral("Contact-Street")), QStringLiteral("Main St 1"));
    QCOMPARE(mail.headers.value(QStringLiteral("Contact-City")), QStringLiteral("Springfield"));
    QCOMPARE(mail.headers.value(QStringLiteral("Contact-Phone")), QStringLiteral("+1 555"));
    QCOMPARE(mail.headers.size(), 5);
}

void TestEMail::accessorsRecreateClearedSkeleton()
{
    EMail mail;
    mail.clear();
    MimePart &plain = mail.plainTextContent();
    plain.content = "x";
    QCOMPARE(mail.parts.size(), 1);
    QCOMPARE(mail.parts.at(0).headers.value(ContentType), QStringLiteral("text/plain"));
    QCOMPARE(mail.parts.at(0).parts.size(), 1);
    QCOMPARE(mail.parts.at(0).parts.at(0).headers.value(ContentType), QStringLiteral("text/plain"));
    QCOMPARE(mail.parts.at(0).parts.at(0).content, QByteArray("x"));
    QVERIFY(mail.headers.isEmpty());

    // The texts still mirror into a recreated tree.
    EMail other;
    other.parts.clear();
    other.setPlainText(QStringLiteral("hello"), "utf-8");
    QCOMPARE(other.parts.at(0).parts.at(1).content, QByteArray("hello"));
    QCOMPARE(other.parts.at(0).parts.at(1).headers.value(ContentType),
             QStringLiteral("text/html; charset=utf-8"));
}

void TestEMail::attachments()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("data.csv"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("a,b\n1,2\n");
    file.close();

    EMail mail;
    MimePart &attachment = mail.attach(QStringLiteral("text/csv"));
    attachment.setFile(path);
    attachment.setContentDisposition(QStringLiteral("attachment"), QStringLiteral("data.csv"));

    QCOMPARE(mail.parts.size(), 2);
    const MimePart &stored = mail.parts.at(1);
    QCOMPARE(stored.content, QByteArray("a,b\n1,2\n"));
    QCOMPARE(stored.headers.value(ContentType), QStringLiteral("text/csv"));
    QCOMPARE(stored.headers.value(QStringLiteral("Content-Disposition")),
             QStringLiteral("attachment; filename=\"data.csv\""));
}

void TestEMail::copiesAreIndependent()
{
    EMail original;
    original.subject = QStringLiteral("Original");
    original.to = QStringLiteral("a@example.org");
    original.setPlainText(QStringLiteral("body"), "utf-8");

    EMail copy(original);
    copy.subject = QStringLiteral("Copy");
    copy.to << QStringLiteral("b@example.org");
    copy.from = QStringLiteral("x@example.org");
    copy.attach(QStringLiteral("image/png")).content = "png";
    copy.plainTextContent().content = "changed";

    QCOMPARE(original.subject, QStringLiteral("Original"));
    QCOMPARE(original.to.size(), 1);
    QVERIFY(original.from.isEmpty());
    QCOMPARE(original.parts.size(), 1);
    QCOMPARE(original.plainTextContent().content, QByteArray("body"));

    // And the other way round.
    original.cc = QStringLiteral("c@example.org");
    original.htmlTextContent().content = "other";
    QVERIFY(copy.cc.isEmpty());
    QCOMPARE(copy.htmlTextContent().content, QByteArray("body"));
    QCOMPARE(copy.subject, QStringLiteral("Copy"));
}

QTEST_APPLESS_MAIN(TestEMail)
#include "tst_email.moc"
