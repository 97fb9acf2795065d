#include <QtTest>

#include "mail/EMail.h"

using oru::EMail;
using oru::MimePart;

namespace {

using Headers = QMap<QString, QString>;

Headers typeOnly(const char *type)
{
    return Headers{{QStringLiteral("Content-Type"), QString::fromLatin1(type)}};
}

} // namespace

class TestEMail : public QObject
{
    Q_OBJECT

private slots:
    void skeleton();
    void textAlternatives_data();
    void textAlternatives();
    void contactHeaders();
    void accessorsRecreateClearedSkeleton();
    void copiesAreIndependent();
};

void TestEMail::skeleton()
{
    EMail mail;
    QCOMPARE(mail.headers, typeOnly("multipart/related"));
    QCOMPARE(mail.parts.size(), 1);
    const MimePart &alternative = mail.parts.at(0);
    QCOMPARE(alternative.headers, typeOnly("multipart/alternative"));
    QCOMPARE(alternative.parts.size(), 2);
    QCOMPARE(alternative.parts.at(0).headers, typeOnly("text/plain"));
    QCOMPARE(alternative.parts.at(1).headers, typeOnly("text/html"));
    QVERIFY(mail.content.isEmpty() && alternative.content.isEmpty());
    QVERIFY(alternative.parts.at(0).isEmpty() && alternative.parts.at(1).isEmpty());
    QVERIFY(mail.from.isEmpty() && mail.sender.isEmpty() && mail.replyTo.isEmpty());
    QVERIFY(mail.to.isEmpty() && mail.cc.isEmpty() && mail.bcc.isEmpty() && mail.subject.isEmpty());

    QCOMPARE(&mail.plainTextContent(), &mail[0][0]);
    QCOMPARE(&mail.htmlTextContent(), &mail[0][1]);
}

void TestEMail::textAlternatives_data()
{
    // Each step: "p:" sets the plain text, "h:" the HTML text, both in utf-8.
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<QByteArray>("html");

    QTest::newRow("html only fills plain too") << QStringList{"h:<b>x</b>"} << QByteArray("<b>x</b>")
                                               << QByteArray("<b>x</b>");
    QTest::newRow("plain only fills html too") << QStringList{"p:a & b"} << QByteArray("a & b")
                                               << QByteArray("a & b");
    QTest::newRow("plain then html") << QStringList{"p:a", "h:<p>b</p>"} << QByteArray("a")
                                     << QByteArray("<p>b</p>");
    QTest::newRow("html then plain") << QStringList{"h:<p>b</p>", "p:a"} << QByteArray("a")
                                     << QByteArray("<p>b</p>");
    QTest::newRow("plain twice") << QStringList{"p:a", "p:c"} << QByteArray("c") << QByteArray("a");
}

void TestEMail::textAlternatives()
{
    QFETCH(QStringList, steps);
    QFETCH(QByteArray, plain);
    QFETCH(QByteArray, html);

    EMail mail;
    for (const QString &step : steps) {
        if (step.startsWith(QLatin1String("p:")))
            mail.setPlainText(step.mid(2), "utf-8");
        else
            mail.setHtmlText(step.mid(2), "utf-8");
    }
    QCOMPARE(mail.headers, typeOnly("multipart/related"));
    QCOMPARE(mail.parts.size(), 1);
    QCOMPARE(mail.parts.at(0).parts.size(), 2);
    const MimePart &plainPart = mail.parts.at(0).parts.at(0);
    const MimePart &htmlPart = mail.parts.at(0).parts.at(1);
    QCOMPARE(plainPart.content, plain);
    QCOMPARE(plainPart.headers, typeOnly("text/plain; charset=utf-8"));
    QCOMPARE(htmlPart.content, html);
    QCOMPARE(htmlPart.headers, typeOnly("text/html; charset=utf-8"));
}

void TestEMail::contactHeaders()
{
    EMail mail;
    QVERIFY(mail.contactCity().isEmpty());
    QCOMPARE(mail.headers.keys(), (QStringList{"Contact-City", "Content-Type"}));
    QCOMPARE(mail.parts.at(0).headers.size(), 1);

    mail.contactName() = QStringLiteral("Jane");
    mail.contactStreet() = QStringLiteral("Main St 1");
    mail.contactCity() = QStringLiteral("Springfield");
    mail.contactPhone() = QStringLiteral("+1 555");
    QCOMPARE(mail.headers, (Headers{{"Contact-City", "Springfield"},
                                    {"Contact-Name", "Jane"},
                                    {"Contact-Phone", "+1 555"},
                                    {"Contact-Street", "Main St 1"},
                                    {"Content-Type", "multipart/related"}}));
}

void TestEMail::accessorsRecreateClearedSkeleton()
{
    EMail mail;
    mail.clear();
    mail.plainTextContent().content = "x";
    QVERIFY(mail.headers.isEmpty());
    QCOMPARE(mail.parts.size(), 1);
    QCOMPARE(mail.parts.at(0).headers, typeOnly("text/plain"));
    QCOMPARE(mail.parts.at(0).parts.size(), 1);
    QCOMPARE(mail.parts.at(0).parts.at(0).headers, typeOnly("text/plain"));
    QCOMPARE(mail.parts.at(0).parts.at(0).content, QByteArray("x"));

    // The texts still mirror into a recreated tree.
    EMail other;
    other.parts.clear();
    other.setPlainText(QStringLiteral("hello"), "utf-8");
    QCOMPARE(other.parts.at(0).parts.at(1).content, QByteArray("hello"));
    QCOMPARE(other.parts.at(0).parts.at(1).headers, typeOnly("text/html; charset=utf-8"));
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
    copy.attach(QStringLiteral("image/png"));
    copy.plainTextContent().content = "changed";
    QCOMPARE(original.subject, QStringLiteral("Original"));
    QCOMPARE(original.to.size(), 1);
    QCOMPARE(original.parts.size(), 1);
    QCOMPARE(original.plainTextContent().content, QByteArray("body"));

    original.htmlTextContent().content = "other";
    original.cc = QStringLiteral("c@example.org");
    QCOMPARE(copy.htmlTextContent().content, QByteArray("body"));
    QVERIFY(copy.cc.isEmpty());
}

QTEST_APPLESS_MAIN(TestEMail)
#include "tst_email.moc"
