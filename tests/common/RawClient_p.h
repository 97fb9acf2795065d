#pragma once

// A blocking raw client for the scripted peer's own tests. It plays a list
// of actions:
//   ">bytes"   send the bytes as they are
//   "<bytes"   the next bytes from the peer must be exactly these
//   "tls"      start the client side TLS handshake
//   "close"    close the connection
//   "closed"   the peer must close, with nothing further sent
//   "sleep N"  do nothing for N ms
//   "quiet N"  nothing may arrive within N ms
// Every wait is bounded.

#include <QByteArray>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QList>
#include <QSslSocket>
#include <QString>
#include <QThread>

class RawClient
{
public:
    bool connectTo(quint16 port, bool tls)
    {
        m_socket.setPeerVerifyMode(QSslSocket::VerifyNone);
        if (tls)
            m_socket.connectToHostEncrypted(QStringLiteral("127.0.0.1"), port);
        else
            m_socket.connectToHost(QHostAddress::LocalHost, port);
        return m_socket.waitForConnected(5000) && (!tls || m_socket.waitForEncrypted(5000));
    }

    // Empty when every action went as stated; else what went wrong.
    QString run(const QList<QByteArray>& actions)
    {
        for (int i = 0; i < actions.size(); ++i) {
            const QString problem = act(actions.at(i));
            if (!problem.isEmpty())
                return QStringLiteral("client action %1: %2").arg(i + 1).arg(problem);
        }
        return QString();
    }

    QSslSocket& socket() { return m_socket; }

private:
    QString act(const QByteArray& action)
    {
        if (action.startsWith('>')) {
            m_socket.write(action.mid(1));
            return flush() ? QString() : QStringLiteral("could not send");
        }
        if (action.startsWith('<'))
            return expect(action.mid(1));
        if (action == "tls") {
            m_socket.startClientEncryption();
            return m_socket.waitForEncrypted(5000) ? QString()
                                                   : QStringLiteral("no TLS: ") + m_socket.errorString();
        }
        if (action == "close") {
            flush();
            m_socket.disconnectFromHost();
            if (m_socket.state() != QAbstractSocket::UnconnectedState)
                m_socket.waitForDisconnected(2000);
            return QString();
        }
        if (action == "closed")
            return expectClosed();
        if (action.startsWith("sleep ")) {
            QThread::msleep(action.mid(6).toULong());
            return QString();
        }
        if (action.startsWith("quiet ")) {
            m_socket.waitForReadyRead(action.mid(6).toInt());
            take();
            return m_in.isEmpty() ? QString() : QStringLiteral("unexpected \"%1\"").arg(QString::fromLatin1(m_in));
        }
        return QStringLiteral("unknown action");
    }

    bool flush()
    {
        QElapsedTimer timer;
        timer.start();
        while (m_socket.bytesToWrite() > 0 || m_socket.encryptedBytesToWrite() > 0) {
            if (timer.hasExpired(5000) || m_socket.state() != QAbstractSocket::ConnectedState)
                return false;
            m_socket.waitForBytesWritten(100);
        }
        return true;
    }

    void take() { m_in += m_socket.readAll(); }

    QString expect(const QByteArray& wanted)
    {
        QElapsedTimer timer;
        timer.start();
        take();
        while (m_in.size() < wanted.size() && !timer.hasExpired(10000)
               && m_socket.state() == QAbstractSocket::ConnectedState) {
            m_socket.waitForReadyRead(100);
            take();
        }
        const QByteArray got = m_in.left(wanted.size());
        m_in.remove(0, got.size());
        if (got == wanted)
            return QString();
        return QStringLiteral("expected \"%1\", got \"%2\"")
            .arg(QString::fromLatin1(wanted.left(80)), QString::fromLatin1(got.left(80)));
    }

    QString expectClosed()
    {
        QElapsedTimer timer;
        timer.start();
        while (m_socket.state() != QAbstractSocket::UnconnectedState && !timer.hasExpired(5000)) {
            m_socket.waitForReadyRead(100);
            take();
        }
        take();
        if (m_socket.state() != QAbstractSocket::UnconnectedState)
            return QStringLiteral("the peer did not close");
        if (!m_in.isEmpty())
            return QStringLiteral("unexpected \"%1\" before the close").arg(QString::fromLatin1(m_in.left(80)));
        return QString();
    }

    QSslSocket m_socket;
    QByteArray m_in;
};
