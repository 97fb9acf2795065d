#pragma once

// One SMTP job against a misbehaving server, described as data and checked
// against the reports, the wait result and the time the library promises.

#include "ScriptedSmtpPeer.h"
#include "smtp/SmtpClient.h"

#include <QElapsedTimer>
#include <QMetaType>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QVector>

#include <memory>

/// A job and the server it meets, with what must come of it.
///
/// `client` is a list of words:
///   "starttls"   the STARTTLS flag is on
///   "ssl"        TLS from the first byte; the peer speaks TLS as well unless
///                "plain-peer" is given
///   "plain-peer" the peer stays in the clear (a non-TLS server on a TLS port)
///   "auth"       credentials joe / pw
///   "cram"       CRAM-MD5 is allowed
///   "no-login"   LOGIN is forbidden
///   "refused"    no server: a loopback port that nothing listens on
///   "no-dns"     no server: a host name that cannot be resolved
///
/// `reports` lists the sent() reports in order: "<code>" for a report without
/// a message, "<code>@<i>" for one naming the job's i-th message.
///
/// Each message carries `attachments` attachments of `attachmentBytes` bytes.
/// Whenever the peer accepts a message that has attachments, each of them
/// must have arrived whole.
///
/// `stalls` is how many full 30 s waits the library sits through before the
/// job ends: 0 means it must end well within one.
struct HostileScenario
{
    QString name;
    QStringList script;
    QString client;
    int messages = 1;
    int attachmentBytes = 0;
    int attachments = 1;
    QStringList reports;
    int waitResult = 0;
    int stalls = 0;
};
Q_DECLARE_METATYPE(HostileScenario)

/// One sent() report, taken on the emitting thread.
struct Report
{
    oru::constEMailPtr mail;
    int code = 0;
    QString text;
    int jobId = 0;
    bool onHostThread = false;
    qint64 atMs = 0;  ///< since send() was called
};

/// Plays one scenario: start() sets up the peer and client and sends; check()
/// waits for the job and returns a description of everything that differs
/// from the scenario (empty when nothing does).
class HostileRun
{
public:
    explicit HostileRun(const HostileScenario& scenario);
    ~HostileRun();

    /// False with a reason when the peer cannot start.
    bool start(QString* problem);
    /// True once the job has been sent.
    bool started() const { return m_jobId != 0; }
    QString check();

    const HostileScenario& scenario() const { return m_scenario; }
    ScriptedSmtpPeer* peer() const { return m_peer.get(); }
    QList<Report> reports() const;

private:
    bool has(const char* word) const;
    QString checkBodies() const;

    HostileScenario m_scenario;
    std::unique_ptr<ScriptedSmtpPeer> m_peer;
    std::unique_ptr<oru::SmtpClient> m_client;
    QList<oru::EMail> m_mails;
    QThread* m_hostThread = nullptr;
    QElapsedTimer m_clock;
    qint64 m_sendMs = 0;
    int m_jobId = 0;
    mutable QMutex m_mutex;
    QList<Report> m_reports;
};

/// A message whose subject and "X-Test-Key" header are key, from
/// a@example.org to b@example.org, with `attachments` attachments of
/// attachmentBytes bytes each (none when attachmentBytes is 0).
oru::EMail keyedMessage(const QString& key, int attachmentBytes = 0, int attachments = 1);
/// The content of the i-th attachment that keyedMessage() makes.
QByteArray attachmentContent(int bytes, int i);
/// The key of a message made by keyedMessage(); empty for none.
QString messageKey(const oru::constEMailPtr& mail);

/// The sender and recipient lines of keyedMessage(), answered 250.
QStringList envelopeSteps();
/// Greeting and EHLO with the given extensions.
QStringList openingSteps(const QStringList& extensions = {});

/// A loopback port with nothing listening on it.
quint16 closedLoopbackPort();
