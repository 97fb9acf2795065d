#pragma once

#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QTemporaryDir>

/*!
 * A throwaway self-signed certificate and RSA key for CN=localhost (with
 * the subject alternative names localhost and 127.0.0.1), made at test time
 * by the openssl command (QUILLET_OPENSSL, else /usr/bin/openssl, else the
 * PATH) in a temporary directory that is removed with the object. Every wait
 * for openssl is bounded.
 */
class TestCertificate
{
public:
    //! Generates a new certificate; check isValid().
    TestCertificate();
    TestCertificate(const TestCertificate&) = delete;
    TestCertificate& operator=(const TestCertificate&) = delete;

    //! One certificate for the whole test process, made on first use.
    //! Thread-safe.
    static const TestCertificate& shared();

    bool isValid() const { return m_error.isEmpty(); }
    //! Why generation failed; empty when valid.
    QString error() const { return m_error; }

    QSslCertificate certificate() const { return m_certificate; }
    QSslKey key() const { return m_key; }
    //! PEM files, for servers that load them from disk.
    QString certificatePath() const { return m_dir.filePath(QStringLiteral("cert.pem")); }
    QString keyPath() const { return m_dir.filePath(QStringLiteral("key.pem")); }

private:
    QTemporaryDir m_dir;
    QSslCertificate m_certificate;
    QSslKey m_key;
    QString m_error;
};
