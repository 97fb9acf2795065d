#include "mail/EMail.h"
#include "mail/EMailProfileStore.h"
#include "mail/EMailUserProfile.h"

#include <QHash>
#include <QtTest>

using oru::EMail;
using oru::EMailProfileStore;
using oru::EMailUserProfile;
using oru::MailAddress;
using oru::MailAddressList;

namespace {

const QStringList kContactHeaders = {"Contact-Name", "Contact-Street", "Contact-City",
                                     "Contact-Phone"};

} // namespace

class tst_EMailUserProfile : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void replyAddress_data();
    void replyAddress();
    void recipientsReplacedWhole_data();
    void recipientsReplacedWhole();
    void contactHeadersAndUntouchedFields();
    void copyKeepsIdAndFlag();

    void numbering_data();
    void numbering();
    void storesShareOneSequence();
    void createFromProfile();
    void findNeverFinds();
};

void tst_EMailUserProfile::init()
{
    EMailProfileStore::gIdSequence = 0;
}

void tst_EMailUserProfile::replyAddress_data()
{
    QTest::addColumn<QString>("profileReplyTo");
    QTest::addColumn<QString>("profileFrom");
    QTest::addColumn<QString>("mailReplyTo");
    QTest::addColumn<QString>("expected");
    QTest::newRow("own reply address wins") << "r@x.org" << "f@x.org" << "old@x.org" << "r@x.org";
    QTest::newRow("falls back to from") << "" << "f@x.org" << "old@x.org" << "f@x.org";
    QTest::newRow("name alone counts as empty") << "Reply Only <>" << "f@x.org" << "" << "f@x.org";
    QTest::newRow("both empty clears the message's") << "" << "" << "Old <old@x.org>" << "";
}

void tst_EMailUserProfile::replyAddress()
{
    QFETCH(QString, profileReplyTo);
    QFETCH(QString, profileFrom);
    QFETCH(QString, mailReplyTo);
    QFETCH(QString, expected);
    EMailUserProfile profile;
    profile.replyTo = MailAddress(profileReplyTo);
    profile.from = MailAddress(profileFrom);
    EMail mail;
    mail.replyTo = MailAddress(mailReplyTo);
    profile.applyTo(mail);
    QCOMPARE(mail.replyTo.address, expected);
    if (expected.isEmpty())
        QVERIFY(mail.replyTo.name.isEmpty());
    QCOMPARE(mail.from.address, profileFrom);
}

void tst_EMailUserProfile::recipientsReplacedWhole_data()
{
    QTest::addColumn<QString>("to");
    QTest::addColumn<QString>("cc");
    QTest::addColumn<QString>("bcc");
    QTest::newRow("all replaced") << "a@x.org;b@x.org" << "c@x.org" << "d@x.org";
    QTest::newRow("empty lists clear") << "" << "" << "";
    QTest::newRow("mixed") << "a@x.org" << "" << "d@x.org,e@x.org";
}

void tst_EMailUserProfile::recipientsReplacedWhole()
{
    QFETCH(QString, to);
    QFETCH(QString, cc);
    QFETCH(QString, bcc);
    // An empty text stands for an empty list (not one empty entry).
    const auto list = [](const QString& text) {
        MailAddressList result;
        if (!text.isEmpty())
            result = text;
        return result;
    };
    EMailUserProfile profile;
    profile.to = list(to);
    profile.cc = list(cc);
    profile.bcc = list(bcc);
    EMail mail;
    mail.to = QStringLiteral("old1@x.org,old2@x.org");
    mail.cc = QStringLiteral("old3@x.org");
    mail.bcc = QStringLiteral("old4@x.org");
    profile.applyTo(mail);
    QCOMPARE(mail.to.toStringList(false), profile.to.toStringList(false));
    QCOMPARE(mail.cc.toStringList(false), profile.cc.toStringList(false));
    QCOMPARE(mail.bcc.toStringList(false), profile.bcc.toStringList(false));
}

void tst_EMailUserProfile::contactHeadersAndUntouchedFields()
{
    EMailUserProfile profile;
    profile.contactName = QStringLiteral("Jane Doe");
    profile.contactCity = QStringLiteral("Lyon");
    profile.sender = MailAddress(QStringLiteral("agent@x.org"));
    profile.smtp = oru::SmtpAccess("mx", true, true, "u", "p");

    EMail mail;
    mail.subject = QStringLiteral("Hello");
    mail.sender = MailAddress(QStringLiteral("keep@x.org"));
    mail.headers[QStringLiteral("Contact-Phone")] = QStringLiteral("old number");
    mail.setPlainText(QStringLiteral("body"), "utf-8");
    const EMail before = mail;

    profile.applyTo(mail);
    QCOMPARE(mail.headers.value("Contact-Name"), QStringLiteral("Jane Doe"));
    QCOMPARE(mail.headers.value("Contact-City"), QStringLiteral("Lyon"));
    for (const QString& name : kContactHeaders)
        QVERIFY2(mail.headers.contains(name), qPrintable(name));
    QCOMPARE(mail.headers.value("Contact-Street", "absent"), QString());
    QCOMPARE(mail.headers.value("Contact-Phone", "absent"), QString());

    QCOMPARE(mail.sender.address, QStringLiteral("keep@x.org"));
    QCOMPARE(mail.subject, before.subject);
    QCOMPARE(mail.plainTextContent().content, QByteArray("body"));
    QCOMPARE(mail.parts.size(), before.parts.size());
}

