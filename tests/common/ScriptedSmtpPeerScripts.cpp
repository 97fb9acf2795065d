// The script builders of ScriptedSmtpPeer: the usual openings and closings
// of an SMTP dialogue as seen from the server.

#include "ScriptedSmtpPeer.h"

namespace {

QString base64(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

const QString kAuthOk = QStringLiteral("S: 235 2.7.0 Authentication successful");

} // namespace

QStringList ScriptedSmtpPeer::greetingAndEhlo(const QStringList& extensions)
{
    return QStringList{QStringLiteral("S: 220 localhost ESMTP scripted peer"),
                       QStringLiteral("C: EHLO localhost")}
        + ehloReply(extensions);
}

QStringList ScriptedSmtpPeer::ehloReply(const QStringList& extensions)
{
    QStringList steps;
    steps.reserve(extensions.size() + 2);
    steps << QStringLiteral("S: 250-localhost");
    for (const QString& extension : extensions)
        steps << QStringLiteral("S: 250-") + extension;
    steps << QStringLiteral("S: 250 OK");
    return steps;
}

QStringList ScriptedSmtpPeer::startTls(const QStringList& extensionsAfter)
{
    return QStringList{QStringLiteral("C: STARTTLS"),
                       QStringLiteral("S: 220 Ready to start TLS"),
                       QStringLiteral("starttls"),
                       QStringLiteral("C: EHLO localhost")}
        + ehloReply(extensionsAfter);
}

QStringList ScriptedSmtpPeer::authLogin(const QString& user, const QString& password)
{
    return QStringList{QStringLiteral("C: AUTH LOGIN"),
                       QStringLiteral("S: 334 VXNlcm5hbWU6"),
                       QStringLiteral("C: ") + base64(user.toLocal8Bit()),
                       QStringLiteral("S: 334 UGFzc3dvcmQ6"),
                       QStringLiteral("C: ") + base64(password.toLocal8Bit()),
                       kAuthOk};
}

QStringList ScriptedSmtpPeer::authPlain(const QByteArray& initialResponse)
{
    return QStringList{QStringLiteral("C: AUTH PLAIN ") + base64(initialResponse), kAuthOk};
}

QStringList ScriptedSmtpPeer::authCramMd5(const QByteArray& challenge)
{
    return QStringList{QStringLiteral("C: AUTH CRAM-MD5"),
                       QStringLiteral("S: 334 ") + base64(challenge),
                       QStringLiteral("C: *"),
                       kAuthOk};
}

QStringList ScriptedSmtpPeer::envelope(const QString& from, const QStringList& recipients)
{
    QStringList steps;
    steps.reserve(2 * recipients.size() + 2);
    steps << QStringLiteral("C: MAIL FROM:<%1>").arg(from) << QStringLiteral("S: 250 OK");
    for (const QString& recipient : recipients)
        steps << QStringLiteral("C: RCPT TO:<%1>").arg(recipient) << QStringLiteral("S: 250 OK");
    return steps;
}

QStringList ScriptedSmtpPeer::message(const QString& finalReply)
{
    return QStringList{QStringLiteral("C: DATA"),
                       QStringLiteral("S: 354 End data with <CR><LF>.<CR><LF>"),
                       QStringLiteral("C: <data>"),
                       QStringLiteral("S: ") + finalReply};
}

QStringList ScriptedSmtpPeer::quit()
{
    return QStringList{QStringLiteral("C? QUIT"), QStringLiteral("expect-close")};
}

QStringList ScriptedSmtpPeer::dataAndQuit()
{
    return message() + quit();
}
