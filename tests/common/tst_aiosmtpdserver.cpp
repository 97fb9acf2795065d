// The real test server (aiosmtpd) and the Python message parser, driven by a
// raw socket client speaking SMTP.

#include "AiosmtpdServer.h"
#include "ParsedMessage.h"

#include <QElapsedTimer>
#include <QSslSocket>
#include <QThread>
#include <QtTest>

#include <memory>

namespace {

// Just enough of an SMTP client to feed the server.
class SmtpTalk
{
public:
    bool connectTo(quint16 port, bool tls)
    {
        m_socket.setPeerVerifyMode(QSslSocket::VerifyNone);
        if (tls)
            m_socket.connectToHostEncrypted(QStringLiteral("127.0.0.1"), port);
        else
            m_socket.connectToHost(QHostAddress::LocalHost, port);
        return m_socket.waitForConnected(5000) && (!tls || m_socket.waitForEncrypted(5000));
    }

    // Reads one whole reply; returns its code, or -1 on a time-out. All its
    // lines are kept in lastReply().
    int reply()
    {
        m_lastReply.clear();
        QElapsedTimer timer;
        timer.start();
        for (;;) {
            while (m_socket.canReadLine()) {
                const QByteArray line = m_socket.readLine();
                m_lastReply += line;
                if (line.size() >= 4 && line.at(3) == ' ')
                    return line.left(3).toInt();
            }
            if (timer.hasExpired(10000) || m_socket.state() != QAbstractSocket::ConnectedState)
                return -1;
            m_socket.waitForReadyRead(100);
        }
    }

    int command(const QByteArray& line)
    {
        m_socket.write(line + "\r\n");
        return reply();
    }

    bool startTls()
    {
        if (command("STARTTLS") != 220)
            return false;
        m_socket.startClientEncryption();
        return m_socket.waitForEncrypted(5000);
    }

    QByteArray lastReply() const { return m_lastReply; }

private:
    QSslSocket m_socket;
    QByteArray m_lastReply;
};

QByteArray textMessage(const QByteArray& subject, const QByteArray& bodyLine)
{
    return "Subject: " + subject + "\r\nFrom: a@example.org\r\nTo: b@example.org\r\n"
           "Content-Type: text/plain; charset=utf-8\r\n\r\n" + bodyLine + "\r\n";
}

QByteArray allByteValues()
{
    QByteArray bytes(256, '\0');
    for (int i = 0; i < bytes.size(); ++i)
        bytes[i] = char(i);
    return bytes;
}

} // namespace

class tst_AiosmtpdServer : public QObject
{
    Q_OBJECT

private slots:
    void delivery_data();
    void delivery();
    void parse_data();
    void parse();
    void stopsWithItsObject();
    void stopsByItself();
    void reportsAServerThatCannotStart();
};

void tst_AiosmtpdServer::delivery_data()
{
    QTest::addColumn<QString>("security");
    QTest::addColumn<QString>("password");
    QTest::addColumn<int>("lineLimit");
    QTest::addColumn<int>("bodyLineLength");
    QTest::addColumn<int>("authCode");
    QTest::addColumn<int>("dataCode");

    QTest::newRow("clear text, no AUTH") << "none" << "" << 0 << 20 << 0 << 250;
    QTest::newRow("STARTTLS with LOGIN") << "starttls" << "secret" << 0 << 20 << 235 << 250;
    QTest::newRow("TLS from the first byte with LOGIN") << "smtps" << "secret" << 0 << 20 << 235 << 250;
    QTest::newRow("wrong password refused") << "smtps" << "guess" << 0 << 20 << 535 << 0;
    QTest::newRow("long line refused by default") << "none" << "" << 0 << 5000 << 0 << 500;
    QTest::newRow("long line taken with a raised limit") << "none" << "" << 200000 << 150000 << 0 << 250;
}

