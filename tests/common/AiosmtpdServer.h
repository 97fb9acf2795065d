#pragma once

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/*!
 * A real SMTP server for tests: aiosmtpd_server.py run by Debian's python3
 * (which has python3-aiosmtpd) on 127.0.0.1 and a free port. Messages are
 * kept as files in a temporary directory; each one is on disk before the
 * client gets its 250, so messages() is current once a client has finished.
 *
 * TLS uses TestCertificate::shared(). The server is always stopped by the
 * destructor; it also stops by itself after maxSeconds. Every wait is
 * bounded.
 *
 * Over STARTTLS, AUTH is offered only after the upgrade; over implicit TLS
 * and in the clear it is offered from the start. Only the LOGIN mechanism is
 * offered. Lines longer than lineLimit (the server's 1001 bytes by default)
 * are refused with 500 after the data.
 */
class AiosmtpdServer
{
public:
    struct Options
    {
        bool starttls = false;  //!< offer STARTTLS
        bool smtps = false;     //!< TLS from the first byte
        QString user;           //!< non-empty: accept AUTH LOGIN for user/password
        QString password;
        int maxSeconds = 120;   //!< the server stops by itself after this
        int lineLimit = 0;      //!< longest accepted line; 0 keeps the server's 1001
    };

    //! The envelope of one received message.
    struct Envelope
    {
        QString mailFrom;
        QStringList recipients;
    };

    //! A clear-text server without AUTH.
    AiosmtpdServer() = default;
    explicit AiosmtpdServer(const Options& options) : m_options(options) {}
    ~AiosmtpdServer() { stop(); }
    AiosmtpdServer(const AiosmtpdServer&) = delete;
    AiosmtpdServer& operator=(const AiosmtpdServer&) = delete;

    //! Starts the server and waits (up to 20 s) for its port. False with
    //! error() when it does not come up in time.
    bool start();
    //! Closes the server's stdin, then terminates and kills it if need be.
    void stop();
    QString error() const { return m_error; }
    quint16 port() const { return m_port; }

    //! Number of messages received so far.
    int messageCount() const;
    //! Each message's content as the server received it (after its removal
    //! of leading transparency dots), in order of arrival.
    QList<QByteArray> messages() const;
    QList<Envelope> envelopes() const;
    //! Waits until at least count messages have arrived.
    bool waitForMessages(int count, int ms) const;
    //! What the server wrote to stderr (for failure messages).
    QString log() const;

private:
    QString file(int message, const char* suffix) const;

    Options m_options;
    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_port = 0;
    QString m_error;
};
