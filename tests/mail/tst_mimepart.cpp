#include <QtTest>

#include "mail/MimePart.h"

#include <QImage>
#include <QTemporaryDir>

using oru::MimePart;

namespace {

const QString ContentType = QStringLiteral("Content-Type");

QString writeFile(const QTemporaryDir &dir, const QString &name, const QByteArray &bytes)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return QString();
    return path;
}

} // namespace

class TestMimePart : public QObject
{
    Q_OBJECT

private slots:
    void construction();
    void emptiness_data();
    void emptiness();
    void headerIndex();
    void constHeaderIndexNeverInserts();
    void childIndexGrows();
    void childIndexExisting();
    void appendingChildren();
    void clear();
    void setText_data();
    void setText();
    void setTextTwiceAddsParameterTwice();
    void setTextAfterClear();
    void setPlainAndHtmlReplaceType();
    void contentDisposition_data();
    void contentDisposition();
    void copyContentFrom();
    void copyContentFromOwnChild();
    void setFile();
    void setFileOverwritesFromStart();
    void setFileMissing();
    void setImage();
    void copiesAreIndependent();
};

void TestMimePart::construction()
{
    const MimePart part(QStringLiteral("image/png"));
    QCOMPARE(part.headers.size(), 1);
    QCOMPARE(part.headers.value(ContentType), QStringLiteral("image/png"));
    QVERIFY(part.parts.isEmpty());
    QVERIFY(part.content.isEmpty());
    QVERIFY(part.isEmpty());
}

void TestMimePart::emptiness_data()
{
    QTest::addColumn<bool>("withHeaders");
    QTest::addColumn<bool>("withChild");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("empty");

    QTest::newRow("headers only") << true << false << QByteArray() << true;
    QTest::newRow("nothing at all") << false << false << QByteArray() << true;
    QTest::newRow("one child") << false << true << QByteArray() << false;
    QTest::newRow("content") << false << false << QByteArray("x") << false;
    QTest::newRow("child and content") << true << true << QByteArray("x") << false;
}

void TestMimePart::emptiness()
{
    QFETCH(bool, withHeaders);
    QFETCH(bool, withChild);
    QFETCH(QByteArray, content);
    QFETCH(bool, empty);

    MimePart part(QStringLiteral("text/plain"));
    if (!withHeaders)
        part.headers.clear();
    else
        part[QStringLiteral("X-Extra")] = QStringLiteral("1");
    if (withChild)
        part.attach(QStringLiteral("text/plain"));
    part.content = content;
    QCOMPARE(part.isEmpty(), empty);
}

void TestMimePart::headerIndex()
{
    MimePart part(QStringLiteral("text/plain"));
    part[QStringLiteral("X-Name")] = QStringLiteral("v");
    QCOMPARE(part.headers.value(QStringLiteral("X-Name")), QStringLiteral("v"));

    // Names are case-sensitive keys.
    part[QStringLiteral("content-type")] = QStringLiteral("other");
    QCOMPARE(part.headers.size(), 3);
    QCOMPARE(part[ContentType], QStringLiteral("text/plain"));

    // The non-const index inserts a missing name with an empty value.
    const QString value = part[QStringLiteral("X-Missing")];
    QVERIFY(value.isEmpty());
    QVERIFY(part.headers.contains(QStringLiteral("X-Missing")));

    // Keys come out in ascending code-unit order.
    QCOMPARE(part.headers.keys(),
             (QStringList{"Content-Type", "X-Missing", "X-Name", "content-type"}));
}

void TestMimePart::constHeaderIndexNeverInserts()
{
    MimePart part(QStringLiteral("text/plain"));
    const MimePart &view = part;
    QVERIFY(view[QStringLiteral("X-Missing")].isEmpty());
    QCOMPARE(view[ContentType], QStringLiteral("text/plain"));
    QCOMPARE(part.headers.size(), 1);
}

