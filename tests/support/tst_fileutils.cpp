#include <QtTest>

#include "support/FileUtils.h"

#include <QBuffer>

using oru::FileUtils;

namespace {

// A sequential source whose chunks become readable one per wait; it records
// the wait times it was given.
class TrickleDevice : public QIODevice
{
public:
    explicit TrickleDevice(const QList<QByteArray> &chunks) : m_pending(chunks) {}
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return m_ready.size() + QIODevice::bytesAvailable(); }
    bool waitForReadyRead(int msecs) override
    {
        waits.append(msecs);
        if (m_pending.isEmpty())
            return false;
        m_ready += m_pending.takeFirst();
        return true;
    }
    QList<int> waits;

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const int n = int(qMin<qint64>(maxSize, m_ready.size()));
        memcpy(data, m_ready.constData(), size_t(n));
        m_ready.remove(0, n);
        return n;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QList<QByteArray> m_pending;
    QByteArray m_ready;
};

// A target that takes a fixed number of bytes and then refuses the rest.
class SmallSink : public QIODevice
{
public:
    explicit SmallSink(int capacity) : m_capacity(capacity) {}
    QByteArray received;

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *data, qint64 size) override
    {
        const int n = int(qMin<qint64>(size, m_capacity - received.size()));
        if (n <= 0)
            return -1;
        received.append(data, n);
        return n;
    }

private:
    int m_capacity;
};

QByteArray pattern(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        bytes[i] = char(i * 7 % 256);
    return bytes;
}

} // namespace

class TestFileUtils : public QObject
{
    Q_OBJECT

private slots:
    void copyRandomAccess_data();
    void copyRandomAccess();
    void copyStartsAtCurrentPositions();
    void closedDevicesCopyNothing();
    void sequentialSourceWaitsForMore();
    void refusedWriteEndsCopy();
};

void TestFileUtils::copyRandomAccess_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<qint64>("maxBytes");
    QTest::addColumn<int>("expected");

    QTest::newRow("empty") << 0 << qint64(100) << 0;
    QTest::newRow("small") << 10 << qint64(100) << 10;
    QTest::newRow("limit cuts") << 10 << qint64(4) << 4;
    QTest::newRow("zero limit") << 10 << qint64(0) << 0;
    QTest::newRow("negative limit") << 10 << qint64(-1) << 0;
    QTest::newRow("several chunks") << 200000 << qint64(4294967295LL) << 200000;
    QTest::newRow("limit inside a later chunk") << 200000 << qint64(150001) << 150001;
}

void TestFileUtils::copyRandomAccess()
{
    QFETCH(int, size);
    QFETCH(qint64, maxBytes);
    QFETCH(int, expected);

    QByteArray sourceBytes = pattern(size);
    QBuffer source(&sourceBytes);
    QVERIFY(source.open(QIODevice::ReadOnly));
    QBuffer target;
    QVERIFY(target.open(QIODevice::WriteOnly));
    QCOMPARE(FileUtils::copy(source, target, maxBytes, 0), qint64(expected));
    QCOMPARE(target.data(), sourceBytes.left(expected));
}

void TestFileUtils::copyStartsAtCurrentPositions()
{
    QByteArray sourceBytes("0123456789");
    QBuffer source(&sourceBytes);
    QVERIFY(source.open(QIODevice::ReadOnly) && source.seek(6));
    QByteArray targetBytes("abcdefgh");
    QBuffer target(&targetBytes);
    QVERIFY(target.open(QIODevice::ReadWrite) && target.seek(2));
    QCOMPARE(FileUtils::copy(source, target, 100, 0), qint64(4));
    QCOMPARE(targetBytes, QByteArray("ab6789gh"));
}

void TestFileUtils::closedDevicesCopyNothing()
{
    QByteArray sourceBytes("data");
    QBuffer closedSource(&sourceBytes);
    QBuffer target;
    QVERIFY(target.open(QIODevice::WriteOnly));
    QCOMPARE(FileUtils::copy(closedSource, target, 100, 0), qint64(0));
    QVERIFY(target.data().isEmpty());

    QBuffer source(&sourceBytes);
    QVERIFY(source.open(QIODevice::ReadOnly));
    QBuffer closedTarget;
    QCOMPARE(FileUtils::copy(source, closedTarget, 100, 0), qint64(0));
    QBuffer readOnlyTarget;
    QVERIFY(readOnlyTarget.open(QIODevice::ReadOnly));
    QCOMPARE(FileUtils::copy(source, readOnlyTarget, 100, 0), qint64(0));
    QVERIFY(closedTarget.data().isEmpty() && readOnlyTarget.data().isEmpty());
}

void TestFileUtils::sequentialSourceWaitsForMore()
{
    TrickleDevice source({"abc", "defg", "h"});
    QVERIFY(source.open(QIODevice::ReadOnly));
    QBuffer target;
    QVERIFY(target.open(QIODevice::WriteOnly));
    QCOMPARE(FileUtils::copy(source, target, 100, 1234), qint64(8));
    QCOMPARE(target.data(), QByteArray("abcdefgh"));
    // Three waits that brought data and a last one that ended the copy.
    QCOMPARE(source.waits, (QList<int>{1234, 1234, 1234, 1234}));

    TrickleDevice limited({"abc", "def"});
    QVERIFY(limited.open(QIODevice::ReadOnly));
    QBuffer limitedTarget;
    QVERIFY(limitedTarget.open(QIODevice::WriteOnly));
    QCOMPARE(FileUtils::copy(limited, limitedTarget, 5, 10), qint64(5));
    QCOMPARE(limitedTarget.data(), QByteArray("abcde"));
}

void TestFileUtils::refusedWriteEndsCopy()
{
    QByteArray sourceBytes = pattern(1000);
    QBuffer source(&sourceBytes);
    QVERIFY(source.open(QIODevice::ReadOnly));
    SmallSink sink(300);
    QVERIFY(sink.open(QIODevice::WriteOnly));
    QCOMPARE(FileUtils::copy(source, sink, 1000, 0), qint64(300));
    QCOMPARE(sink.received, sourceBytes.left(300));
}

QTEST_APPLESS_MAIN(TestFileUtils)
#include "tst_fileutils.moc"
