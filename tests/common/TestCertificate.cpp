#include "TestCertificate.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

namespace {

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
{
    const QString program = opensslProgram();
    if (!m_dir.isValid()) {
        m_error = QStringLiteral("no temporary directory: %1").arg(m_dir.errorString());
        return;
    }
    if (program.isEmpty()) {
        m_error = QStringLiteral("the openssl program was not found");
        return;
    }
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start(program, {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=localhost",
                            "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1", "-keyout", keyPath(), "-out",
                            certificatePath()});
    openssl.closeWriteChannel();
    if (!openssl.waitForFinished(30000)) {
        m_error = QStringLiteral("%1 did not run within 30 s: %2").arg(program, openssl.errorString());
        openssl.kill();
        openssl.waitForFinished(5000);
        return;
    }
    if (openssl.exitStatus() != QProcess::NormalExit || openssl.exitCode() != 0) {
        m_error = QStringLiteral("%1 failed: %2").arg(program, QString::fromLocal8Bit(openssl.readAll()));
        return;
    }
    m_certificate = QSslCertificate(readFile(certificatePath()), QSsl::Pem);
    m_key = QSslKey(readFile(keyPath()), QSsl::Rsa, QSsl::Pem);
    if (m_certificate.isNull() || m_key.isNull())
        m_error = QStringLiteral("openssl wrote no usable certificate and key");
}

const TestCertificate& TestCertificate::shared()
{
    static const TestCertificate instance;
    return instance;
}
