#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

/*!
 * A scripted SMTP server for tests. It listens on 127.0.0.1 on a free port,
 * plays a dialogue on its own thread and records every byte the client
 * wrote. The test's thread may block (for example in a client's wait) while
 * the peer plays; the peer never needs the test's event loop.
 *
 * A script is one step per line (blank lines and lines starting with '#'
 * are ignored):
 *   "S: 220 ready"    send the text and "\r\n"
 *   "S~ 250 a\r\n\0"  send raw bytes; escapes \r \n \t \0 \\ \xHH; no line end added
 *   "S* 10000 250-x"  send the line (with "\r\n") that many times, in one write
 *   "big-line 70000"  send that many 'x' bytes without a line end
 *   "C: EHLO localhost" read one line, which must be exactly this text and "\r\n"
 *   "C: *"            read any one line
 *   "C? QUIT"         like "C:", but a client that closes instead also passes
 *   "C: <data>"       read a message body up to and including the line "."; the
 *                     body (everything before that line) becomes the next data()
 *   "wait 200"        sleep 200 ms (nothing is read meanwhile)
 *   "close"           flush and close the connection
 *   "starttls"        server side TLS handshake with TestCertificate::shared();
 *                     plain bytes the client sent before it are dropped from the
 *                     line buffer (they stay in received())
 *   "expect-close"    read (and record) until the client closes
 *   "stall"           read nothing until the client closes or the step time-out
 *                     ends; neither outcome is a failure
 *
 * Every step is bounded by the step time-out (5000 ms by default). A line
 * that does not match, a time-out, a send that cannot complete, or a
 * connection closed where a step needs it, stops the connection's script
 * and records a failure naming the step, what was expected and what came.
 * When the script ends the peer takes what has already arrived and closes.
 * Texts are Latin-1 on the wire in both directions.
 *
 * Results are complete once waitForFinished() has returned true. The
 * destructor stops the peer and joins its thread within a fraction of a
 * second, in any state.
 */
class ScriptedSmtpPeer
{
public:
    enum Mode {
        Plain, //!< clear text until a "starttls" step; also a non-TLS server for a TLS client
        Smtps  //!< TLS from the first byte
    };

    //! What one connection did.
    struct ConnectionResult
    {
        int stepsPlayed = 0;         //!< steps finished without failure
        bool completed = false;      //!< every step played
        bool encrypted = false;      //!< TLS was active when the connection ended
        QString failure;             //!< empty unless a step failed
        QByteArray received;         //!< every byte read from the client (decrypted after TLS)
        QByteArray receivedAfterTls; //!< the bytes read once TLS was established
        QStringList clientLines;     //!< lines taken by "C:"/"C?" steps, without "\r\n"
        QList<QByteArray> data;      //!< bodies taken by "C: <data>" steps
    };

    explicit ScriptedSmtpPeer(Mode mode = Plain);
    ~ScriptedSmtpPeer();
    ScriptedSmtpPeer(const ScriptedSmtpPeer&) = delete;
    ScriptedSmtpPeer& operator=(const ScriptedSmtpPeer&) = delete;

    // The setters take effect before start() only.

    //! Sets the script, one step per entry. False (with failure()) for a
    //! malformed step or after start(); start() then refuses to run.
    bool setScript(const QStringList& steps);
    //! Connections to accept in a row, each playing the whole script
    //! (default 1). Later connections are refused.
    void setConnections(int count);
    //! Upper bound for each step in milliseconds (default 5000).
    void setStepTimeout(int ms);
    //! How long to wait for each connection (default 10000 ms).
    void setAcceptTimeout(int ms);

    //! Listens and returns once the port accepts connections. False (with
    //! failure()) for a malformed script, missing TLS material or a failed
    //! listen. A peer starts at most once.
    bool start();
    //! The listening port; 0 before start().
    quint16 port() const;
    //! True when the peer finished every connection within ms.
    bool waitForFinished(int ms);

    //! True when every expected connection came and played every step.
    bool scriptCompleted() const;
    //! The first failure, prefixed by "connection N: " when more than one
    //! connection is expected; empty when none.
    QString failure() const;

    // Joined over all finished connections, in order.
    QByteArray received() const;
    QByteArray receivedAfterTls() const;
    QStringList clientLines() const;
    QList<QByteArray> data() const;
    //! The i-th message body; empty when there is none.
    QByteArray data(int i) const;

    //! Result of the i-th finished connection; default when out of range.
    ConnectionResult connection(int i) const;

    // Script builders, joined with '+'.

    //! "S: 220 ...", "C: EHLO localhost", then ehloReply(extensions).
    static QStringList greetingAndEhlo(const QStringList& extensions = {});
    //! "250-localhost", one "250-" line per extension, and a final "250 OK".
    static QStringList ehloReply(const QStringList& extensions);
    //! "C: STARTTLS", "S: 220 ...", "starttls", "C: EHLO localhost" and
    //! ehloReply(extensionsAfter).
    static QStringList startTls(const QStringList& extensionsAfter = {});
    //! AUTH LOGIN with base64 of the local 8-bit user and password; "235".
    static QStringList authLogin(const QString& user, const QString& password);
    //! "MAIL FROM:<from>" and one "RCPT TO:<r>" per recipient, each answered 250.
    static QStringList envelope(const QString& from, const QStringList& recipients);
    //! "C: DATA", "S: 354 ...", "C: <data>", then the given final reply.
    static QStringList message(const QString& finalReply = QStringLiteral("250 OK"));
    //! "C? QUIT" and "expect-close".
    static QStringList quit();
    //! message() followed by quit().
    static QStringList dataAndQuit();

private:
    class Private;
    std::unique_ptr<Private> d;
};
