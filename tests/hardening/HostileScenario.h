#pragma once

// One SMTP job against a misbehaving server, described as data and checked
// against the reports, the wait result and the time the library promises.

#include "ScriptedSmtpPeer.h"
#include "smtp/SmtpClient.h"

#include <QElapsedTimer>
#include <QMetaType>
#include <QMutex>
#include <QThread>

#include <memory>

/// A job and the server it meets, with what must come of it.
///
/// `client` is a list of words: "starttls" (the STARTTLS flag is on), "ssl"
/// (TLS from the first byte; the peer speaks TLS too unless "plain-peer" is
/// given), "auth" (credentials joe / pw), "cram" (CRAM-MD5 allowed), and for
/// jobs without a server "refused" (a loopback port that nothing listens on)
/// or "no-dns" (a host name that cannot be resolved).
///
/// `reports` lists the sent() reports in order: "<code>" for a report without
/// a message, "<code>@<i>" for one naming the job's i-th message.
///
/// With "starttls", nothing but the client's TLS hello may follow its
/// STARTTLS command in the clear.
///
/// Each message carries `attachments` attachments of `attachmentBytes` bytes.
/// Whenever the peer accepts a message that has attachments, each of them
/// must have arrived whole, as one base64 line.
///
/// `stalls` is how many full 30 s waits the library sits through before the
/// job ends: 0 means it must end well within one.
struct HostileScenario
{
    QString name;
    QString client;
    QStringList script;
    QStringList reports;
    int waitResult = 0;
    int messages = 1;
    int attachmentBytes = 0;
    int stalls = 0;
    int attachments = 1;
};
Q_DECLARE_METATYPE(HostileScenario)

/// Plays one scenario: start() sets up the peer and client and sends; check()
/// waits for the job and describes everything that differs from the
/// scenario (empty when nothing does).
class HostileRun
{
public:
    explicit HostileRun(const HostileScenario& scenario) : m_scenario(scenario) {}
    ~HostileRun();

    /// False with a reason when the peer cannot start.
    bool start(QString* problem);
    bool started() const { return m_jobId != 0; }
    QString check();

    const HostileScenario& scenario() const { return m_scenario; }
    ScriptedSmtpPeer* peer() const { return m_peer.get(); }

private:
    struct Report
    {
        oru::constEMailPtr mail;
        int code;
        QString text;
        int jobId;
        bool onHostThread;
        qint64 atMs;  ///< since send() was called
    };
    QString checkBodies() const;
    QString checkClearText() const;

    HostileScenario m_scenario;
    std::unique_ptr<ScriptedSmtpPeer> m_peer;
    std::unique_ptr<oru::SmtpClient> m_client;
    QThread* m_hostThread = QThread::currentThread();
    QElapsedTimer m_clock;
    qint64 m_sendMs = 0;
    int m_jobId = 0;
    bool m_starttls = false;
    QMutex m_mutex;
    QList<Report> m_reports;
};

/// A message from a@example.org to b@example.org whose subject and
/// "X-Test-Key" header are key, with `attachments` attachments of
/// attachmentBytes bytes each (none when attachmentBytes is 0).
oru::EMail keyedMessage(const QString& key, int attachmentBytes = 0, int attachments = 1);
/// The key of a message made by keyedMessage(); empty for none.
QString messageKey(const oru::constEMailPtr& mail);
/// The sender and recipient lines of keyedMessage(), answered 250.
QStringList envelopeSteps();
