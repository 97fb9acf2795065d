#include "ServerSettings.h"

#include "Terminal.h"

#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSettings>
#include <QXmlStreamWriter>

namespace send {

namespace {

const char kPasswordVariable[] = "QUILLET_PASSWORD";

QDomElement findGroupElement(const QDomDocument &document, const QString &group)
{
    const QDomElement root = document.documentElement();
    if (root.tagName() == group)
        return root;
    const QDomNodeList found = root.elementsByTagName(group);
    return found.isEmpty() ? QDomElement() : found.at(0).toElement();
}

bool loadXml(const QString &path, const QString &group, oru::SmtpAccess *access, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("--config: cannot read \"%1\"").arg(path);
        return false;
    }
    QDomDocument document;
    QString message;
    int line = 0;
    int column = 0;
    if (!document.setContent(&file, &message, &line, &column)) {
        *error = QStringLiteral("--config: \"%1\" is not XML (line %2, column %3: %4)")
                     .arg(path).arg(line).arg(column).arg(message);
        return false;
    }
    const QDomElement element = findGroupElement(document, group);
    if (element.isNull()) {
        *error = QStringLiteral("--config: no element <%1> in \"%2\"").arg(group, path);
        return false;
    }
    access->loadXml(element);
    return true;
}

bool loadIni(const QString &path, const QString &group, oru::SmtpAccess *access, QString *error)
{
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError) {
        *error = QStringLiteral("--config: \"%1\" is not a readable settings file").arg(path);
        return false;
    }
    if (!settings.childGroups().contains(group)) {
        *error = QStringLiteral("--config: no group [%1] in \"%2\"").arg(group, path);
        return false;
    }
    access->load(settings, group + QLatin1Char('/'));
    return true;
}

bool saveXml(const QString &path, const QString &group, const oru::SmtpAccess &access, QString *error)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        QXmlStreamWriter writer(&file);
        writer.setAutoFormatting(true);
        writer.writeStartDocument();
        writer.writeStartElement(group);
        oru::XmlOutputStream stream(writer);
        access.storeXml(stream, false);
        writer.writeEndElement();
        writer.writeEndDocument();
        if (!writer.hasError() && file.commit())
            return true;
    }
    *error = QStringLiteral("--save-config: cannot write \"%1\": %2").arg(path, file.errorString());
    return false;
}

bool saveIni(const QString &path, const QString &group, const oru::SmtpAccess &access, QString *error)
{
    QSettings settings(path, QSettings::IniFormat);
    access.store(settings, group + QLatin1Char('/'), false);
    settings.sync();
    if (settings.status() == QSettings::NoError)
        return true;
    *error = QStringLiteral("--save-config: cannot write \"%1\"").arg(path);
    return false;
}

} // namespace

bool isXmlSettingsFile(const QString &path)
{
    return path.endsWith(QLatin1String(".xml"), Qt::CaseInsensitive);
}

bool loadSettingsFile(const QString &path, const QString &group, oru::SmtpAccess *access,
                      QString *error)
{
    const QFileInfo info(path);
    if (!info.isFile() || !info.isReadable()) {
        *error = QStringLiteral("--config: cannot read \"%1\"").arg(path);
        return false;
    }
    return isXmlSettingsFile(path) ? loadXml(path, group, access, error)
                                   : loadIni(path, group, access, error);
}

bool saveSettingsFile(const QString &path, const QString &group, const oru::SmtpAccess &access,
                      QString *error)
{
    return isXmlSettingsFile(path) ? saveXml(path, group, access, error)
                                   : saveIni(path, group, access, error);
}

bool resolveServerSettings(const SendOptions &options, oru::SmtpAccess *access, QString *error)
{
    *access = oru::SmtpAccess();
    access->port = 0;  // 0 until a file or the command line names one
    if (!options.configFile.isEmpty()
        && !loadSettingsFile(options.configFile, options.configGroup, access, error))
        return false;

    if (options.serverGiven)
        access->host = options.server;
    if (options.portGiven)
        access->port = options.port;
    if (options.ssl) {
        access->ssl = true;
        access->tls = false;
    }
    if (options.starttls) {
        access->ssl = false;
        access->tls = true;
    }
    if (options.userGiven)
        access->user = options.user;
    access->port = oru::SmtpAccess::smtpPort(access->port, access->ssl);
    if (access->port > 65535) {
        *error = QStringLiteral("--config: port %1 is out of range").arg(access->port);
        return false;
    }
    return true;
}

bool resolvePassword(oru::SmtpAccess *access, QString *error)
{
    if (access->user.isEmpty())
        return true;
    if (qEnvironmentVariableIsSet(kPasswordVariable)) {
        access->password = qEnvironmentVariable(kPasswordVariable);
        return true;
    }
    if (!access->password.isEmpty())
        return true;
    if (!isTerminal(StandardInput)) {
        *error = QStringLiteral("--user: no password for \"%1\"; set %2 or run on a terminal")
                     .arg(access->user, QLatin1String(kPasswordVariable));
        return false;
    }
    const QString prompt = QStringLiteral("Password for %1 at %2: ").arg(access->user, access->host);
    if (!readHiddenLine(prompt, &access->password)) {
        *error = QStringLiteral("--user: no password was entered");
        return false;
    }
    return true;
}

} // namespace send
