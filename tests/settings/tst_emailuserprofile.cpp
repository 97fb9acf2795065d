#include "mail/EMail.h"
#include "mail/EMailProfileStore.h"
#include "mail/EMailUserProfile.h"

#include <QtTest>

using oru::EMail;
using oru::EMailProfileStore;
using oru::EMailUserProfile;
using oru::MailAddress;

class tst_EMailUserProfile : public QObject
{
    Q_OBJECT

private slots:
    void init() { EMailProfileStore::gIdSequence = 0; }
    void applyTo_data();
    void applyTo();
    void numbering_data();
    void numbering();
    void createCopiesProfile();
};

// Profile addresses as texts; an empty list text means an empty list.
void tst_EMailUserProfile::applyTo_data()
{
    QTest::addColumn<QString>("replyTo");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("recipients");
    QTest::addColumn<QString>("expectedReplyTo");
    QTest::newRow("own reply address wins") << "r@x.org" << "f@x.org" << "a@x.org;b@x.org" << "r@x.org";
    QTest::newRow("falls back to from") << "" << "f@x.org" << "a@x.org" << "f@x.org";
    QTest::newRow("name alone is empty") << "Reply Only <>" << "f@x.org" << "" << "f@x.org";
    QTest::newRow("both empty clear it") << "" << "" << "" << "";
}

void tst_EMailUserProfile::applyTo()
{
    QFETCH(QString, replyTo);
    QFETCH(QString, from);
    QFETCH(QString, recipients);
    QFETCH(QString, expectedReplyTo);
    EMailUserProfile profile;
    profile.replyTo = MailAddress(replyTo);
    profile.from = MailAddress(from);
    if (!recipients.isEmpty()) {
        profile.to = recipients;
        profile.bcc = recipients + ",z@x.org";
    }
    profile.sender = MailAddress(QStringLiteral("agent@x.org"));
    profile.contactCity = QStringLiteral("Lyon");

    EMail mail;
    mail.replyTo = MailAddress(QStringLiteral("Old <old@x.org>"));
    mail.sender = MailAddress(QStringLiteral("keep@x.org"));
    mail.to = QStringLiteral("old1@x.org,old2@x.org");
    mail.cc = QStringLiteral("old3@x.org");
    mail.subject = QStringLiteral("Hello");
    mail.headers[QStringLiteral("Contact-Phone")] = QStringLiteral("old number");
    const int nodes = mail.parts.size();
    profile.applyTo(mail);

    QCOMPARE(mail.replyTo.address, expectedReplyTo);
    if (expectedReplyTo.isEmpty())
        QVERIFY(mail.replyTo.name.isEmpty());
    QCOMPARE(mail.from.address, profile.from.address);
    QCOMPARE(mail.to.toStringList(true), profile.to.toStringList(true));
    QCOMPARE(mail.cc.size(), 0);
    QCOMPARE(mail.bcc.toStringList(true), profile.bcc.toStringList(true));
    // Contact headers are all set, empty ones included; the rest stays.
    QCOMPARE(mail.headers.value("Contact-City"), QStringLiteral("Lyon"));
    for (const char* name : {"Contact-Name", "Contact-Street", "Contact-Phone"})
        QCOMPARE(mail.headers.value(name, "absent"), QString());
    QCOMPARE(mail.sender.address, QStringLiteral("keep@x.org"));
    QCOMPARE(mail.subject, QStringLiteral("Hello"));
    QCOMPARE(mail.parts.size(), nodes);
}

// Steps: "n" nextId(), "c" create() in the first store, "s" create() in a
// second store, "rN" registerId(N); each step's id is recorded.
void tst_EMailUserProfile::numbering_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QList<uint>>("ids");
    QTest::newRow("starts at one") << QStringList{"c", "n", "c"} << QList<uint>{1, 2, 3};
    QTest::newRow("stores share the sequence") << QStringList{"c", "s", "c"} << QList<uint>{1, 2, 3};
    QTest::newRow("register raises") << QStringList{"r10", "n", "r5", "s"} << QList<uint>{10, 11, 11, 12};
    QTest::newRow("register equal keeps") << QStringList{"c", "r1", "n"} << QList<uint>{1, 1, 2};
    QTest::newRow("unsigned comparison")
        << QStringList{"r4294967294", "c"} << QList<uint>{4294967294u, 4294967295u};
}

void tst_EMailUserProfile::numbering()
{
    QFETCH(QStringList, steps);
    QFETCH(QList<uint>, ids);
    EMailProfileStore first;
    EMailProfileStore second;
    QList<uint> actual;
    for (const QString& step : steps) {
        if (step == QLatin1String("n")) {
            actual << EMailProfileStore::nextId();
        } else if (step.startsWith(QLatin1Char('r'))) {
            actual << EMailProfileStore::registerId(step.mid(1).toUInt());
        } else {
            EMailProfileStore& store = step == QLatin1String("c") ? first : second;
            EMailUserProfile* profile = store.create();
            QCOMPARE(profile, &store.profiles.last());
            QVERIFY(!profile->flag && profile->label.isEmpty() && profile->from.isEmpty());
            QVERIFY(!store.find(profile->id));
            actual << profile->id;
        }
    }
    QCOMPARE(actual, ids);
    QCOMPARE(EMailProfileStore::gIdSequence, ids.last());
}

void tst_EMailUserProfile::createCopiesProfile()
{
    EMailProfileStore store;
    EMailUserProfile source;
    source.id = 7;
    source.flag = true;
    source.label = QStringLiteral("home");
    source.smtp.tls = true;
    EMailUserProfile* stored = store.create(source);
    QCOMPARE(source.id, 7u);
    QCOMPARE(stored->id, 1u);
    QVERIFY(stored->flag && stored->smtp.tls);
    QCOMPARE(stored->label, source.label);
    QCOMPARE(qHash(*stored), 1u);
    QCOMPARE(EMailUserProfile(source).id, 7u);

    // A copy of a stored entry becomes a new entry; the original keeps its id.
    EMailUserProfile* again = store.create(store.profiles.first());
    QCOMPARE(again->id, 2u);
    QCOMPARE(again->label, QStringLiteral("home"));
    QCOMPARE(store.profiles.first().id, 1u);
    QVERIFY(!store.find(1) && !store.find(2));
}

QTEST_GUILESS_MAIN(tst_EMailUserProfile)
#include "tst_emailuserprofile.moc"
