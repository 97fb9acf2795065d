#pragma once

// Helpers of the SMTP client tests: sent() reports delivered to the test's
// thread, small messages, and one job played against a scripted server.

#include "ScriptedSmtpPeer.h"
#include "smtp/SmtpClient.h"

#include <QObject>
#include <QStringList>

#include <functional>

struct SentReport
{
    oru::constEMailPtr mail;
    int code = 0;
    QString text;
    int jobId = 0;
};

/// Receives sent() queued into the test's thread, connected by signature:
/// delivery relies on the registered type names.
class SentRecorder : public QObject
{
    Q_OBJECT

public:
    explicit SentRecorder(oru::SmtpClient* client);
    /// Delivers what is queued and returns every report so far.
    QList<SentReport> take();

public slots:
    void record(oru::constEMailPtr mail, int responseCode, const QString& message, int jobId);

private:
    QList<SentReport> reports;
};

/// Script steps from one text, separated by "|".
QStringList steps(const QString& joined);
/// A message with only a plain text "Hello world".
oru::EMail textMessage(const QString& from, const QStringList& to, const QString& subject = QStringLiteral("Hello"));
/// Plain settings for a server on 127.0.0.1, without credentials.
oru::SmtpAccess peerAccess(quint16 port);

/// What a job did, and what the scripted server saw of it.
struct Played : ScriptedSmtpPeer::ConnectionResult
{
    int id = 0;
    int waitResult = 0;  ///< waitForSent with 20 s
    QList<SentReport> reports;
    QByteArray diagnosis;  ///< for failure messages
};

using ClientSetup = std::function<void(oru::SmtpClient&)>;

/// Starts a scripted server, lets setup adjust a client for it, sends mails
/// as one job and waits (bounded) for the job and the server.
Played play(const QStringList& script, const QList<oru::EMail>& mails, const ClientSetup& setup = ClientSetup(),
            ScriptedSmtpPeer::Mode mode = ScriptedSmtpPeer::Plain);