void TestMimePart::childIndexGrows()
{
    MimePart part(QStringLiteral("multipart/mixed"));
    MimePart &third = part[2];
    third.content = "third";
    QCOMPARE(part.parts.size(), 3);
    for (const MimePart &child : qAsConst(part.parts)) {
        QCOMPARE(child.headers.size(), 1);
        QCOMPARE(child.headers.value(ContentType), QStringLiteral("text/plain"));
        QVERIFY(child.parts.isEmpty());
    }
    QVERIFY(part.parts.at(0).content.isEmpty());
    QVERIFY(part.parts.at(1).content.isEmpty());
    QCOMPARE(part.parts.at(2).content, QByteArray("third"));

    part[0][1][ContentType] = QStringLiteral("text/html");
    QCOMPARE(part.parts.at(0).parts.size(), 2);
    QCOMPARE(part.parts.at(0).parts.at(1).headers.value(ContentType), QStringLiteral("text/html"));
}

void TestMimePart::childIndexExisting()
{
    MimePart part(QStringLiteral("multipart/mixed"));
    part.attach(QStringLiteral("image/png"));
    part.attach(QStringLiteral("text/csv"));
    QCOMPARE(part[1][ContentType], QStringLiteral("text/csv"));
    QCOMPARE(part.parts.size(), 2);

    const MimePart &view = part;
    QCOMPARE(view[0][ContentType], QStringLiteral("image/png"));
    QCOMPARE(part.parts.size(), 2);
}

void TestMimePart::appendingChildren()
{
    MimePart root(QStringLiteral("multipart/mixed"));
    MimePart &csv = root.attach(QStringLiteral("text/csv"));
    csv.content = "a,b";
    csv[QStringLiteral("X-Mark")] = QStringLiteral("1");
    QCOMPARE(root.parts.size(), 1);
    QCOMPARE(root.parts.last().content, QByteArray("a,b"));
    QCOMPARE(root.parts.last().headers.value(QStringLiteral("X-Mark")), QStringLiteral("1"));

    MimePart leaf(QStringLiteral("image/gif"));
    leaf.content = "GIF";
    root << leaf << leaf;
    QCOMPARE(root.parts.size(), 3);
    leaf.content = "changed";
    QCOMPARE(root.parts.at(1).content, QByteArray("GIF"));
    QCOMPARE(root.parts.at(2).headers.value(ContentType), QStringLiteral("image/gif"));
}

void TestMimePart::clear()
{
    MimePart part(QStringLiteral("multipart/mixed"));
    part.attach(QStringLiteral("text/plain"));
    part.content = "x";
    part[QStringLiteral("X-A")] = QStringLiteral("a");
    part.clear();
    QVERIFY(part.headers.isEmpty());
    QVERIFY(part.parts.isEmpty());
    QVERIFY(part.content.isEmpty());
}

void TestMimePart::setText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("charset");
    QTest::addColumn<QString>("contentType");
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("utf-8") << QStringLiteral("J\u00F6rg") << QByteArray("utf-8")
                           << QStringLiteral("text/plain; charset=utf-8") << QByteArray("J\xC3\xB6rg");
    QTest::newRow("latin-1") << QStringLiteral("J\u00F6rg") << QByteArray("ISO-8859-1")
                             << QStringLiteral("text/plain; charset=ISO-8859-1") << QByteArray("J\xF6rg");
    QTest::newRow("utf-16le writes a byte-order mark")
        << QStringLiteral("a") << QByteArray("UTF-16LE") << QStringLiteral("text/plain; charset=UTF-16LE")
        << QByteArray("\xFF\xFE" "a\0", 4);
    QTest::newRow("unknown charset falls back to utf-8")
        << QStringLiteral("J\u00F6rg") << QByteArray("no-such-charset")
        << QStringLiteral("text/plain; charset=no-such-charset") << QByteArray("J\xC3\xB6rg");
    QTest::newRow("empty text") << QString() << QByteArray("utf-8")
                                << QStringLiteral("text/plain; charset=utf-8") << QByteArray();
}

void TestMimePart::setText()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, charset);
    QFETCH(QString, contentType);
    QFETCH(QByteArray, content);

    MimePart part(QStringLiteral("text/plain"));
    part.content = "older content that is replaced";
    part.setText(text, charset.constData());
    QCOMPARE(part[ContentType], contentType);
    QCOMPARE(part.content, content);
}

