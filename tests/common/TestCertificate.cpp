#include "TestCertificate.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace {

const int kStartMs = 5000;
const int kRunMs = 30000;

QString opensslProgram()
{
    const QString configured = qEnvironmentVariable("QUILLET_OPENSSL");
    if (!configured.isEmpty())
        return configured;
    if (QFileInfo(QStringLiteral("/usr/bin/openssl")).isExecutable())
        return QStringLiteral("/usr/bin/openssl");
    return QStandardPaths::findExecutable(QStringLiteral("openssl"));
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TestCertificate::TestCertificate()
    : m_dir(new QTemporaryDir)
{
    if (!m_dir->isValid()) {
        m_error = QStringLiteral("no temporary directory: %1").arg(m_dir->errorString());
        return;
    }
    const QString program = opensslProgram();
    if (program.isEmpty()) {
        m_error = QStringLiteral("the openssl program was not found");
        return;
    }

    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start(program, {QStringLiteral("req"), QStringLiteral("-x509"),
                            QStringLiteral("-newkey"), QStringLiteral("rsa:2048"),
                            QStringLiteral("-nodes"), QStringLiteral("-days"), QStringLiteral("2"),
                            QStringLiteral("-subj"), QStringLiteral("/CN=localhost"),
                            QStringLiteral("-addext"),
                            QStringLiteral("subjectAltName=DNS:localhost,IP:127.0.0.1"),
                            QStringLiteral("-keyout"), keyPath(),
                            QStringLiteral("-out"), certificatePath()});
    openssl.closeWriteChannel();
    if (!openssl.waitForStarted(kStartMs)) {
        m_error = QStringLiteral("cannot run %1: %2").arg(program, openssl.errorString());
        return;
    }
    if (!openssl.waitForFinished(kRunMs)) {
        openssl.kill();
        openssl.waitForFinished(kStartMs);
        m_error = QStringLiteral("%1 did not finish within %2 ms").arg(program).arg(kRunMs);
        return;
    }
    if (openssl.exitStatus() != QProcess::NormalExit || openssl.exitCode() != 0) {
        m_error = QStringLiteral("%1 failed: %2").arg(program, QString::fromLocal8Bit(openssl.readAll()));
        return;
    }

    m_certificate = QSslCertificate(readFile(certificatePath()), QSsl::Pem);
    m_key = QSslKey(readFile(keyPath()), QSsl::Rsa, QSsl::Pem);
    if (m_certificate.isNull() || m_key.isNull()) {
        m_error = QStringLiteral("openssl wrote no usable certificate and key");
        m_certificate = QSslCertificate();
        m_key = QSslKey();
    }
}

TestCertificate::~TestCertificate() = default;

const TestCertificate& TestCertificate::shared()
{
    static const TestCertificate instance;
    return instance;
}

bool TestCertificate::isValid() const
{
    return m_error.isEmpty() && !m_certificate.isNull() && !m_key.isNull();
}

QString TestCertificate::error() const
{
    return m_error;
}

QSslCertificate TestCertificate::certificate() const
{
    return m_certificate;
}

QSslKey TestCertificate::key() const
{
    return m_key;
}

QString TestCertificate::certificatePath() const
{
    return m_dir->filePath(QStringLiteral("cert.pem"));
}

QString TestCertificate::keyPath() const
{
    return m_dir->filePath(QStringLiteral("key.pem"));
}
