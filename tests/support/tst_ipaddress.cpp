#include <QtTest>

#include "support/IPAddress.h"

using oru::IPAddress;

class TestIPAddress : public QObject
{
    Q_OBJECT

private slots:
    void isIPv4Address_data();
    void isIPv4Address();
};

void TestIPAddress::isIPv4Address_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("valid");

    QTest::newRow("private") << QByteArray("10.0.0.1") << true;
    QTest::newRow("all zero") << QByteArray("0.0.0.0") << true;
    QTest::newRow("all max") << QByteArray("255.255.255.255") << true;
    QTest::newRow("field above 255") << QByteArray("256.0.0.1") << false;
    QTest::newRow("last field above 255") << QByteArray("1.2.3.999") << false;
    QTest::newRow("four digits") << QByteArray("1.2.3.0255") << false;
    QTest::newRow("leading zero") << QByteArray("10.0.0.01") << false;
    QTest::newRow("three fields") << QByteArray("10.0.1") << false;
    QTest::newRow("five fields") << QByteArray("1.2.3.4.5") << false;
    QTest::newRow("trailing dot") << QByteArray("1.2.3.4.") << false;
    QTest::newRow("leading dot") << QByteArray(".1.2.3.4") << false;
    QTest::newRow("empty field") << QByteArray("1..3.4") << false;
    QTest::newRow("empty") << QByteArray() << false;
    QTest::newRow("sign") << QByteArray("+1.2.3.4") << false;
    QTest::newRow("trailing space") << QByteArray("1.2.3.4 ") << false;
    QTest::newRow("hex") << QByteArray("0x1.2.3.4") << false;
    QTest::newRow("single number") << QByteArray("167772161") << false;
    QTest::newRow("embedded NUL") << QByteArray("1.2.3.4\0", 8) << false;
}

void TestIPAddress::isIPv4Address()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, valid);
    QCOMPARE(IPAddress::isIPv4Address(text), valid);
}

QTEST_APPLESS_MAIN(TestIPAddress)
#include "tst_ipaddress.moc"
