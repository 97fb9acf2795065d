#include "smtp/SmtpAccess.h"

#include <QDomDocument>
#include <QTemporaryDir>
#include <QXmlStreamWriter>
#include <QtTest>

using oru::SmtpAccess;

Q_DECLARE_METATYPE(oru::SmtpAccess)

namespace {

const QString kPrefix = QStringLiteral("smtp/");

// All fields in one text, so that one comparison shows every difference.
QString fields(const SmtpAccess& a)
{
    return QStringList{a.host, QString::number(a.port), QString::number(a.ssl), a.user, a.password,
                       QString::number(a.tls)}.join(QLatin1Char('|'));
}

} // namespace

class tst_SmtpAccess : public QObject
{
    Q_OBJECT

private slots:
    void smtpPort_data();
    void smtpPort();
    void constructors();
    void persistence_data();
    void persistence();
    void update_data();
    void update();
};

void tst_SmtpAccess::smtpPort_data()
{
    QTest::addColumn<int>("port");
    QTest::addColumn<bool>("ssl");
    QTest::addColumn<int>("expected");
    QTest::newRow("zero, ssl") << 0 << true << 465;
    QTest::newRow("negative, plain") << -1 << false << 25;
    QTest::newRow("given, ssl") << 587 << true << 587;
}

void tst_SmtpAccess::smtpPort()
{
    QFETCH(int, port);
    QFETCH(bool, ssl);
    QFETCH(int, expected);
    QCOMPARE(SmtpAccess::smtpPort(port, ssl), expected);
}

void tst_SmtpAccess::constructors()
{
    QCOMPARE(fields(SmtpAccess()), QStringLiteral("|25|0|||0"));
    QCOMPARE(fields(SmtpAccess("mx", 0, "u", "p")), QStringLiteral("mx|0|0|u|p|0"));
    QCOMPARE(fields(SmtpAccess("mx", true, false, "u", "p")), QStringLiteral("mx|465|1|u|p|0"));
    const SmtpAccess tls("mx", false, true, "u", "p");
    QCOMPARE(fields(SmtpAccess(tls)), QStringLiteral("mx|25|0|u|p|1"));
}

// Each row goes to an INI file and to XML, and is read back into an access
// whose every field differs, so that a value not read shows.
void tst_SmtpAccess::persistence_data()
{
    QTest::addColumn<SmtpAccess>("access");
    QTest::addColumn<bool>("withPassword");
    QTest::newRow("ssl, with password") << SmtpAccess("mx", true, false, "u", "p") << true;
    QTest::newRow("starttls, password left out") << SmtpAccess("mx", false, true, "u", "secret") << false;
    QTest::newRow("separators and markup")
        << SmtpAccess("<m x,y>", 2525, QString::fromUtf8("jörg&co"), "a,b;c=\"d\"") << true;
}

void tst_SmtpAccess::persistence()
{
    QFETCH(SmtpAccess, access);
    QFETCH(bool, withPassword);
    SmtpAccess expected = access;
    if (!withPassword)
        expected.password.clear();

    QTemporaryDir dir;
    const QString path = dir.filePath("access.ini");
    {
        QSettings settings(path, QSettings::IniFormat);
        access.store(settings, kPrefix, withPassword);
    }
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray ini = file.readAll();
    QVERIFY2(ini.contains(QByteArray("tls=") + (access.tls ? "true" : "false")), ini.constData());
    QVERIFY2(ini.contains(QByteArray("ssl=") + (access.ssl ? "true" : "false")), ini.constData());
    QCOMPARE(ini.contains("password="), withPassword);
    SmtpAccess loaded("old", true, !access.tls, "old", "old");
    loaded.load(QSettings(path, QSettings::IniFormat), kPrefix);
    QCOMPARE(fields(loaded), fields(expected));

    QString xml;
    QXmlStreamWriter writer(&xml);
    writer.writeStartElement("Server");
    oru::XmlOutputStream stream(writer);
    access.storeXml(stream, withPassword);
    writer.writeEndElement();
    QDomDocument doc;
    QVERIFY(doc.setContent(xml));
    const QDomElement server = doc.documentElement();
    QCOMPARE(server.firstChildElement("TLS").text(),
             QString::fromLatin1(access.tls ? "true" : "false"));
    QCOMPARE(server.firstChildElement("Password").isNull(), !withPassword);
    loaded = SmtpAccess("old", true, !access.tls, "old", "old");
    loaded.loadXml(server);
    QCOMPARE(fields(loaded), fields(expected));

    // Nothing stored: text reads empty, flags false, the port stays.
    SmtpAccess empty = access;
    empty.load(QSettings(dir.filePath("none.ini"), QSettings::IniFormat), kPrefix);
    QCOMPARE(fields(empty), fields(SmtpAccess(QString(), access.port, QString(), QString())));
    empty = access;
    empty.loadXml(QDomElement());
    QCOMPARE(fields(empty), fields(SmtpAccess(QString(), access.port, QString(), QString())));
}

void tst_SmtpAccess::update_data()
{
    QTest::addColumn<QVariantMap>("stored");
    QTest::addColumn<bool>("tlsBefore");
    QTest::addColumn<bool>("changed");
    QTest::addColumn<SmtpAccess>("after");
    const SmtpAccess plain("mx", 25, "u", "p");
    const SmtpAccess tls("mx", false, true, "u", "p");
    QTest::newRow("empty store") << QVariantMap() << true << false << tls;
    QTest::newRow("same tls") << QVariantMap{{"tls", true}} << true << false << tls;
    QTest::newRow("tls switched on") << QVariantMap{{"tls", "yes"}} << false << true << tls;
    QTest::newRow("tls switched off") << QVariantMap{{"tls", false}} << true << true << plain;
    QTest::newRow("unreadable tls reads true") << QVariantMap{{"tls", "maybe"}} << false << true << tls;
    QTest::newRow("base change only")
        << QVariantMap{{"host", "other"}} << false << true << SmtpAccess("other", 25, "u", "p");
    QTest::newRow("same host and port") << QVariantMap{{"host", "mx"}, {"port", 25}} << false << false << plain;
    QTest::newRow("port changed") << QVariantMap{{"port", "587"}} << false << true << SmtpAccess("mx", 587, "u", "p");
    QTest::newRow("unreadable port") << QVariantMap{{"port", "smtp"}} << true << false << tls;
}

void tst_SmtpAccess::update()
{
    QFETCH(QVariantMap, stored);
    QFETCH(bool, tlsBefore);
    QFETCH(bool, changed);
    QFETCH(SmtpAccess, after);
    QTemporaryDir dir;
    const QString path = dir.filePath("access.ini");
    {
        QSettings settings(path, QSettings::IniFormat);
        for (auto it = stored.cbegin(); it != stored.cend(); ++it)
            settings.setValue(kPrefix + it.key(), it.value());
    }
    SmtpAccess access("mx", false, tlsBefore, "u", "p");
    QCOMPARE(access.update(QSettings(path, QSettings::IniFormat), kPrefix), changed);
    QCOMPARE(fields(access), fields(after));
}

QTEST_GUILESS_MAIN(tst_SmtpAccess)
#include "tst_smtpaccess.moc"
