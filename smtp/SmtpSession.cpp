#include "smtp/SmtpSession_p.h"

#include "support/ExceptionQt.h"
#include "support/Log.h"
#include "support/ovkException.h"
#include "support/ovkTerminalException.h"

#include <exception>

namespace oru {

const char* const SmtpClient::Session::ehloDomain = "localhost";

namespace {

const int kWaitMs = 30000;

// Disposes of the job's socket when the job's frame is left, however the
// session ended: a socket never outlives its job.
class SocketRelease
{
public:
    explicit SocketRelease(SmtpClient::SmtpJob* job) : job(job) {}
    ~SocketRelease()
    {
        delete job->socket;
        job->socket = nullptr;
    }

private:
    SmtpClient::SmtpJob* job;
};

} // namespace

void SmtpClient::SmtpJob::run(int jobId, QTime*)
{
    SocketRelease release(this);
    id = jobId;
    client->setResponseCode(jobId, 0);

    QString text;
    bool failed = true;
    try {
        run();
        failed = false;
    } catch (const ExceptionQt& e) {
        text = e.message();
    } catch (const ovkTerminalException& e) {
        text = e.messages().concatenate(",").toQString();
    } catch (const ovkException& e) {
        text = e.messages().concatenate(",").toQString();
    } catch (const std::exception& e) {
        text = QString::fromUtf8(e.what());
    } catch (...) {
        text = QStringLiteral("unknown error");
    }
    if (failed) {
        Log::write(3, Q_FUNC_INFO, QLatin1String("SmtpError::Exception ") + text);
        emit client->sent(constEMailPtr(), -3, text, jobId);
    }
}

void SmtpClient::SmtpJob::run()
{
    if (!Session::connect(this))
        return;
    if (!client->conversation(this, QString(), 220))
        return;
    if (!Session::ehlo(this))
        return;

    Session::Features offered;
    Session::readExtensions(this, offered);
    offered.intersect(client->features);

    if (!Session::startTls(this, offered))
        return;

    if (!access.user.isEmpty() && !offered.isEmpty() && !Session::authenticate(this, offered))
        return;

    for (const EMailPtr& mail : qAsConst(mails))
        Session::sendMail(this, mail);

    client->writeLine(this, QStringLiteral("QUIT"));
    // QUIT is not answered, but it should reach the server before the
    // socket goes.
    socket->flush();
    socket->disconnect();
    delete socket;
    socket = nullptr;
}

bool SmtpClient::Session::connect(SmtpJob* job)
{
    // The socket has no Qt parent: the client lives in another thread. The
    // job's frame deletes it when the session ends early.
    job->socket = new QSslSocket;
    QSslSocket* socket = job->socket;
    socket->setPeerVerifyMode(QSslSocket::VerifyNone);
    const SmtpAccess& access = job->access;
    const quint16 port = quint16(access.port);
    bool ok;
    if (!access.ssl) {
        socket->connectToHost(access.host, port, QIODevice::ReadWrite);
        ok = socket->waitForConnected(kWaitMs);
    } else {
        socket->connectToHostEncrypted(access.host, port, QIODevice::ReadWrite);
        ok = socket->waitForConnected(kWaitMs) && socket->waitForEncrypted(kWaitMs);
    }
    if (!ok) {
        reportSocketError(job);
        return false;
    }
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    return true;
}

bool SmtpClient::Session::ehlo(SmtpJob* job)
{
    return job->client->conversation(job, QLatin1String("EHLO ") + QLatin1String(ehloDomain),
                                     -250);
}

void SmtpClient::Session::readExtensions(SmtpJob* job, Features& offered)
{
    QString line;
    while (job->client->readLine(job, &line) == -250) {
        if (line.startsWith(QLatin1String("DSN")))
            offered.insert(DSN);
        if (line.startsWith(QLatin1String("STARTTLS")))
            offered.insert(STARTTLS);
        if (line.startsWith(QLatin1String("AUTH")) || line.startsWith(QLatin1String("SMTP-AUTH"))) {
            if (line.contains(QLatin1String("CRAM-MD5")))
                offered.insert(AUTH_CRAM_MD5);
            if (line.contains(QLatin1String("LOGIN")))
                offered.insert(AUTH_LOGIN);
            if (line.contains(QLatin1String("PLAIN")))
                offered.insert(AUTH_PLAIN);
        }
    }
}

bool SmtpClient::Session::startTls(SmtpJob* job, Features& offered)
{
    const SmtpAccess& access = job->access;
    if (offered.isEmpty() || !offered.contains(STARTTLS) || !access.tls || access.ssl)
        return true;
    SmtpClient* client = job->client;
    // A refusal has been reported; the session goes on in the clear.
    if (!client->conversation(job, QStringLiteral("STARTTLS"), 220))
        return true;
    // Nothing that arrived before the handshake may pass for encrypted data.
    job->socket->readAll();
    job->socket->startClientEncryption();
    if (!job->socket->waitForEncrypted(kWaitMs)) {
        reportSocketError(job);
        return false;
    }
    if (!ehlo(job))
        return false;
    readExtensions(job, offered);
    offered.intersect(client->features);
    return true;
}

void SmtpClient::Session::sendMail(SmtpJob* job, const EMailPtr& mail)
{
    SmtpClient* client = job->client;
    job->currentMail = mail;
    if (!client->conversation(job, QLatin1String("MAIL FROM:<") + mail->from.address + QLatin1Char('>'),
                              250))
        return;

    QList<MailAddress> recipients;
    recipients.reserve(mail->to.size() + mail->cc.size() + mail->bcc.size());
    recipients += mail->to;
    recipients += mail->cc;
    recipients += mail->bcc;
    for (const MailAddress& recipient : qAsConst(recipients)) {
        if (recipient.isEmpty())
            continue;
        if (!client->conversation(job, QLatin1String("RCPT TO:<") + recipient.address + QLatin1Char('>'),
                                  250))
            return;
    }

    if (!client->conversation(job, QStringLiteral("DATA"), 354))
        return;
    if (!client->send1Mail(job, job->currentMail))
        return;
    emit client->sent(job->currentMail, 250, QStringLiteral("OK"), job->id);
}

void SmtpClient::Session::reportSocketError(SmtpJob* job)
{
    emit job->client->sent(constEMailPtr(), -1, job->socket->errorString(), job->id);
}

} // namespace oru