void TestMimePart::setTextTwiceAddsParameterTwice()
{
    MimePart part(QStringLiteral("text/plain"));
    part.setText(QStringLiteral("x"), "utf-8");
    part.setText(QStringLiteral("x"), "utf-8");
    QCOMPARE(part[ContentType], QStringLiteral("text/plain; charset=utf-8; charset=utf-8"));

    MimePart nullCharset(QStringLiteral("text/plain"));
    nullCharset.setText(QStringLiteral("J\u00F6rg"), nullptr);
    QCOMPARE(nullCharset[ContentType], QStringLiteral("text/plain; charset="));
    QCOMPARE(nullCharset.content, QByteArray("J\xC3\xB6rg"));
}

void TestMimePart::setTextAfterClear()
{
    MimePart part(QStringLiteral("text/plain"));
    part.clear();
    part.setText(QStringLiteral("x"), "utf-8");
    QCOMPARE(part[ContentType], QStringLiteral("; charset=utf-8"));
    QCOMPARE(part.content, QByteArray("x"));
}

void TestMimePart::setPlainAndHtmlReplaceType()
{
    MimePart part(QStringLiteral("application/octet-stream"));
    part.setPlainText(QStringLiteral("a"), "utf-8");
    part.setPlainText(QStringLiteral("\u00E9"), "ISO-8859-1");
    QCOMPARE(part[ContentType], QStringLiteral("text/plain; charset=ISO-8859-1"));
    QCOMPARE(part.content, QByteArray("\xE9"));

    part.setHtmlText(QStringLiteral("<p>x</p>"), "utf-8");
    QCOMPARE(part[ContentType], QStringLiteral("text/html; charset=utf-8"));
    QCOMPARE(part.content, QByteArray("<p>x</p>"));
    QCOMPARE(part.headers.size(), 1);
}

void TestMimePart::contentDisposition_data()
{
    QTest::addColumn<QString>("disposition");
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("expected");

    QTest::newRow("with file name") << QStringLiteral("attachment") << QStringLiteral("a.pdf")
                                    << QStringLiteral("attachment; filename=\"a.pdf\"");
    QTest::newRow("without file name") << QStringLiteral("attachment") << QString()
                                       << QStringLiteral("attachment");
    QTest::newRow("name inserted as it is")
        << QStringLiteral("inline") << QStringLiteral("sch\u00F6n \"1\".png")
        << QStringLiteral("inline; filename=\"sch\u00F6n \"1\".png\"");
    QTest::newRow("placeholders in the name stay")
        << QStringLiteral("attachment") << QStringLiteral("%1.txt")
        << QStringLiteral("attachment; filename=\"%1.txt\"");
}

void TestMimePart::contentDisposition()
{
    QFETCH(QString, disposition);
    QFETCH(QString, fileName);
    QFETCH(QString, expected);

    MimePart part(QStringLiteral("application/pdf"));
    part.setContentDisposition(QStringLiteral("old"), QStringLiteral("old.bin"));
    part.setContentDisposition(disposition, fileName);
    QCOMPARE(part[QStringLiteral("Content-Disposition")], expected);
    QCOMPARE(part[ContentType], QStringLiteral("application/pdf"));
}

void TestMimePart::copyContentFrom()
{
    MimePart source(QStringLiteral("text/html"));
    source[QStringLiteral("Content-Disposition")] = QStringLiteral("inline");
    source[QStringLiteral("Content-Transfer-Encoding")] = QStringLiteral("8bit");
    source[QStringLiteral("Contentious")] = QStringLiteral("prefix only");
    source[QStringLiteral("content-type")] = QStringLiteral("lower");
    source[QStringLiteral("Contact-Name")] = QStringLiteral("Jane");
    source[QStringLiteral("X-Other")] = QStringLiteral("o");
    source.content = "<p>x</p>";
    source.attach(QStringLiteral("image/png"));

    MimePart target(QStringLiteral("multipart/alternative"));
    target[QStringLiteral("X-Own")] = QStringLiteral("kept");
    target[QStringLiteral("Content-ID")] = QStringLiteral("<kept>");
    target.attach(QStringLiteral("text/plain"));
    target.attach(QStringLiteral("text/html"));

    target.copyContentFrom(source);

    QCOMPARE(target.content, QByteArray("<p>x</p>"));
    QVERIFY(target.parts.isEmpty());
    QCOMPARE(target.headers,
             (QMap<QString, QString>{{"Content-Disposition", "inline"},
                                     {"Content-ID", "<kept>"},
                                     {"Content-Transfer-Encoding", "8bit"},
                                     {"Content-Type", "text/html"},
                                     {"Contentious", "prefix only"},
                                     {"X-Own", "kept"}}));
    QCOMPARE(source.parts.size(), 1);
}

