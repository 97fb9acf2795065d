#include <QtTest>

#include "mail/MimePart.h"

#include <QImage>
#include <QTemporaryDir>

using oru::MimePart;

namespace {

const QString ContentType = QStringLiteral("Content-Type");

} // namespace

class TestMimePart : public QObject
{
    Q_OBJECT

private slots:
    void emptiness();
    void headerIndex();
    void childIndex();
    void appendingChildren();
    void setText_data();
    void setText();
    void charsetParameterIsAppended();
    void contentDisposition_data();
    void contentDisposition();
    void copyContentFrom();
    void copyContentFromOwnChild();
    void setFile_data();
    void setFile();
    void setImage();
    void copiesAreIndependent();
};

void TestMimePart::emptiness()
{
    MimePart part(QStringLiteral("image/png"));
    QCOMPARE(part.headers, (QMap<QString, QString>{{"Content-Type", "image/png"}}));
    QVERIFY(part.parts.isEmpty() && part.content.isEmpty());
    QVERIFY(part.isEmpty());
    part.attach(QStringLiteral("text/plain"));
    QVERIFY(!part.isEmpty());
    MimePart withContent(QStringLiteral("text/plain"));
    withContent.content = "x";
    QVERIFY(!withContent.isEmpty());
}

void TestMimePart::headerIndex()
{
    MimePart part(QStringLiteral("text/plain"));
    const MimePart &view = part;
    QVERIFY(view[QStringLiteral("X-Missing")].isEmpty());
    QCOMPARE(view[ContentType], QStringLiteral("text/plain"));
    QCOMPARE(part.headers.size(), 1);

    part[QStringLiteral("X-Name")] = QStringLiteral("v");
    part[QStringLiteral("content-type")] = QStringLiteral("other");
    QVERIFY(part[QStringLiteral("X-Missing")].isEmpty());
    QCOMPARE(part[ContentType], QStringLiteral("text/plain"));
    // Case-sensitive keys in ascending code-unit order; the missing name was added.
    QCOMPARE(part.headers.keys(), (QStringList{"Content-Type", "X-Missing", "X-Name", "content-type"}));
    QCOMPARE(part.headers.value(QStringLiteral("X-Name")), QStringLiteral("v"));
}

void TestMimePart::childIndex()
{
    MimePart part(QStringLiteral("multipart/mixed"));
    part[2].content = "third";
    QCOMPARE(part.parts.size(), 3);
    for (const MimePart &child : qAsConst(part.parts)) {
        QCOMPARE(child.headers, (QMap<QString, QString>{{"Content-Type", "text/plain"}}));
        QVERIFY(child.parts.isEmpty());
    }
    QVERIFY(part.parts.at(1).content.isEmpty());
    QCOMPARE(part.parts.at(2).content, QByteArray("third"));

    // Existing children are returned as they are, by both indexes.
    part[0][1][ContentType] = QStringLiteral("text/html");
    const MimePart &view = part;
    QCOMPARE(view[0][1][ContentType], QStringLiteral("text/html"));
    QCOMPARE(part[0].parts.size(), 2);
    QCOMPARE(part.parts.size(), 3);
}

void TestMimePart::appendingChildren()
{
    MimePart root(QStringLiteral("multipart/mixed"));
    MimePart &csv = root.attach(QStringLiteral("text/csv"));
    csv.content = "a,b";
    QCOMPARE(root.parts.size(), 1);
    QCOMPARE(root.parts.last().content, QByteArray("a,b"));
    QCOMPARE(root.parts.last()[ContentType], QStringLiteral("text/csv"));

    MimePart leaf(QStringLiteral("image/gif"));
    leaf.content = "GIF";
    root << leaf << leaf;
    leaf.content = "changed";
    QCOMPARE(root.parts.size(), 3);
    QCOMPARE(root.parts.at(2).content, QByteArray("GIF"));
    QCOMPARE(root.parts.at(2)[ContentType], QStringLiteral("image/gif"));
}

void TestMimePart::setText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("charset");
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("utf-8") << "J\u00F6rg" << QByteArray("utf-8") << QByteArray("J\xC3\xB6rg");
    QTest::newRow("latin-1") << "J\u00F6rg" << QByteArray("ISO-8859-1") << QByteArray("J\xF6rg");
    QTest::newRow("unknown charset falls back to utf-8")
        << "J\u00F6rg" << QByteArray("no-such-charset") << QByteArray("J\xC3\xB6rg");
    QTest::newRow("empty text") << QString() << QByteArray("utf-8") << QByteArray();
}

void TestMimePart::setText()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, charset);
    QFETCH(QByteArray, content);

    MimePart part(QStringLiteral("text/plain"));
    part.content = "older content that is replaced";
    part.setText(text, charset.constData());
    QCOMPARE(part[ContentType], QStringLiteral("text/plain; charset=") + QString::fromLatin1(charset));
    QCOMPARE(part.content, content);

    // The typed setters replace the whole type first.
    part.setHtmlText(text, "utf-8");
    part.setPlainText(text, charset.constData());
    QCOMPARE(part[ContentType], QStringLiteral("text/plain; charset=") + QString::fromLatin1(charset));
    QCOMPARE(part.content, content);
    part.setHtmlText(QStringLiteral("<p>x</p>"), "utf-8");
    QCOMPARE(part.headers, (QMap<QString, QString>{{"Content-Type", "text/html; charset=utf-8"}}));
    QCOMPARE(part.content, QByteArray("<p>x</p>"));
}

