// quillet-send's settings files: --save-config writes host, port, STARTTLS
// and user but never the password, and --config reads them back (INI and
// XML, default and own groups), as a scripted server that insists on
// STARTTLS and on the user's login proves.

#include "ScriptedSmtpPeer.h"
#include "ToolRun.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {
const QString kUser = QStringLiteral("joe");
const QString kPassword = QStringLiteral("pass-word-42");
} // namespace

class tst_SendConfig : public QObject
{
    Q_OBJECT

private slots:
    void settingsSendAgain_data();
    void settingsSendAgain();

private:
    QTemporaryDir m_dir;
};

void tst_SendConfig::settingsSendAgain_data()
{
    // content empty: --save-config writes the file with the server's settings
    // (a wrong port when the send arguments give the port) and the save
    // arguments, the password in the environment. %PORT%: the server's port.
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("content");
    QTest::addColumn<QStringList>("saveArguments");
    QTest::addColumn<QStringList>("sendArguments");
    QTest::addColumn<bool>("passwordInEnvironment");

    const QStringList office{"--config-group", "office"};
    QTest::newRow("saved ini, default group") << "work.ini" << "" << QStringList() << QStringList() << true;
    QTest::newRow("saved ini, own group") << "work.conf" << "" << office << office << true;
    QTest::newRow("saved xml, default group") << "work.xml" << "" << QStringList() << QStringList() << true;
    QTest::newRow("saved xml, own group") << "Work.XML" << "" << office << office << true;
    QTest::newRow("saved ini, command line port wins") << "port.ini" << "" << QStringList()
                                                       << QStringList{"--port", "%PORT%"} << true;
    QTest::newRow("saved xml, command line port wins") << "port.xml" << "" << QStringList()
                                                       << QStringList{"--port", "%PORT%"} << true;
    QTest::newRow("ini with its own password")
        << "own-password.ini"
        << QStringLiteral("[smtp]\nhost=127.0.0.1\nport=%PORT%\ntls=true\nuser=%1\npassword=%2\n").arg(kUser, kPassword)
        << QStringList() << QStringList() << false;
    QTest::newRow("xml group inside other settings")
        << "nested.xml"
        << QStringLiteral("<?xml version=\"1.0\"?>\n<settings><ui><Host>wrong.example.org</Host></ui>"
                          "<mail><Host>127.0.0.1</Host><Port>%PORT%</Port><TLS>true</TLS>"
                          "<User>%1</User></mail></settings>\n").arg(kUser)
        << QStringList() << QStringList{"--config-group", "mail"} << true;
    QTest::newRow("user given on the command line") << "no-user.ini" << "[smtp]\nhost=127.0.0.1\nport=%PORT%\ntls=true\n"
                                                    << QStringList() << QStringList{"--user", kUser} << true;
}

void tst_SendConfig::settingsSendAgain()
{
    QFETCH(QString, fileName);
    QFETCH(QString, content);
    QFETCH(QStringList, saveArguments);
    QFETCH(QStringList, sendArguments);
    QFETCH(bool, passwordInEnvironment);

    // STARTTLS, then AUTH LOGIN as kUser, then one message.
    using Peer = ScriptedSmtpPeer;
    Peer peer;
    QVERIFY2(peer.setScript(Peer::greetingAndEhlo({"STARTTLS"}) + Peer::startTls({"AUTH LOGIN"})
                            + Peer::authLogin(kUser, kPassword) + Peer::envelope("sender@example.org", {"ann@example.org"})
                            + Peer::dataAndQuit())
                 && peer.start(),
             qPrintable(peer.failure()));
    const QString port = QString::number(peer.port());
    const QString path = m_dir.filePath(fileName);
    sendArguments.replaceInStrings("%PORT%", port);

    if (content.isEmpty()) {
        const QString savedPort = sendArguments.contains("--port") ? "2" : port;
        const ToolResult saved = runTool(QStringList{"--server", "127.0.0.1", "--port", savedPort, "--starttls", "--user",
                                                     kUser, "--save-config", path} + saveArguments,
                                         toolEnvironment(kPassword));
        QVERIFY2(saved.finished && saved.exitCode == 0 && saved.outcomeLines().isEmpty(), qPrintable(saved.describe()));
        QFile file(path);
        const QByteArray written = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        const QString group = saveArguments.contains("--config-group") ? saveArguments.last() : "smtp";
        QVERIFY2(written.contains("127.0.0.1") && written.contains(kUser.toUtf8()) && written.contains(group.toUtf8()),
                 written.constData());
        QVERIFY2(!written.contains(kPassword.toUtf8()), written.constData());
    } else {
        QVERIFY(fake::writeFile(path, content.replace("%PORT%", port).toUtf8(), false));
    }

    const ToolResult sent =
        runTool(QStringList{"--config", path, "--from", "sender@example.org", "--to", "ann@example.org", "--subject",
                            "settings", "--text", "body"} + sendArguments,
                toolEnvironment(passwordInEnvironment ? kPassword : QString()));
    QVERIFY2(sent.finished && sent.exitCode == 0, qPrintable(sent.describe()));
    QVERIFY2(peer.waitForFinished(10000) && peer.scriptCompleted(), qPrintable(peer.failure()));
    QCOMPARE(peer.data().size(), 1);
}

QTEST_GUILESS_MAIN(tst_SendConfig)
#include "tst_sendconfig.moc"
