#include "smtp/SmtpAccess.h"

#include <QDomDocument>
#include <QTemporaryDir>
#include <QXmlStreamWriter>
#include <QtTest>

using oru::SmtpAccess;

Q_DECLARE_METATYPE(oru::SmtpAccess)

namespace {

const QString kPrefix = QStringLiteral("smtp/");

void compareAccess(const SmtpAccess& actual, const SmtpAccess& expected)
{
    QCOMPARE(actual.host, expected.host);
    QCOMPARE(actual.port, expected.port);
    QCOMPARE(actual.ssl, expected.ssl);
    QCOMPARE(actual.user, expected.user);
    QCOMPARE(actual.password, expected.password);
    QCOMPARE(actual.tls, expected.tls);
}

// Writes access as the children of a <Server> element and parses it back.
QDomElement toXml(const SmtpAccess& access, bool withPassword, QDomDocument& doc)
{
    QString text;
    QXmlStreamWriter writer(&text);
    writer.writeStartElement(QStringLiteral("Server"));
    oru::XmlOutputStream stream(writer);
    access.storeXml(stream, withPassword);
    writer.writeEndElement();
    doc.setContent(text);
    return doc.documentElement();
}

} // namespace

class tst_SmtpAccess : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void smtpPort_data();
    void smtpPort();
    void constructors_data();
    void constructors();
    void copyKeepsEveryField();

    void storeAndLoad_data();
    void storeAndLoad();
    void storesBooleansAsBooleans();
    void loadWithoutKeysResets();
    void update_data();
    void update();

    void xmlRoundTrip_data();
    void xmlRoundTrip();
    void xmlWritesTlsWhenFalse();
    void loadXmlWithoutElements();

private:
    QScopedPointer<QTemporaryDir> m_dir;
    QString iniPath() const { return m_dir->filePath(QStringLiteral("access.ini")); }
};

void tst_SmtpAccess::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
}

void tst_SmtpAccess::smtpPort_data()
{
    QTest::addColumn<int>("port");
    QTest::addColumn<bool>("ssl");
    QTest::addColumn<int>("expected");
    QTest::newRow("zero, ssl") << 0 << true << 465;
    QTest::newRow("zero, plain") << 0 << false << 25;
    QTest::newRow("negative, plain") << -1 << false << 25;
    QTest::newRow("negative, ssl") << -587 << true << 465;
    QTest::newRow("given, ssl") << 587 << true << 587;
    QTest::newRow("one, plain") << 1 << false << 1;
}

void tst_SmtpAccess::smtpPort()
{
    QFETCH(int, port);
    QFETCH(bool, ssl);
    QFETCH(int, expected);
    QCOMPARE(SmtpAccess::smtpPort(port, ssl), expected);
    QCOMPARE(SmtpAccess::smtpPort(ssl), ssl ? 465 : 25);
}

void tst_SmtpAccess::constructors_data()
{
    QTest::addColumn<SmtpAccess>("access");
    QTest::addColumn<QString>("host");
    QTest::addColumn<int>("port");
    QTest::addColumn<bool>("ssl");
    QTest::addColumn<bool>("tls");
    QTest::newRow("default") << SmtpAccess() << QString() << 25 << false << false;
    QTest::newRow("host and port kept as given")
        << SmtpAccess("mx", 0, "u", "p") << "mx" << 0 << false << false;
    QTest::newRow("ssl selects 465")
        << SmtpAccess("mx", true, false, "u", "p") << "mx" << 465 << true << false;
    QTest::newRow("plain with starttls")
        << SmtpAccess("mx", false, true, "u", "p") << "mx" << 25 << false << true;
}

void tst_SmtpAccess::constructors()
{
    QFETCH(SmtpAccess, access);
    QFETCH(QString, host);
    QFETCH(int, port);
    QFETCH(bool, ssl);
    QFETCH(bool, tls);
    QCOMPARE(access.host, host);
    QCOMPARE(access.port, port);
    QCOMPARE(access.ssl, ssl);
    QCOMPARE(access.tls, tls);
    QCOMPARE(access.user, host.isEmpty() ? QString() : QStringLiteral("u"));
    QCOMPARE(access.password, host.isEmpty() ? QString() : QStringLiteral("p"));
}

void tst_SmtpAccess::copyKeepsEveryField()
{
    const SmtpAccess source("mx", true, true, "u", "p");
    compareAccess(SmtpAccess(source), source);
    SmtpAccess target;
    target = source;
    compareAccess(target, source);
    // Through a base reference the persistence of the copy still knows tls.
    oru::HttpAccess& base = target;
    QSettings settings(iniPath(), QSettings::IniFormat);
    base.store(settings, kPrefix, true);
    QCOMPARE(settings.value(kPrefix + "tls").toString(), QStringLiteral("true"));
}

void tst_SmtpAccess::storeAndLoad_data()
{
    QTest::addColumn<SmtpAccess>("access");
    QTest::addColumn<bool>("withPassword");
    QTest::newRow("ssl, with password") << SmtpAccess("mx", true, false, "u", "p") << true;
    QTest::newRow("starttls, no password") << SmtpAccess("mx", false, true, "u", "secret") << false;
    QTest::newRow("odd port and text")
        << SmtpAccess("m x,y", 2525, QString::fromUtf8("jörg"), "a,b;c=d") << true;
}

void tst_SmtpAccess::storeAndLoad()
{
    QFETCH(SmtpAccess, access);
    QFETCH(bool, withPassword);
    {
        QSettings settings(iniPath(), QSettings::IniFormat);
        access.store(settings, kPrefix, withPassword);
    }
    QSettings settings(iniPath(), QSettings::IniFormat);
    QCOMPARE(settings.contains(kPrefix + "password"), withPassword);
    SmtpAccess loaded("old", true, !access.tls, "old", "old");
    loaded.load(settings, kPrefix);
    SmtpAccess expected = access;
    if (!withPassword)
        expected.password.clear();
    compareAccess(loaded, expected);
}

