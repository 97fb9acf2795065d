#include "smtp/SmtpClient.h"

namespace oru {

void SmtpClient::writeLine(SmtpJob* job, const QString& line)
{
    job->socket->write(line.toLatin1());
    job->socket->write("\r\n", 2);
}

int SmtpClient::readLine(SmtpJob* job, QString* text)
{
    QSslSocket* socket = job->socket;
    if (!socket->canReadLine()) {
        // Hand what the command wrote to the system before waiting, so the
        // wait only watches for the reply.
        socket->flush();
        socket->waitForReadyRead(30000);
    }
    const QByteArray bytes = socket->readLine();
    // A zero byte ends the line's text.
    const QString line = QString::fromLatin1(bytes.constData());

    if (text) {
        // Text follows the code and its separator; a bare code ("354\r\n")
        // has none.
        const bool hasText = line.size() > 4 && line.at(3) != QLatin1Char('\r')
            && line.at(3) != QLatin1Char('\n');
        *text = hasText ? line.mid(4) : QString();
    }
    const int code = line.left(3).toInt(nullptr, 10);
    return line.size() > 3 && line.at(3) == QLatin1Char('-') ? -code : code;
}

bool SmtpClient::conversation(SmtpJob* job, const QString& command, int expected, QString* text)
{
    if (!command.isEmpty())
        writeLine(job, command);
    QString local;
    QString* t = text ? text : &local;
    const int code = readLine(job, t);
    setResponseCode(job->id, code);
    if (code == expected)
        return true;
    emit sent(job->currentMail, code, *t, job->id);
    return false;
}

} // namespace oru