void tst_EMailUserProfile::copyKeepsIdAndFlag()
{
    EMailUserProfile profile;
    QCOMPARE(profile.id, 0u);
    QCOMPARE(profile.flag, false);
    profile.id = 42;
    profile.flag = true;
    profile.label = QStringLiteral("work");
    profile.smtp.tls = true;
    const EMailUserProfile copy(profile);
    QCOMPARE(copy.id, 42u);
    QCOMPARE(copy.flag, true);
    QCOMPARE(copy.label, profile.label);
    QCOMPARE(copy.smtp.tls, true);
    QCOMPARE(qHash(copy), 42u);

    QHash<quint32, QString> byHash;
    byHash.insert(qHash(copy), copy.label);
    QCOMPARE(byHash.value(42), QStringLiteral("work"));
}

void tst_EMailUserProfile::numbering_data()
{
    // Each step: "n" calls nextId(), "c" create(), "rN" registerId(N).
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QList<uint>>("results");
    QTest::newRow("starts at one") << QStringList{"n", "n", "c"} << QList<uint>{1, 2, 3};
    QTest::newRow("register raises")
        << QStringList{"r10", "n", "r5", "c"} << QList<uint>{10, 11, 11, 12};
    QTest::newRow("register equal keeps") << QStringList{"c", "r1", "n"} << QList<uint>{1, 1, 2};
    QTest::newRow("unsigned comparison")
        << QStringList{"r4294967294", "n"} << QList<uint>{4294967294u, 4294967295u};
}

void tst_EMailUserProfile::numbering()
{
    QFETCH(QStringList, steps);
    QFETCH(QList<uint>, results);
    EMailProfileStore store;
    QList<uint> actual;
    for (const QString& step : steps) {
        if (step == QLatin1String("n"))
            actual << EMailProfileStore::nextId();
        else if (step == QLatin1String("c"))
            actual << store.create()->id;
        else
            actual << EMailProfileStore::registerId(step.mid(1).toUInt());
    }
    QCOMPARE(actual, results);
    QCOMPARE(EMailProfileStore::gIdSequence, results.last());
}

void tst_EMailUserProfile::storesShareOneSequence()
{
    EMailProfileStore first;
    EMailProfileStore second;
    EMailUserProfile* a = first.create();
    EMailUserProfile* b = second.create();
    QCOMPARE(a->id, 1u);
    QCOMPARE(b->id, 2u);
    QCOMPARE(first.profiles.size(), 1);
    QCOMPARE(second.profiles.size(), 1);
    QCOMPARE(&first.profiles.last(), a);
    QVERIFY(!a->flag);
    QVERIFY(a->label.isEmpty() && a->from.isEmpty() && a->to.isEmpty());
}

void tst_EMailUserProfile::createFromProfile()
{
    EMailProfileStore store;
    EMailUserProfile source;
    source.id = 7;
    source.flag = true;
    source.label = QStringLiteral("home");
    source.from = MailAddress(QStringLiteral("Jane <jane@x.org>"));
    EMailUserProfile* stored = store.create(source);
    QCOMPARE(source.id, 7u);
    QCOMPARE(stored->id, 1u);
    QCOMPARE(stored->flag, true);
    QCOMPARE(stored->label, source.label);
    QCOMPARE(stored->from.name, QStringLiteral("Jane"));
    QVERIFY(stored != &source);

    // A copy of a stored entry is a new entry with its own id.
    EMailUserProfile* again = store.create(store.profiles.first());
    QCOMPARE(again->id, 2u);
    QCOMPARE(again->label, QStringLiteral("home"));
    QCOMPARE(store.profiles.first().id, 1u);
    QCOMPARE(store.profiles.size(), 2);
}

void tst_EMailUserProfile::findNeverFinds()
{
    EMailProfileStore store;
    const uint id = store.create()->id;
    QVERIFY(!store.find(id));
    QVERIFY(!store.find(0));
    QVERIFY(!EMailProfileStore().find(id));
}

QTEST_GUILESS_MAIN(tst_EMailUserProfile)
#include "tst_emailuserprofile.moc"
