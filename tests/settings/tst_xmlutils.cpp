#include "support/Preferences.h"
#include "support/XmlOutputStream.h"
#include "support/XmlUtils.h"

#include <QDomDocument>
#include <QTemporaryDir>
#include <QXmlStreamWriter>
#include <QtTest>

using oru::Preferences;
using oru::XmlUtils;

// Boolean, number and text reading from XML elements and settings stores,
// and the element writer they pair with.
class tst_XmlUtils : public QObject
{
    Q_OBJECT

private slots:
    void boolValue_data();
    void boolValue();
    void missingValueGivesDefault();
    void typedSettingsValues();
    void intValue_data();
    void intValue();
    void stringValueJoinsSplitList();
    void elementWriterForms();
};

void tst_XmlUtils::boolValue_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("defaultValue");
    QTest::addColumn<bool>("expected");
    const char* const trueWords[] = {"true", "TRUE", "True", "1", "yes", "YES", "on", "On", " yes "};
    const char* const falseWords[] = {"false", "FALSE", "0", "no", "No", "off", "OFF", "\tno\n"};
    for (const char* word : trueWords)
        QTest::addRow("'%s' over default false", word) << QString::fromLatin1(word) << false << true;
    for (const char* word : falseWords)
        QTest::addRow("'%s' over default true", word) << QString::fromLatin1(word) << true << false;
    const char* const otherWords[] = {"", "maybe", "2", "-1", "y", "n", "truee", "o n"};
    for (const char* word : otherWords) {
        QTest::addRow("'%s' gives default true", word) << QString::fromLatin1(word) << true << true;
        QTest::addRow("'%s' gives default false", word) << QString::fromLatin1(word) << false << false;
    }
}

void tst_XmlUtils::boolValue()
{
    QFETCH(QString, text);
    QFETCH(bool, defaultValue);
    QFETCH(bool, expected);

    QDomDocument doc;
    QDomElement root = doc.createElement("Root");
    QDomElement child = doc.createElement("Flag");
    child.appendChild(doc.createTextNode(text));
    root.appendChild(child);
    QCOMPARE(XmlUtils::boolValue(root, "Flag", defaultValue), expected);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath("prefs.ini");
    QSettings(path, QSettings::IniFormat).setValue("group/flag", text);
    const QSettings settings(path, QSettings::IniFormat);
    QCOMPARE(Preferences::boolValue(settings, "group/flag", defaultValue), expected);
}

void tst_XmlUtils::missingValueGivesDefault()
{
    QDomDocument doc;
    QVERIFY(doc.setContent(QStringLiteral("<Root><flag>true</flag><Other><Flag>true</Flag></Other></Root>")));
    const QDomElement root = doc.documentElement();
    // Names are case-sensitive and only direct children count.
    QCOMPARE(XmlUtils::boolValue(root, "Flag", false), false);
    QCOMPARE(XmlUtils::boolValue(QDomElement(), "Flag", true), true);
    QCOMPARE(XmlUtils::stringValue(root, "Flag", "none"), QStringLiteral("none"));

    QTemporaryDir dir;
    const QSettings settings(dir.filePath("empty.ini"), QSettings::IniFormat);
    QCOMPARE(Preferences::boolValue(settings, "flag", true), true);
    QCOMPARE(Preferences::intValue(settings, "port", 42), 42);
    QCOMPARE(Preferences::stringValue(settings, "host", "h"), QStringLiteral("h"));
}

void tst_XmlUtils::typedSettingsValues()
{
    // A store that keeps types (here: not yet written to disk) hands back bools
    // and numbers as they are.
    QTemporaryDir dir;
    QSettings settings(dir.filePath("typed.ini"), QSettings::IniFormat);
    settings.setValue("on", true);
    settings.setValue("off", false);
    settings.setValue("one", 1);
    settings.setValue("list", QStringList{"a", "b"});
    QCOMPARE(Preferences::boolValue(settings, "on", false), true);
    QCOMPARE(Preferences::boolValue(settings, "off", true), false);
    QCOMPARE(Preferences::boolValue(settings, "one", false), true);
    QCOMPARE(Preferences::boolValue(settings, "list", true), true);
    QCOMPARE(Preferences::intValue(settings, "on", 7), 7);
    QCOMPARE(Preferences::intValue(settings, "one", 7), 1);
}

void tst_XmlUtils::intValue_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("expected");
    QTest::newRow("plain") << "587" << 587;
    QTest::newRow("padded") << " 25 " << 25;
    QTest::newRow("negative") << "-1" << -1;
    QTest::newRow("word") << "smtp" << 99;
    QTest::newRow("empty") << "" << 99;
    QTest::newRow("too large") << "99999999999" << 99;
}

void tst_XmlUtils::intValue()
{
    QFETCH(QString, text);
    QFETCH(int, expected);
    QDomDocument doc;
    QVERIFY(doc.setContent("<Root><Port>" + text + "</Port></Root>"));
    QCOMPARE(XmlUtils::intValue(doc.documentElement(), "Port", 99), expected);

    QTemporaryDir dir;
    const QString path = dir.filePath("prefs.ini");
    QSettings(path, QSettings::IniFormat).setValue("port", text);
    QCOMPARE(Preferences::intValue(QSettings(path, QSettings::IniFormat), "port", 99), expected);
}

void tst_XmlUtils::stringValueJoinsSplitList()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("hand.ini");
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("[General]\npassword=a,b\nhost=\"x,y\"\n");
    }
    const QSettings settings(path, QSettings::IniFormat);
    QCOMPARE(Preferences::stringValue(settings, "password"), QStringLiteral("a,b"));
    QCOMPARE(Preferences::stringValue(settings, "host"), QStringLiteral("x,y"));
}

void tst_XmlUtils::elementWriterForms()
{
    QString text;
    QXmlStreamWriter writer(&text);
    oru::XmlOutputStream stream(writer);
    QCOMPARE(&stream.writer(), &writer);
    stream.element("A", QStringLiteral("x<y"));
    stream.element("B", "literal");
    stream.element("C", -12);
    stream.element("D", true);
    stream.element("E", false);
    QCOMPARE(text, QStringLiteral("<A>x&lt;y</A><B>literal</B><C>-12</C><D>true</D><E>false</E>"));
}

QTEST_GUILESS_MAIN(tst_XmlUtils)
#include "tst_xmlutils.moc"
