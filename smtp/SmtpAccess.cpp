#include "smtp/SmtpAccess.h"

#include "support/Preferences.h"
#include "support/XmlUtils.h"

namespace oru {

namespace {

const QString kTlsKey = QStringLiteral("tls");      // settings key, lower case
const QString kTlsElement = QStringLiteral("TLS");  // XML element, upper case

const int kSmtpPort = 25;
const int kSmtpsPort = 465;

} // namespace

SmtpAccess::SmtpAccess()
    : HttpAccess(QString(), kSmtpPort, QString(), QString()), tls(false)
{
}

SmtpAccess::SmtpAccess(const QString& host, int port, const QString& user,
                       const QString& password)
    : HttpAccess(host, port, user, password), tls(false)
{
}

SmtpAccess::SmtpAccess(const QString& host, bool ssl, bool tls, const QString& user,
                       const QString& password)
    : HttpAccess(host, smtpPort(ssl), ssl, user, password), tls(tls)
{
}

SmtpAccess::SmtpAccess(const SmtpAccess& other) = default;

SmtpAccess& SmtpAccess::operator=(const SmtpAccess& other) = default;

SmtpAccess::~SmtpAccess() = default;

int SmtpAccess::smtpPort(bool ssl)
{
    return ssl ? kSmtpsPort : kSmtpPort;
}

int SmtpAccess::smtpPort(int port, bool ssl)
{
    return port > 0 ? port : smtpPort(ssl);
}

void SmtpAccess::store(QSettings& settings, const QString& prefix, bool withPassword) const
{
    HttpAccess::store(settings, prefix, withPassword);
    settings.setValue(prefix + kTlsKey, tls);
}

void SmtpAccess::load(const QSettings& settings, const QString& prefix)
{
    HttpAccess::load(settings, prefix);
    tls = Preferences::boolValue(settings, prefix + kTlsKey, false);
}

bool SmtpAccess::update(const QSettings& settings, const QString& prefix)
{
    const bool changed = HttpAccess::update(settings, prefix);
    if (!settings.contains(prefix + kTlsKey))
        return changed;
    // The key exists, so the default only decides an unreadable value.
    const bool value = Preferences::boolValue(settings, prefix + kTlsKey, true);
    if (value == tls)
        return changed;
    tls = value;
    return true;
}

void SmtpAccess::storeXml(XmlOutputStream& stream, bool withPassword) const
{
    HttpAccess::storeXml(stream, withPassword);
    stream.element(kTlsElement, tls);
}

void SmtpAccess::loadXml(const QDomElement& element)
{
    HttpAccess::loadXml(element);
    tls = XmlUtils::boolValue(element, kTlsElement, false);
}

} // namespace oru
