#ifndef ORU_SMTP_SMTPCLIENT_H
#define ORU_SMTP_SMTPCLIENT_H

#include "quillet_export.h"
#include "mail/EMail.h"
#include "smtp/SmtpAccess.h"
#include "support/IRunnable.h"
#include "support/Mutex.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QObject>
#include <QSet>
#include <QSslSocket>
#include <QString>
#include <QTime>

#include <boost/shared_ptr.hpp>

namespace oru {

/// Shared ownership of a message in flight.
typedef boost::shared_ptr<EMail> EMailPtr;
/// Shared ownership of a message that is only read.
typedef boost::shared_ptr<const EMail> constEMailPtr;

/// Sends e-mail through one SMTP server on the threads of the global
/// ovkQtThreadPool.
///
/// send() copies the messages into a new job and returns its id at once; the
/// job connects (in the clear, over SSL, or upgraded with STARTTLS),
/// authenticates and transmits every message over one connection. Each
/// message's outcome arrives through sent(), emitted on the pool thread.
///
/// The client must outlive every job it created: wait for each with
/// waitForSent() before destroying it. The allowed feature set is read by
/// running jobs and should only be changed while none runs.
class QUILLET_EXPORT SmtpClient : public QObject
{
    Q_OBJECT

public:
    /// ESMTP extensions and authentication mechanisms.
    enum ExtFeature {
        DSN = 0,
        STARTTLS = 2,
        AUTH_CRAM_MD5 = 8,
        AUTH_LOGIN = 9,
        AUTH_PLAIN = 10
    };

    /// One connection to the server carrying any number of messages.
    ///
    /// Created by send() and owned by the pool while it runs. It holds its
    /// own copies of the settings and of the messages.
    class QUILLET_EXPORT SmtpJob : public IRunnable
    {
    public:
        SmtpJob();
        ~SmtpJob() override;

        /// Entry point for the pool: records the id, runs the session and
        /// turns an exception into a log line and a sent() report of -3.
        /// The connection is released before it returns.
        void run(int jobId, QTime* time) override;
        /// The SMTP session itself.
        virtual void run();

        int id = 0;
        SmtpClient* client = nullptr;  ///< not owned
        SmtpAccess access;             ///< copy of the client's settings at send()
        QSslSocket* socket = nullptr;  ///< the session's connection while it runs
        QList<EMailPtr> mails;
        EMailPtr currentMail;          ///< the message being transmitted

    private:
        Q_DISABLE_COPY(SmtpJob)
    };

    /// Ids of the meta types "oru::EMail*", "oru::EMailPtr" and
    /// "oru::constEMailPtr", registered when the library is loaded.
    static int gEmailMetaTypes[3];

    /// Copies the settings. Allowed features: STARTTLS, AUTH_LOGIN and
    /// AUTH_PLAIN; DSN and AUTH_CRAM_MD5 are off until useFeature() turns
    /// them on.
    explicit SmtpClient(const SmtpAccess& access, QObject* parent = nullptr);
    /// A plain connection to host on port 25, without credentials or STARTTLS.
    explicit SmtpClient(const QString& host, QObject* parent = nullptr);
    /// Neither waits for nor cancels jobs.
    ~SmtpClient() override;

    /// The settings, modifiable; changes reach only jobs created afterwards.
    SmtpAccess& server();
    void setAuthentication(const QString& user, const QString& password);

    /// Schedules one job carrying a copy of mail and returns the job's id.
    int send(const EMail& mail);
    /// Schedules one job carrying copies of all mails, sent in list order
    /// over one connection. An empty list still makes a job that connects,
    /// greets, authenticates and quits.
    int send(const QList<EMail>& mails);
    /// Blocks until the job has finished, for at most timeout ms (negative:
    /// without limit), and returns the last reply code the job read: 250
    /// after a fully accepted job, 0 when no reply was read. -2 when the
    /// time-out expired. An id without an entry gets an entry of 0.
    int waitForSent(int jobId, int timeout);

    /// Allows (on) or forbids the use of an extension by later jobs.
    void useFeature(ExtFeature feature, bool on);
    /// The last reply code recorded for the job, 0 for an unknown id. The
    /// lookup never inserts.
    int responseCode(int jobId) const;

    /// Keyed MD5 digest of CRAM-MD5 (16 raw bytes). It always reads 64 bytes
    /// of challenge: a longer one is cut, a shorter one is padded with zero
    /// bytes. The outer pad is read up to its first zero byte, which a key
    /// byte of 0x5c produces, and at most 64 bytes.
    static QByteArray cramMd5Hash(const QByteArray& key, const QByteArray& challenge);
    /// Three qrand() values in lower-case hexadecimal, joined.
    static QString randomBoundary();

signals:
    /// The outcome of one message, or of the job when it fails before or
    /// outside a message: 250 "OK" for an accepted message; the server's code
    /// and text for a refused command (mail null before the first message);
    /// -1 and the socket's error for a connection or TLS failure; -3 and the
    /// exception's text for an exception. Emitted on the pool thread.
    void sent(oru::constEMailPtr mail, int responseCode, const QString& message, int jobId);

protected:
    /// Writes line as Latin-1 followed by "\r\n"; unchecked and unflushed.
    void writeLine(SmtpJob* job, const QString& line);
    /// Reads one reply line (waiting once, at most 30 s, when no whole line
    /// is buffered) and returns its code: the first three characters as a
    /// number, negated when the fourth is "-"; 0 after a time-out or a close.
    /// text, when given, receives the line from its fifth character on,
    /// line end included; it is empty when nothing follows the code.
    int readLine(SmtpJob* job, QString* text);
    /// Writes command unless it is empty, reads one line, records its code
    /// for the job and compares it with expected exactly. A mismatch is
    /// reported through sent() with the job's current message.
    bool conversation(SmtpJob* job, const QString& command, int expected, QString* text = nullptr);

    /// Completes the top-level headers, writes mail and the end-of-data line,
    /// and returns whether the server answered 250.
    bool send1Mail(SmtpJob* job, EMailPtr mail);
    /// Writes one MIME node with its subtree, adding transfer encoding,
    /// length and boundary to its headers.
    void writeMime(SmtpJob* job, MimePart& part);

private:
    class Session;  // steps of a job's session, defined inside the library
    void setResponseCode(int jobId, int code);

    SmtpAccess access;
    QMap<int, int> responseCodes;
    QSet<ExtFeature> features;
    mutable Mutex responseCodesLock;
};

} // namespace oru

Q_DECLARE_METATYPE(oru::EMail*)
Q_DECLARE_METATYPE(oru::EMailPtr)
Q_DECLARE_METATYPE(oru::constEMailPtr)

#endif
