#pragma once

// Helpers shared by the SMTP client tests: recording sent() reports on the
// test's thread, building small messages and running one job to its end.

#include "smtp/SmtpClient.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

class ScriptedSmtpPeer;

struct SentReport
{
    oru::constEMailPtr mail;
    int code = 0;
    QString text;
    int jobId = 0;
};

/// Receives a client's sent() reports queued into the test's thread, which
/// also proves that the signal's pointer type can cross threads.
class SentRecorder : public QObject
{
    Q_OBJECT

public:
    explicit SentRecorder(oru::SmtpClient* client);

    /// Delivers what is queued and returns every report so far.
    QList<SentReport> take();
    /// The codes of take(), in order.
    QList<int> codes();

public slots:
    void record(oru::constEMailPtr mail, int responseCode, const QString& message, int jobId);

private:
    QList<SentReport> reports;
};

/// A message holding only a plain text (the HTML alternative stays empty).
oru::EMail textMessage(const QString& from, const QStringList& to,
                       const QString& subject = QStringLiteral("Hello"),
                       const QString& text = QStringLiteral("Hello world"));

/// A client for the peer's port on 127.0.0.1, plain, no credentials.
oru::SmtpAccess peerAccess(quint16 port);

struct JobOutcome
{
    int id = 0;
    int waitResult = 0;
    QList<SentReport> reports;
};

/// Sends the mails as one job, waits for it (at most 20 s) and for the peer
/// (at most 10 s), and collects the reports.
JobOutcome runJob(oru::SmtpClient& client, SentRecorder& recorder, const QList<oru::EMail>& mails,
                  ScriptedSmtpPeer* peer);

/// A failure text naming what the peer saw, for QVERIFY2.
QByteArray peerDiagnosis(const ScriptedSmtpPeer& peer);

/// A free loopback port with nothing listening on it.
quint16 closedPort();
