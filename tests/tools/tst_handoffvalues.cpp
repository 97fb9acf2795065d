// The values quillet-send hands to a mail program: filled into the
// library's own templates, every text must come out of the program's
// argument syntax as the user wrote it, or be refused.

#include "HandOffValues.h"

#include <Quillet.h>

#include <QUrlQuery>
#include <QtTest>

using send::HandOffKind;
using send::HandOffMessage;

class tst_HandOffValues : public QObject
{
    Q_OBJECT

private slots:
    void mailtoUrlCarriesEveryText_data();
    void mailtoUrlCarriesEveryText();
    void appleScriptEscapes_data();
    void appleScriptEscapes();
    void refusesWhatCannotBeCarried_data();
    void refusesWhatCannotBeCarried();
};

void tst_HandOffValues::mailtoUrlCarriesEveryText_data()
{
    QTest::addColumn<QString>("subject");
    QTest::addColumn<QString>("body");

    QTest::newRow("url syntax in the subject") << "a&cc=x@example.org#top?" << "b";
    QTest::newRow("placeholders before later values") << "%0A %1 %3 %L2" << "body %4";
    const QString tricky = QString::fromUtf8("50% & more #1 = %2 for caf\u00e9?\nNext line + \"quote\"");
    QTest::newRow("everything at once") << tricky << tricky;
}

void tst_HandOffValues::mailtoUrlCarriesEveryText()
{
    QFETCH(QString, subject);
    QFETCH(QString, body);

    const HandOffMessage message{{"ann@example.org", "bob@example.org"}, subject, body, {"/tmp/figures & more.csv"}};
    HandOffMessage prepared;
    QString error;
    QVERIFY2(send::prepareHandOff(HandOffKind::Url, message, &prepared, &error), qPrintable(error));

    // Filled into the library's own template, as the hand-off does.
    oru::MailTo mailTo;
    mailTo[oru::MailTo::eMailtoUrl] = oru::AppCall(oru::AppCall::eUrl, "", "", false,
                                                   oru::MailTo::defaultParamSet(oru::MailTo::eMailtoUrl));
    const oru::AppCall& call = mailTo.call(oru::MailTo::eMailtoUrl, prepared.subject, prepared.body,
                                           prepared.attachments, prepared.recipients.join(','));
    const QUrl url(call.mergeParams(false), QUrl::TolerantMode);
    QVERIFY2(url.isValid(), qPrintable(url.errorString()));
    QCOMPARE(url.scheme(), QStringLiteral("mailto"));
    QCOMPARE(url.path(QUrl::FullyDecoded), QStringLiteral("ann@example.org,bob@example.org"));
    // The template puts double quotes around the values.
    const QUrlQuery query(url);
    QCOMPARE(query.queryItems().size(), 3);
    QCOMPARE(query.queryItemValue("subject", QUrl::FullyDecoded), "\"" + subject + "\"");
    QCOMPARE(query.queryItemValue("body", QUrl::FullyDecoded), "\"" + body + "\"");
    QCOMPARE(query.queryItemValue("attach", QUrl::FullyDecoded), QStringLiteral("\"file:///tmp/figures & more.csv\""));
}

void tst_HandOffValues::appleScriptEscapes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("escaped");  // inside "..." inside a single-quoted shell word

    QTest::newRow("plain") << "Hello there" << "Hello there";
    QTest::newRow("backslash, double quote, apostrophe") << "C:\\temp \"hi\" it's \\\"'"
                                                          << "C:\\\\temp \\\"hi\\\" it'\\''s \\\\\\\"'\\''";
}

void tst_HandOffValues::appleScriptEscapes()
{
    QFETCH(QString, text);
    QFETCH(QString, escaped);

    const HandOffMessage message{{text}, text, text, {text, text}};
    HandOffMessage prepared;
    QString error;
    QVERIFY2(send::prepareHandOff(HandOffKind::AppleScript, message, &prepared, &error), qPrintable(error));
    QCOMPARE(prepared.recipients, QStringList{escaped});
    QCOMPARE(prepared.subject, escaped);
    QCOMPARE(prepared.body, escaped);
    QCOMPARE(prepared.attachments, (QStringList{escaped, escaped}));
}

void tst_HandOffValues::refusesWhatCannotBeCarried_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("subject");
    QTest::addColumn<QStringList>("attachments");
    QTest::addColumn<QString>("option");  // empty: accepted

    const int applescript = int(HandOffKind::AppleScript), thunderbird = int(HandOffKind::Thunderbird);
    const int outlook = int(HandOffKind::Outlook), url = int(HandOffKind::Url);
    QTest::newRow("applescript, placeholder in subject") << applescript << "Take %2" << QStringList() << "--subject";
    QTest::newRow("applescript, percent without digit") << applescript << "100% sure" << QStringList() << "";
    QTest::newRow("thunderbird, comma in one of two paths")
        << thunderbird << "x" << QStringList{"/a,b.txt", "/c.txt"} << "--attach";
    QTest::newRow("thunderbird, comma in the only path") << thunderbird << "x" << QStringList{"/a,b.txt"} << "";
    QTest::newRow("outlook, quote in path") << outlook << "x" << QStringList{"/a\"b"} << "--attach";
    QTest::newRow("url, placeholder in subject") << url << "%1%2" << QStringList{"/a"} << "";
}

void tst_HandOffValues::refusesWhatCannotBeCarried()
{
    QFETCH(int, kind);
    QFETCH(QString, subject);
    QFETCH(QStringList, attachments);
    QFETCH(QString, option);

    const HandOffMessage message{{}, subject, QString(), attachments};
    HandOffMessage prepared;
    QString error;
    const bool accepted = send::prepareHandOff(HandOffKind(kind), message, &prepared, &error);
    QCOMPARE(accepted, option.isEmpty());
    if (!accepted)
        QVERIFY2(error.startsWith(option + QLatin1Char(':')), qPrintable(error));
}

QTEST_GUILESS_MAIN(tst_HandOffValues)
#include "tst_handoffvalues.moc"
