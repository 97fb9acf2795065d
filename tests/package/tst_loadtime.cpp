// What the library sets up when it is loaded: the embedded translations and
// the meta types that let messages travel in queued signals.
#include <Quillet.h>

#include <QFile>
#include <QMetaType>
#include <QTranslator>
#include <QtTest>

class tst_LoadTime : public QObject
{
    Q_OBJECT

private slots:
    void translationLoads_data();
    void translationLoads();
    void messageTypesRegistered_data();
    void messageTypesRegistered();
};

void tst_LoadTime::translationLoads_data()
{
    QTest::addColumn<QString>("file");
    QTest::newRow("French") << QStringLiteral(":/Translations/Quillet_fr.qm");
    QTest::newRow("German") << QStringLiteral(":/Translations/Quillet_de.qm");
}

void tst_LoadTime::translationLoads()
{
    QFETCH(QString, file);
    QVERIFY2(QFile::exists(file), qPrintable(file));
    QTranslator translator;
    QVERIFY(translator.load(file));
    QVERIFY(translator.isEmpty());
}

void tst_LoadTime::messageTypesRegistered_data()
{
    QTest::addColumn<int>("slot");
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("raw pointer") << 0 << QByteArray("oru::EMail*");
    QTest::newRow("shared pointer") << 1 << QByteArray("oru::EMailPtr");
    QTest::newRow("shared const pointer") << 2 << QByteArray("oru::constEMailPtr");
}

void tst_LoadTime::messageTypesRegistered()
{
    QFETCH(int, slot);
    QFETCH(QByteArray, name);
    const int id = QMetaType::type(name.constData());
    QVERIFY2(id != QMetaType::UnknownType, name.constData());
    QCOMPARE(oru::SmtpClient::gEmailMetaTypes[slot], id);
}

QTEST_GUILESS_MAIN(tst_LoadTime)
#include "tst_loadtime.moc"
