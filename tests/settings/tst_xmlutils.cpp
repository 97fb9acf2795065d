#include "support/Preferences.h"
#include "support/XmlOutputStream.h"
#include "support/XmlUtils.h"

#include <QDomDocument>
#include <QTemporaryDir>
#include <QXmlStreamWriter>
#include <QtTest>

using oru::Preferences;
using oru::XmlUtils;

// The readers behind the settings persistence, each asked the same question
// through an XML element and through an INI settings file.
class tst_XmlUtils : public QObject
{
    Q_OBJECT

private slots:
    void values_data();
    void values();
    void typedAndMissingSettings();
    void elementWriterForms();
};

void tst_XmlUtils::values_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("defaultValue");
    QTest::addColumn<bool>("expectedBool");
    QTest::addColumn<int>("expectedInt");  // with default 99
    const char* const trueWords[] = {"true", "TRUE", "True", "yes", "YES", "on", "On", " yes "};
    const char* const falseWords[] = {"false", "FALSE", "no", "No", "off", "OFF", "\tno\n"};
    for (const char* word : trueWords)
        QTest::addRow("'%s' over default false", word) << word << false << true << 99;
    for (const char* word : falseWords)
        QTest::addRow("'%s' over default true", word) << word << true << false << 99;
    QTest::newRow("1") << "1" << false << true << 1;
    QTest::newRow("0") << " 0 " << true << false << 0;
    const char* const otherWords[] = {"", "maybe", "y", "truee", "o n"};
    for (const char* word : otherWords) {
        QTest::addRow("'%s' gives default true", word) << word << true << true << 99;
        QTest::addRow("'%s' gives default false", word) << word << false << false << 99;
    }
    QTest::newRow("number 2 is no bool") << "2" << true << true << 2;
    QTest::newRow("negative") << "-1" << false << false << -1;
    QTest::newRow("beyond int") << "99999999999" << false << false << 99;
}

void tst_XmlUtils::values()
{
    QFETCH(QString, text);
    QFETCH(bool, defaultValue);
    QFETCH(bool, expectedBool);
    QFETCH(int, expectedInt);

    QDomDocument doc;
    QDomElement root = doc.createElement("Root");
    root.appendChild(doc.createElement("Value")).appendChild(doc.createTextNode(text));
    QCOMPARE(XmlUtils::boolValue(root, "Value", defaultValue), expectedBool);
    QCOMPARE(XmlUtils::intValue(root, "Value", 99), expectedInt);
    QCOMPARE(XmlUtils::stringValue(root, "Value"), text);

    QTemporaryDir dir;
    const QString path = dir.filePath("prefs.ini");
    QSettings(path, QSettings::IniFormat).setValue("group/value", text);
    const QSettings settings(path, QSettings::IniFormat);
    QCOMPARE(Preferences::boolValue(settings, "group/value", defaultValue), expectedBool);
    QCOMPARE(Preferences::intValue(settings, "group/value", 99), expectedInt);
    QCOMPARE(Preferences::stringValue(settings, "group/value"), text);
}

void tst_XmlUtils::typedAndMissingSettings()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("typed.ini");
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("[General]\nlist=a,b\n");
    }
    QSettings settings(path, QSettings::IniFormat);
    // Values not yet written out keep their types.
    settings.setValue("on", true);
    settings.setValue("one", 1);
    QCOMPARE(Preferences::boolValue(settings, "on", false), true);
    QCOMPARE(Preferences::boolValue(settings, "one", false), true);
    QCOMPARE(Preferences::intValue(settings, "on", 7), 7);
    // A hand-written value with a comma reads back as a list.
    QCOMPARE(Preferences::boolValue(settings, "list", true), true);
    QCOMPARE(Preferences::stringValue(settings, "list"), QStringLiteral("a,b"));
    QCOMPARE(Preferences::boolValue(settings, "missing", true), true);
    QCOMPARE(Preferences::stringValue(settings, "missing", "d"), QStringLiteral("d"));

    QDomDocument doc;
    QVERIFY(doc.setContent(QStringLiteral("<Root><flag>true</flag><Sub><Flag>true</Flag></Sub></Root>")));
    // Names are case-sensitive and only direct children count.
    QCOMPARE(XmlUtils::boolValue(doc.documentElement(), "Flag", false), false);
    QCOMPARE(XmlUtils::stringValue(doc.documentElement(), "Flag", "d"), QStringLiteral("d"));
}

void tst_XmlUtils::elementWriterForms()
{
    QString text;
    QXmlStreamWriter writer(&text);
    oru::XmlOutputStream stream(writer);
    stream.element("A", QStringLiteral("x<y"));
    stream.element("B", "literal");
    stream.element("C", -12);
    stream.element("D", true);
    stream.element("E", false);
    QCOMPARE(text, QStringLiteral("<A>x&lt;y</A><B>literal</B><C>-12</C><D>true</D><E>false</E>"));
}

QTEST_GUILESS_MAIN(tst_XmlUtils)
#include "tst_xmlutils.moc"