void TestMimePart::charsetParameterIsAppended()
{
    MimePart part(QStringLiteral("text/plain"));
    part.setText(QStringLiteral("x"), "utf-8");
    part.setText(QStringLiteral("x"), "utf-8");
    QCOMPARE(part[ContentType], QStringLiteral("text/plain; charset=utf-8; charset=utf-8"));

    part.attach(QStringLiteral("text/plain"));
    part.clear();
    QVERIFY(part.headers.isEmpty() && part.parts.isEmpty() && part.content.isEmpty());
    part.setText(QStringLiteral("x"), "utf-8");
    QCOMPARE(part[ContentType], QStringLiteral("; charset=utf-8"));
    QCOMPARE(part.content, QByteArray("x"));

    MimePart nullCharset(QStringLiteral("text/plain"));
    nullCharset.setText(QStringLiteral("J\u00F6rg"), nullptr);
    QCOMPARE(nullCharset[ContentType], QStringLiteral("text/plain; charset="));
    QCOMPARE(nullCharset.content, QByteArray("J\xC3\xB6rg"));
}

void TestMimePart::contentDisposition_data()
{
    QTest::addColumn<QString>("disposition");
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("expected");

    QTest::newRow("with file name") << "attachment" << "a.pdf" << "attachment; filename=\"a.pdf\"";
    QTest::newRow("without file name") << "attachment" << QString() << "attachment";
    QTest::newRow("name inserted as it is, placeholders too")
        << "inline" << "sch\u00F6n \"%1\".png" << "inline; filename=\"sch\u00F6n \"%1\".png\"";
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
    source.content = "<p>x</p>";
    source.attach(QStringLiteral("image/png"));

    MimePart target(QStringLiteral("multipart/alternative"));
    target[QStringLiteral("X-Own")] = QStringLiteral("kept");
    target.attach(QStringLiteral("text/plain"));

    target.copyContentFrom(source);
    QCOMPARE(target.content, QByteArray("<p>x</p>"));
    QVERIFY(target.parts.isEmpty());
    QCOMPARE(target.headers, (QMap<QString, QString>{{"Content-Disposition", "inline"},
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
    QCOMPARE(root.headers, (QMap<QString, QString>{{"Content-Disposition", "inline"},
                                                   {"Content-Type", "text/plain; charset=utf-8"}}));
}

void TestMimePart::setFile_data()
{
    QTest::addColumn<QByteArray>("file"); // no file when null
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");

    const QByteArray binary("\x00\x01\xFFpdf bytes\r\n", 14);
    QTest::newRow("fresh node gets the file") << binary << QByteArray() << binary;
    QTest::newRow("overwrites from the start") << QByteArray("abc") << QByteArray("0123456789")
                                               << QByteArray("abc3456789");
    QTest::newRow("missing file keeps the content") << QByteArray() << QByteArray("kept") << QByteArray("kept");
}

void TestMimePart::setFile()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, after);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("a.pdf"));
    if (!file.isNull()) {
        QFile out(path);
        QVERIFY(out.open(QIODevice::WriteOnly) && out.write(file) == file.size());
    }
    MimePart part(QStringLiteral("application/pdf"));
    part.content = before;
    part.setFile(path);
    QCOMPARE(part.content, after);
    QCOMPARE(part.headers, (QMap<QString, QString>{{"Content-Type", "application/pdf"}}));
}

void TestMimePart::setImage()
{
    QImage image(4, 3, QImage::Format_RGB32);
    image.fill(Qt::red);

    MimePart part(QStringLiteral("image/png"));
    part.setImage(image, "PNG");
    QCOMPARE(QImage::fromData(part.content, "PNG").size(), image.size());
    QCOMPARE(part.headers, (QMap<QString, QString>{{"Content-Type", "image/png"}}));

    // Older bytes beyond the new image stay behind it.
    part.content = QByteArray(5000, 'x');
    part.setImage(image, "PNG");
    QCOMPARE(part.content.size(), 5000);
    QVERIFY(part.content.startsWith("\x89PNG"));
    QVERIFY(part.content.endsWith("xxxx"));
}

void TestMimePart::copiesAreIndependent()
{
    MimePart original(QStringLiteral("multipart/mixed"));
    original.attach(QStringLiteral("text/plain")).content = "one";
    MimePart copy = original;
    copy[0].content = "changed";
    copy.attach(QStringLiteral("image/png"));
    QCOMPARE(original.parts.size(), 1);
    QCOMPARE(original.parts.at(0).content, QByteArray("one"));
    original[0][ContentType] = QStringLiteral("text/html");
    QCOMPARE(copy.parts.at(0)[ContentType], QStringLiteral("text/plain"));
}

QTEST_MAIN(TestMimePart)
#include "tst_mimepart.moc"