void tst_SmtpAccess::storesBooleansAsBooleans()
{
    QSettings settings(iniPath(), QSettings::IniFormat);
    SmtpAccess("mx", true, false, "u", "p").store(settings, kPrefix, false);
    settings.sync();
    QFile file(iniPath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray ini = file.readAll();
    QVERIFY2(ini.contains("ssl=true"), ini.constData());
    QVERIFY2(ini.contains("tls=false"), ini.constData());
    QVERIFY2(!ini.contains("password"), ini.constData());
}

void tst_SmtpAccess::loadWithoutKeysResets()
{
    QSettings settings(iniPath(), QSettings::IniFormat);
    SmtpAccess access("mx", true, true, "u", "p");
    access.load(settings, kPrefix);
    compareAccess(access, SmtpAccess(QString(), 465, QString(), QString()));
}

void tst_SmtpAccess::update_data()
{
    QTest::addColumn<QVariantMap>("stored");
    QTest::addColumn<bool>("tlsBefore");
    QTest::addColumn<bool>("changed");
    QTest::addColumn<bool>("tlsAfter");
    QTest::addColumn<QString>("hostAfter");
    QTest::addColumn<int>("portAfter");
    QTest::newRow("empty store") << QVariantMap() << true << false << true << "mx" << 25;
    QTest::newRow("same tls") << QVariantMap{{"tls", true}} << true << false << true << "mx" << 25;
    QTest::newRow("tls switched on") << QVariantMap{{"tls", "yes"}} << false << true << true << "mx" << 25;
    QTest::newRow("tls switched off") << QVariantMap{{"tls", false}} << true << true << false << "mx" << 25;
    QTest::newRow("unreadable tls reads true")
        << QVariantMap{{"tls", "maybe"}} << false << true << true << "mx" << 25;
    QTest::newRow("unreadable tls, already true")
        << QVariantMap{{"tls", "maybe"}} << true << false << true << "mx" << 25;
    QTest::newRow("base change only") << QVariantMap{{"host", "other"}} << false << true << false << "other" << 25;
    QTest::newRow("same host and port")
        << QVariantMap{{"host", "mx"}, {"port", 25}} << false << false << false << "mx" << 25;
    QTest::newRow("port changed") << QVariantMap{{"port", "587"}} << true << true << true << "mx" << 587;
    QTest::newRow("unreadable port") << QVariantMap{{"port", "smtp"}} << true << false << true << "mx" << 25;
}

void tst_SmtpAccess::update()
{
    QFETCH(QVariantMap, stored);
    QFETCH(bool, tlsBefore);
    QFETCH(bool, changed);
    QFETCH(bool, tlsAfter);
    QFETCH(QString, hostAfter);
    QFETCH(int, portAfter);
    {
        QSettings settings(iniPath(), QSettings::IniFormat);
        for (auto it = stored.cbegin(); it != stored.cend(); ++it)
            settings.setValue(kPrefix + it.key(), it.value());
    }
    QSettings settings(iniPath(), QSettings::IniFormat);
    SmtpAccess access("mx", false, tlsBefore, "u", "p");
    QCOMPARE(access.update(settings, kPrefix), changed);
    QCOMPARE(access.tls, tlsAfter);
    QCOMPARE(access.host, hostAfter);
    QCOMPARE(access.port, portAfter);
    QCOMPARE(access.user, QStringLiteral("u"));
    QCOMPARE(access.password, QStringLiteral("p"));
}

void tst_SmtpAccess::xmlRoundTrip_data()
{
    QTest::addColumn<SmtpAccess>("access");
    QTest::addColumn<bool>("withPassword");
    QTest::newRow("all set") << SmtpAccess("mx", true, true, "u", "p") << true;
    QTest::newRow("password omitted") << SmtpAccess("mx", false, true, "u", "secret") << false;
    QTest::newRow("markup in values") << SmtpAccess("<mx>", 2525, "a&b", "\"x\"") << true;
}

void tst_SmtpAccess::xmlRoundTrip()
{
    QFETCH(SmtpAccess, access);
    QFETCH(bool, withPassword);
    QDomDocument doc;
    const QDomElement element = toXml(access, withPassword, doc);
    QCOMPARE(element.firstChildElement("Password").isNull(), !withPassword);
    SmtpAccess loaded("old", true, !access.tls, "old", "old");
    loaded.loadXml(element);
    SmtpAccess expected = access;
    if (!withPassword)
        expected.password.clear();
    compareAccess(loaded, expected);
}

void tst_SmtpAccess::xmlWritesTlsWhenFalse()
{
    QDomDocument doc;
    const QDomElement element = toXml(SmtpAccess("mx", true, false, "u", "p"), false, doc);
    QCOMPARE(element.firstChildElement("TLS").text(), QStringLiteral("false"));
    QCOMPARE(element.firstChildElement("SSL").text(), QStringLiteral("true"));
    QVERIFY(element.firstChildElement("tls").isNull());
}

void tst_SmtpAccess::loadXmlWithoutElements()
{
    QDomDocument doc;
    QVERIFY(doc.setContent(QStringLiteral("<Server><Unknown>x</Unknown></Server>")));
    SmtpAccess access("mx", true, true, "u", "p");
    access.loadXml(doc.documentElement());
    compareAccess(access, SmtpAccess(QString(), 465, QString(), QString()));
}

QTEST_GUILESS_MAIN(tst_SmtpAccess)
#include "tst_smtpaccess.moc"
