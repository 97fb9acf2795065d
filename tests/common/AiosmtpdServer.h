#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

/*!
 * A real SMTP server for tests: aiosmtpd_server.py run by Debian's python3
 * (which has python3-aiosmtpd) on 127.0.0.1 and a free port. Messages are
 * kept as files in a temporary directory; each one is on disk before the
 * client gets its 250, so messages() is current once a client has finished.
 *
 * TLS uses TestCertificate::shared(). The server is always stopped by the
 * destructor (stdin closed, then terminated and killed if need be); it also
 * stops by itself after maxSeconds. Every wait is bounded.
 *
 * Over STARTTLS, AUTH is offered only after the upgrade; over implicit TLS
 * and in the clear it is offered from the start. Only the LOGIN mechanism is
 * offered. The server answers EHLO with "250-localhost", SIZE, 8BITMIME,
 * SMTPUTF8, STARTTLS (when enabled, before the upgrade), AUTH LOGIN (when
 * enabled) and a final "250 HELP". Its own line limit is 1001 bytes unless
 * lineLimit raises it; longer lines are refused with 500 after the data.
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
        int startTimeoutMs = 20000;
    };

    //! The envelope of one received message.
    struct Envelope
    {
        QString mailFrom;
        QStringList recipients;
    };

    //! A clear-text server without AUTH.
    AiosmtpdServer();
    explicit AiosmtpdServer(const Options& options);
    ~AiosmtpdServer();
    AiosmtpdServer(const AiosmtpdServer&) = delete;
    AiosmtpdServer& operator=(const AiosmtpdServer&) = delete;

    //! Starts the server and waits for its port. False with error() when it
    //! does not come up in time.
    bool start();
    void stop();
    bool isRunning() const;
    QString error() const;
    quint16 port() const;

    //! Number of messages received so far.
    int messageCount() const;
    //! Each message's content as the server received it (after its removal
    //! of leading transparency dots), in order of arrival.
    QList<QByteArray> messages() const;
    QList<Envelope> envelopes() const;
    //! Waits until at least count messages have arrived.
    bool waitForMessages(int count, int ms) const;

    QString outputDirectory() const;
    //! What the server wrote to stderr (for failure messages).
    QString log() const;

private:
    class Private;
    std::unique_ptr<Private> d;
};
