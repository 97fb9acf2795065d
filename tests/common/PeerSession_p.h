#pragma once

// Internals of ScriptedSmtpPeer: the parsed steps of a script, and the
// session that plays them on one accepted connection. The session runs on
// the peer's thread with blocking socket calls cut into short slices, so
// that a stop request is noticed within a few tens of milliseconds.

#include "ScriptedSmtpPeer.h"

#include <QDeadlineTimer>
#include <QSslSocket>
#include <QVector>

#include <atomic>

struct PeerStep
{
    enum Kind { Send, Expect, ExpectAny, ExpectOptional, ReadData, Wait, Close, StartTls, ExpectClose, Stall };

    Kind kind = Send;
    QByteArray bytes; // Send: sent count times; Expect*: the line without "\r\n"
    qint64 count = 1; // Send: repetitions; Wait: milliseconds
    QString source;   // the script line, for failure messages
};

// Turns script lines into steps, skipping blank lines and '#' comments. On a
// malformed line returns false and names the line (1-based) in *error.
bool parsePeerScript(const QStringList& lines, QVector<PeerStep>* steps, QString* error);

class PeerSession
{
public:
    PeerSession(int stepTimeout, const std::atomic<bool>& stop);

    //! Takes the accepted descriptor, runs the TLS handshake first when
    //! implicitTls, plays the steps and closes the connection.
    void run(qintptr descriptor, bool implicitTls, const QVector<PeerStep>& steps);
    const ScriptedSmtpPeer::ConnectionResult& result() const { return m_result; }

private:
    enum class Outcome { Data, Closed, TimedOut, Stopped };

    bool runStep(const PeerStep& step, int number);
    Outcome readMore(const QDeadlineTimer& deadline);
    void takeAvailable();
    void consume(int end);
    Outcome readLine(const QDeadlineTimer& deadline, QByteArray* line);
    Outcome readData(const QDeadlineTimer& deadline, QByteArray* body);
    QString sendAll(const QByteArray& bytes, const QDeadlineTimer& deadline);
    QString handshake(const QDeadlineTimer& deadline);
    void stall(const QDeadlineTimer& deadline);
    void closeConnection();
    bool isConnected() const { return m_socket.state() == QAbstractSocket::ConnectedState; }
    QString outcomeText(Outcome outcome) const;

    QSslSocket m_socket;
    const int m_stepTimeout;
    const std::atomic<bool>& m_stop;
    bool m_tls = false;
    QByteArray m_buffer; // bytes read and not yet consumed, from m_pos on
    int m_pos = 0;
    ScriptedSmtpPeer::ConnectionResult m_result;
};
