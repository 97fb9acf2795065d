#include "smtp/SmtpSession_p.h"

#include <QCryptographicHash>

#include <cstring>

namespace oru {

namespace {

const int kBlock = 64;

QByteArray md5(const char* data, int size, const QByteArray& more)
{
    QCryptographicHash hash(QCryptographicHash::Md5);
    hash.addData(data, size);
    hash.addData(more);
    return hash.result();
}

} // namespace

QByteArray SmtpClient::cramMd5Hash(const QByteArray& key, const QByteArray& challenge)
{
    QByteArray k = key;
    if (k.size() > kBlock)
        k = QCryptographicHash::hash(k, QCryptographicHash::Md5);

    char innerPad[kBlock];
    char outerPad[kBlock];
    std::memset(innerPad, 0x36, kBlock);
    std::memset(outerPad, 0x5c, kBlock);
    for (int i = 0; i < k.size(); ++i) {
        innerPad[i] = char(innerPad[i] ^ k.at(i));
        outerPad[i] = char(outerPad[i] ^ k.at(i));
    }

    // Always 64 bytes of challenge: cut, or padded with zero bytes.
    QByteArray block = challenge.left(kBlock);
    if (block.size() < kBlock)
        block.append(QByteArray(kBlock - block.size(), '\0'));
    const QByteArray inner = md5(innerPad, kBlock, block);

    // The outer pad counts as a zero-terminated string: a key byte of 0x5c
    // ends it early.
    const int outerLength = int(qstrnlen(outerPad, kBlock));
    return md5(outerPad, outerLength, inner);
}

bool SmtpClient::Session::authenticate(SmtpJob* job, const Features& offered)
{
    if (offered.contains(AUTH_CRAM_MD5))
        return authCramMd5(job);
    if (offered.contains(AUTH_LOGIN))
        return authLogin(job);
    if (offered.contains(AUTH_PLAIN))
        return authPlain(job);
    return true;
}

bool SmtpClient::Session::authCramMd5(SmtpJob* job)
{
    SmtpClient* client = job->client;
    QString challengeText;
    if (!client->conversation(job, QStringLiteral("AUTH CRAM-MD5"), 334, &challengeText))
        return false;
    const QByteArray challenge = QByteArray::fromBase64(challengeText.toLatin1());
    const QByteArray digest = cramMd5Hash(job->access.password.toLocal8Bit(), challenge);
    const QByteArray response = QStringLiteral("%1 %2")
                                    .arg(job->access.user)
                                    .arg(QString::fromLatin1(digest.toHex()))
                                    .toLocal8Bit()
                                    .toBase64();
    return client->conversation(job, QString::fromLatin1(response), 235);
}

bool SmtpClient::Session::authLogin(SmtpJob* job)
{
    SmtpClient* client = job->client;
    const SmtpAccess& access = job->access;
    if (!client->conversation(job, QStringLiteral("AUTH LOGIN"), 334)
        || !client->conversation(job, QString::fromLatin1(access.user.toLocal8Bit().toBase64()), 334))
        return false;
    const QString password = QString::fromLatin1(access.password.toLocal8Bit().toBase64());
    // An empty command would only read: an empty password still goes out,
    // as an empty line.
    if (password.isEmpty())
        client->writeLine(job, password);
    return client->conversation(job, password, 235);
}

bool SmtpClient::Session::authPlain(SmtpJob* job)
{
    const SmtpAccess& access = job->access;
    // User and password joined by a colon, filled in one after the other.
    const QString text = QStringLiteral("%1:%2").arg(access.user).arg(access.password);
    return job->client->conversation(
        job, QLatin1String("AUTH PLAIN ") + QString::fromLatin1(text.toLocal8Bit().toBase64()), 235);
}

} // namespace oru
