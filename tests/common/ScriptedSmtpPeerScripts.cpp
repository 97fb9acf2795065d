// The script builders of ScriptedSmtpPeer: the usual openings and closings
// of an SMTP dialogue as seen from the server.

#include "ScriptedSmtpPeer.h"

QStringList ScriptedSmtpPeer::greetingAndEhlo(const QStringList& extensions)
{
    return QStringList{"S: 220 localhost ESMTP scripted peer", "C: EHLO localhost"} + ehloReply(extensions);
}

QStringList ScriptedSmtpPeer::ehloReply(const QStringList& extensions)
{
    QStringList steps{"S: 250-localhost"};
    for (const QString& extension : extensions)
        steps << QStringLiteral("S: 250-") + extension;
    return steps << QStringLiteral("S: 250 OK");
}

QStringList ScriptedSmtpPeer::startTls(const QStringList& extensionsAfter)
{
    return QStringList{"C: STARTTLS", "S: 220 Ready to start TLS", "starttls", "C: EHLO localhost"}
        + ehloReply(extensionsAfter);
}

QStringList ScriptedSmtpPeer::authLogin(const QString& user, const QString& password)
{
    return {"C: AUTH LOGIN", "S: 334 VXNlcm5hbWU6", "C: " + QString::fromLatin1(user.toLocal8Bit().toBase64()),
            "S: 334 UGFzc3dvcmQ6", "C: " + QString::fromLatin1(password.toLocal8Bit().toBase64()),
            "S: 235 2.7.0 Authentication successful"};
}

QStringList ScriptedSmtpPeer::envelope(const QString& from, const QStringList& recipients)
{
    QStringList steps{QStringLiteral("C: MAIL FROM:<%1>").arg(from), "S: 250 OK"};
    for (const QString& recipient : recipients)
        steps << QStringLiteral("C: RCPT TO:<%1>").arg(recipient) << QStringLiteral("S: 250 OK");
    return steps;
}

QStringList ScriptedSmtpPeer::message(const QString& finalReply)
{
    return {"C: DATA", "S: 354 End data with <CR><LF>.<CR><LF>", "C: <data>", "S: " + finalReply};
}

QStringList ScriptedSmtpPeer::quit()
{
    return {"C? QUIT", "expect-close"};
}

QStringList ScriptedSmtpPeer::dataAndQuit()
{
    return message() + quit();
}
