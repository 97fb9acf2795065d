#pragma once

#include <QSslCertificate>
#include <QSslKey>
#include <QString>

#include <memory>

class QTemporaryDir;

/*!
 * A throwaway self-signed certificate and RSA key for CN=localhost (with
 * the subject alternative names localhost and 127.0.0.1), made at test time
 * by the openssl command in a temporary directory that is removed with the
 * object. Every wait for openssl is bounded.
 *
 * The openssl program is taken from QUILLET_OPENSSL when set, else from
 * /usr/bin/openssl, else from the PATH.
 */
class TestCertificate
{
public:
    //! Generates a new certificate; check isValid().
    TestCertificate();
    ~TestCertificate();
    TestCertificate(const TestCertificate&) = delete;
    TestCertificate& operator=(const TestCertificate&) = delete;

    //! One certificate for the whole test process, made on first use.
    //! Thread-safe.
    static const TestCertificate& shared();

    bool isValid() const;
    //! Why generation failed; empty when valid.
    QString error() const;

    QSslCertificate certificate() const;
    QSslKey key() const;
    //! PEM files, for servers that load them from disk.
    QString certificatePath() const;
    QString keyPath() const;

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QSslCertificate m_certificate;
    QSslKey m_key;
    QString m_error;
};