void tst_AiosmtpdServer::delivery()
{
    QFETCH(QString, security);
    QFETCH(QString, password);
    QFETCH(int, lineLimit);
    QFETCH(int, bodyLineLength);
    QFETCH(int, authCode);
    QFETCH(int, dataCode);

    AiosmtpdServer::Options options;
    options.starttls = security == QLatin1String("starttls");
    options.smtps = security == QLatin1String("smtps");
    if (authCode != 0) {
        options.user = QStringLiteral("joe");
        options.password = QStringLiteral("secret");
    }
    options.lineLimit = lineLimit;
    AiosmtpdServer server(options);
    QVERIFY2(server.start(), qPrintable(server.error()));
    QVERIFY(server.isRunning());

    SmtpTalk talk;
    QVERIFY(talk.connectTo(server.port(), options.smtps));
    QCOMPARE(talk.reply(), 220);
    QCOMPARE(talk.command("EHLO localhost"), 250);
    QCOMPARE(talk.lastReply().contains("250-STARTTLS"), options.starttls);
    if (options.starttls) {
        QVERIFY(!talk.lastReply().contains("AUTH"));
        QVERIFY(talk.startTls());
        QCOMPARE(talk.command("EHLO localhost"), 250);
    }
    QCOMPARE(talk.lastReply().contains("250-AUTH LOGIN\r\n"), authCode != 0);
    // The final line of the EHLO reply names no extension.
    QVERIFY(talk.lastReply().endsWith("250 HELP\r\n"));

    if (authCode != 0) {
        QCOMPARE(talk.command("AUTH LOGIN"), 334);
        QCOMPARE(talk.command(QByteArray("joe").toBase64()), 334);
        QCOMPARE(talk.command(password.toUtf8().toBase64()), authCode);
        if (authCode != 235) {
            QCOMPARE(server.messageCount(), 0);
            return;
        }
    }

    const QByteArray message = textMessage("Hello", QByteArray(bodyLineLength, 'y'));
    QCOMPARE(talk.command("MAIL FROM:<a@example.org>"), 250);
    QCOMPARE(talk.command("RCPT TO:<b@example.org>"), 250);
    QCOMPARE(talk.command("RCPT TO:<c@example.org>"), 250);
    QCOMPARE(talk.command("DATA"), 354);
    QCOMPARE(talk.command(message + "."), dataCode);
    QCOMPARE(talk.command("QUIT"), 221);

    if (dataCode != 250) {
        QCOMPARE(server.messageCount(), 0);
        return;
    }
    // The message is on disk before the 250.
    QCOMPARE(server.messageCount(), 1);
    QCOMPARE(server.messages(), QList<QByteArray>{message});
    QCOMPARE(server.envelopes().size(), 1);
    QCOMPARE(server.envelopes().at(0).mailFrom, QStringLiteral("a@example.org"));
    QCOMPARE(server.envelopes().at(0).recipients, (QStringList{"b@example.org", "c@example.org"}));
    QVERIFY(server.waitForMessages(1, 0));
    QVERIFY(!server.waitForMessages(2, 200));

    const ParsedMessage parsed = parseWithPython(server.messages().at(0));
    QVERIFY2(parsed.ok, qPrintable(parsed.error));
    QCOMPARE(parsed.subject, QStringLiteral("Hello"));
}

void tst_AiosmtpdServer::parse_data()
{
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<QString>("subject");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QStringList>("types");
    QTest::addColumn<QStringList>("filenames");
    QTest::addColumn<QList<QByteArray>>("payloads");

    QTest::newRow("encoded subject and quoted-printable text")
        << QByteArray("Subject: =?utf-8?q?Gr=C3=BC=C3=9Fe?=\r\nFrom: A <a@x.org>\r\nTo: b@y.org,c@z.org\r\n"
                      "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: quoted-printable\r\n"
                      "\r\nSch=C3=B6n=\r\n weiter\r\n")
        << QString::fromUtf8("Gr\u00fc\u00dfe") << "b@y.org, c@z.org" << QStringList{"text/plain"}
        << QStringList{QString()} << QList<QByteArray>{QByteArray("Sch\xc3\xb6n weiter\r\n")};
    QTest::newRow("attachment in one base64 line")
        << QByteArray("Subject: files\r\nTo: b@y.org\r\nMIME-Version: 1.0\r\n"
                      "Content-Type: multipart/mixed; boundary=\"b1\"\r\n\r\n"
                      "--b1\r\nContent-Type: text/plain\r\n\r\nsee attached\r\n"
                      "--b1\r\nContent-Type: application/octet-stream; name=\"all.bin\"\r\n"
                      "Content-Disposition: attachment; filename=\"all.bin\"\r\n"
                      "Content-Transfer-Encoding: base64\r\n\r\n")
               + allByteValues().toBase64() + "\r\n--b1--\r\n"
        << "files" << "b@y.org" << QStringList{"text/plain", "application/octet-stream"}
        << QStringList{QString(), "all.bin"} << QList<QByteArray>{"see attached", allByteValues()};
    QTest::newRow("no headers at all")
        << QByteArray("\r\njust a body\r\n") << QString() << QString() << QStringList{"text/plain"}
        << QStringList{QString()} << QList<QByteArray>{"just a body\r\n"};
}

