#pragma once

// Plays a parsed script on one accepted connection. Runs on the peer's
// thread with blocking socket calls cut into short slices, so that a stop
// request is noticed within a few tens of milliseconds.

#include "PeerScript_p.h"
#include "ScriptedSmtpPeer.h"

#include <QDeadlineTimer>
#include <QSslCertificate>
#include <QSslKey>

#include <atomic>

class QSslSocket;

class PeerSession
{
public:
    struct Settings
    {
        int stepTimeout = 5000;
        QSslCertificate certificate;
        QSslKey key;
    };

    PeerSession(QSslSocket* socket, const Settings& settings, const std::atomic<bool>& stop);

    //! Runs the TLS handshake from the first byte. False (with a failure
    //! recorded) when it does not complete.
    bool startImplicitTls();
    //! Plays the steps and closes the connection.
    void play(const QVector<PeerStep>& steps);

    const ScriptedSmtpPeer::ConnectionResult& result() const { return m_result; }

private:
    enum class Outcome { Data, Closed, TimedOut, Stopped };

    bool runStep(const PeerStep& step, int number);
    bool fail(int number, const PeerStep& step, const QString& what);

    Outcome readMore(const QDeadlineTimer& deadline);
    void takeAvailable();
    Outcome readLine(const QDeadlineTimer& deadline, QByteArray* line);
    Outcome readData(const QDeadlineTimer& deadline, QByteArray* body);
    QString sendAll(const QByteArray& bytes, const QDeadlineTimer& deadline);
    QString handshake(const QDeadlineTimer& deadline);
    bool waitForClientClose(const QDeadlineTimer& deadline);
    void stall(const QDeadlineTimer& deadline);
    void closeConnection();
    bool isConnected() const;
    void compactBuffer();

    QDeadlineTimer stepDeadline() const;
    QString outcomeText(Outcome outcome) const;

    QSslSocket* m_socket;
    Settings m_settings;
    const std::atomic<bool>& m_stop;
    bool m_tls = false;
    QByteArray m_buffer;    // bytes read and not yet consumed, from m_pos on
    int m_pos = 0;
    ScriptedSmtpPeer::ConnectionResult m_result;
};