void TestMimePart::copyContentFromOwnChild()
{
    MimePart root(QStringLiteral("multipart/related"));
    MimePart &first = root.attach(QStringLiteral("text/plain; charset=utf-8"));
    first.content = "body";
    first[QStringLiteral("Content-Disposition")] = QStringLiteral("inline");
    first.attach(QStringLiteral("image/png"));
    root.attach(QStringLiteral("image/gif"));

    root.copyContentFrom(root.parts.at(0));

    QCOMPARE(root.content, QByteArray("body"));
    QVERIFY(root.parts.isEmpty());
    QCOMPARE(root[ContentType], QStringLiteral("text/plain; charset=utf-8"));
    QCOMPARE(root[QStringLiteral("Content-Disposition")], QStringLiteral("inline"));
}

void TestMimePart::setFile()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QByteArray bytes("\x00\x01\xFFpdf bytes\r\n", 14);
    const QString path = writeFile(dir, QStringLiteral("a.pdf"), bytes);
    QVERIFY(!path.isEmpty());

    MimePart part(QStringLiteral("application/pdf"));
    part.setFile(path);
    QCOMPARE(part.content, bytes);
    QCOMPARE(part[ContentType], QStringLiteral("application/pdf"));
    QCOMPARE(part.headers.size(), 1);
}

void TestMimePart::setFileOverwritesFromStart()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = writeFile(dir, QStringLiteral("abc.txt"), "abc");
    QVERIFY(!path.isEmpty());

    MimePart part(QStringLiteral("text/plain"));
    part.content = "0123456789";
    part.setFile(path);
    QCOMPARE(part.content, QByteArray("abc3456789"));
}

void TestMimePart::setFileMissing()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    MimePart part(QStringLiteral("text/plain"));
    part.content = "kept";
    part.setFile(dir.filePath(QStringLiteral("does-not-exist")));
    QCOMPARE(part.content, QByteArray("kept"));
    QTest::ignoreMessage(QtWarningMsg, "QFSFileEngine::open: No file name specified");
    part.setFile(QString());
    QCOMPARE(part.content, QByteArray("kept"));
}

void TestMimePart::setImage()
{
    QImage image(4, 3, QImage::Format_RGB32);
    image.fill(Qt::red);

    MimePart part(QStringLiteral("image/png"));
    part.setImage(image, "PNG");
    QVERIFY(part.content.startsWith("\x89PNG"));
    QImage decoded;
    QVERIFY(decoded.loadFromData(part.content, "PNG"));
    QCOMPARE(decoded.size(), image.size());
    QCOMPARE(part[ContentType], QStringLiteral("image/png"));

    // Older bytes beyond the new image stay behind it.
    MimePart longer(QStringLiteral("image/png"));
    longer.content = QByteArray(5000, 'x');
    longer.setImage(image, "PNG");
    QCOMPARE(longer.content.size(), 5000);
    QVERIFY(longer.content.startsWith("\x89PNG"));
    QVERIFY(longer.content.endsWith("xxxx"));
}

void TestMimePart::copiesAreIndependent()
{
    MimePart original(QStringLiteral("multipart/mixed"));
    original.attach(QStringLiteral("text/plain")).content = "one";

    MimePart copy = original;
    copy[0].content = "changed";
    copy[QStringLiteral("X-Copy")] = QStringLiteral("1");
    copy.attach(QStringLiteral("image/png"));

    QCOMPARE(original.parts.size(), 1);
    QCOMPARE(original.parts.at(0).content, QByteArray("one"));
    QVERIFY(!original.headers.contains(QStringLiteral("X-Copy")));

    original[0][QStringLiteral("X-Original")] = QStringLiteral("1");
    QVERIFY(!copy.parts.at(0).headers.contains(QStringLiteral("X-Original")));
}

QTEST_MAIN(TestMimePart)
#include "tst_mimepart.moc"