void tst_AiosmtpdServer::parse()
{
    QFETCH(QByteArray, raw);
    QFETCH(QString, subject);
    QFETCH(QString, to);
    QFETCH(QStringList, types);
    QFETCH(QStringList, filenames);
    QFETCH(QList<QByteArray>, payloads);

    const ParsedMessage parsed = parseWithPython(raw);
    QVERIFY2(parsed.ok, qPrintable(parsed.error));
    QCOMPARE(parsed.subject, subject);
    QCOMPARE(parsed.subject.isNull(), subject.isNull());
    QCOMPARE(parsed.to, to);
    QCOMPARE(parsed.parts.size(), types.size());
    for (int i = 0; i < types.size(); ++i) {
        QCOMPARE(parsed.parts.at(i).contentType, types.at(i));
        QCOMPARE(parsed.parts.at(i).filename, filenames.at(i));
        QCOMPARE(parsed.parts.at(i).payload, payloads.at(i));
    }
    if (!to.isEmpty())
        QVERIFY(!parsed.header(QStringLiteral("TO")).isNull());
    QVERIFY(parsed.header(QStringLiteral("X-Absent")).isNull());
}

void tst_AiosmtpdServer::stopsWithItsObject()
{
    auto server = std::make_unique<AiosmtpdServer>();
    QVERIFY2(server->start(), qPrintable(server->error()));
    const quint16 port = server->port();
    {
        SmtpTalk talk;
        QVERIFY(talk.connectTo(port, false));
        QCOMPARE(talk.reply(), 220);
    }
    QElapsedTimer timer;
    timer.start();
    server.reset();
    QVERIFY(timer.elapsed() < 10000);
    QTcpSocket late;
    late.connectToHost(QHostAddress::LocalHost, port);
    QVERIFY(!late.waitForConnected(2000));
}

void tst_AiosmtpdServer::stopsByItself()
{
    AiosmtpdServer::Options options;
    options.maxSeconds = 1;
    AiosmtpdServer server(options);
    QVERIFY2(server.start(), qPrintable(server.error()));
    QElapsedTimer timer;
    timer.start();
    while (server.isRunning() && !timer.hasExpired(10000))
        QThread::msleep(100);
    QVERIFY(!server.isRunning());
}

void tst_AiosmtpdServer::reportsAServerThatCannotStart()
{
    qputenv("QUILLET_PYTHON3", "/bin/false");
    AiosmtpdServer server;
    const bool started = server.start();
    qunsetenv("QUILLET_PYTHON3");
    QVERIFY(!started);
    QVERIFY(server.error().contains(QLatin1String("did not report its port")));
    QCOMPARE(server.port(), quint16(0));
    QVERIFY(!server.isRunning());

    qputenv("QUILLET_PYTHON3", "/bin/false");
    const ParsedMessage parsed = parseWithPython("Subject: x\r\n\r\n");
    qunsetenv("QUILLET_PYTHON3");
    QVERIFY(!parsed.ok);
    QVERIFY(!parsed.error.isEmpty());
}

QTEST_GUILESS_MAIN(tst_AiosmtpdServer)
#include "tst_aiosmtpdserver.moc"
