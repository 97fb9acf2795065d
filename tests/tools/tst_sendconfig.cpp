// quillet-send's settings files: --save-config writes host, port, STARTTLS
// and user but never the password, and --config reads them back (INI and
// XML, default and own groups), as a scripted server that insists on
// STARTTLS and on the user's login proves.

#include "ScriptedSmtpPeer.h"
#include "ToolRun.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString kUser = QStringLiteral("joe");
const QString kPassword = QStringLiteral("pass-word-42");

// STARTTLS, then AUTH LOGIN as kUser, then one message.
QStringList loginScript()
{
    using Peer = ScriptedSmtpPeer;
    return Peer::greetingAndEhlo({"STARTTLS"}) + Peer::startTls({"AUTH LOGIN"}) + Peer::authLogin(kUser, kPassword)
        + Peer::envelope("sender@example.org", {"ann@example.org"}) + Peer::dataAndQuit();
}

QStringList messageArguments()
{
    return {"--from", "sender@example.org", "--to", "ann@example.org", "--subject", "settings", "--text", "body"};
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class tst_SendConfig : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void savedSettingsSendAgain_data();
    void savedSettingsSendAgain();
    void readsHandWrittenSettings_data();
    void readsHandWrittenSettings();

private:
    static QProcessEnvironment withPassword();
    QTemporaryDir m_dir;
};

void tst_SendConfig::initTestCase()
{
    QVERIFY(m_dir.isValid());
}

QProcessEnvironment tst_SendConfig::withPassword()
{
    QProcessEnvironment environment = toolEnvironment();
    environment.insert(QStringLiteral("QUILLET_PASSWORD"), kPassword);
    return environment;
}

void tst_SendConfig::savedSettingsSendAgain_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("group");  // empty: the default group
    QTest::addColumn<bool>("portOnCommandLine");

    QTest::newRow("ini, default group") << "work.ini" << "" << false;
    QTest::newRow("ini, own group") << "work.conf" << "office" << false;
    QTest::newRow("xml, default group") << "work.xml" << "" << false;
    QTest::newRow("xml, own group") << "Work.XML" << "office" << false;
    QTest::newRow("ini, command line port wins") << "port.ini" << "" << true;
    QTest::newRow("xml, command line port wins") << "port.xml" << "" << true;
}

void tst_SendConfig::savedSettingsSendAgain()
{
    QFETCH(QString, fileName);
    QFETCH(QString, group);
    QFETCH(bool, portOnCommandLine);

    ScriptedSmtpPeer peer;
    QVERIFY2(peer.setScript(loginScript()), qPrintable(peer.failure()));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    const QString port = QString::number(peer.port());
    const QString path = m_dir.filePath(fileName);
    const QStringList groupArguments =
        group.isEmpty() ? QStringList() : QStringList{QStringLiteral("--config-group"), group};

    // Saved with the password in the environment, which must stay out.
    const ToolResult saved = runTool(QStringList{"--server", "127.0.0.1", "--port", portOnCommandLine ? "2" : port,
                                                 "--starttls", "--user", kUser, "--save-config", path}
                                         + groupArguments,
                                     withPassword());
    QVERIFY2(saved.finished && saved.exitCode == 0, qPrintable(saved.describe()));
    QVERIFY(saved.outcomeLines().isEmpty());
    const QByteArray content = readAll(path);
    QVERIFY2(content.contains("127.0.0.1") && content.contains(kUser.toUtf8()), content.constData());
    QVERIFY2(!content.contains(kPassword.toUtf8()), content.constData());
    QVERIFY2(content.contains((group.isEmpty() ? QStringLiteral("smtp") : group).toUtf8()), content.constData());

    QStringList arguments = QStringList{"--config", path} + groupArguments + messageArguments();
    if (portOnCommandLine)
        arguments << "--port" << port;
    const ToolResult sent = runTool(arguments, withPassword());
    QVERIFY2(sent.finished && sent.exitCode == 0, qPrintable(sent.describe()));
    QVERIFY(peer.waitForFinished(10000));
    QVERIFY2(peer.scriptCompleted(), qPrintable(peer.failure()));
    QCOMPARE(peer.data().size(), 1);
}

void tst_SendConfig::readsHandWrittenSettings_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("content");  // %PORT% stands for the server's port
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("passwordInEnvironment");

    QTest::newRow("ini with its own password")
        << "own-password.ini"
        << QStringLiteral("[smtp]\nhost=127.0.0.1\nport=%PORT%\ntls=true\nuser=%1\npassword=%2\n").arg(kUser, kPassword)
        << QStringList() << false;
    QTest::newRow("xml group inside other settings")
        << "nested.xml"
        << QStringLiteral("<?xml version=\"1.0\"?>\n<settings><ui><Host>wrong.example.org</Host></ui>"
                          "<mail><Host>127.0.0.1</Host><Port>%PORT%</Port><TLS>true</TLS>"
                          "<User>%1</User></mail></settings>\n").arg(kUser)
        << QStringList{"--config-group", "mail"} << true;
    QTest::newRow("user given on the command line")
        << "no-user.ini" << QStringLiteral("[smtp]\nhost=127.0.0.1\nport=%PORT%\ntls=true\n")
        << QStringList{"--user", kUser} << true;
}

void tst_SendConfig::readsHandWrittenSettings()
{
    QFETCH(QString, fileName);
    QFETCH(QString, content);
    QFETCH(QStringList, arguments);
    QFETCH(bool, passwordInEnvironment);

    ScriptedSmtpPeer peer;
    QVERIFY2(peer.setScript(loginScript()), qPrintable(peer.failure()));
    QVERIFY2(peer.start(), qPrintable(peer.failure()));
    const QString path = m_dir.filePath(fileName);
    QVERIFY(writeFile(path, content.replace(QLatin1String("%PORT%"), QString::number(peer.port())).toUtf8()));

    const ToolResult sent = runTool(QStringList{"--config", path} + arguments + messageArguments(),
                                    passwordInEnvironment ? withPassword() : toolEnvironment());
    QVERIFY2(sent.finished && sent.exitCode == 0, qPrintable(sent.describe()));
    QVERIFY(peer.waitForFinished(10000));
    QVERIFY2(peer.scriptCompleted(), qPrintable(peer.failure()));
}

QTEST_GUILESS_MAIN(tst_SendConfig)
#include "tst_sendconfig.moc"
