#include "support/HttpAccess.h"

#include "support/Preferences.h"
#include "support/XmlUtils.h"

namespace oru {

namespace {

const QString kHostKey = QStringLiteral("host");
const QString kPortKey = QStringLiteral("port");
const QString kSslKey = QStringLiteral("ssl");
const QString kUserKey = QStringLiteral("user");
const QString kPasswordKey = QStringLiteral("password");

const QString kHostElement = QStringLiteral("Host");
const QString kPortElement = QStringLiteral("Port");
const QString kSslElement = QStringLiteral("SSL");
const QString kUserElement = QStringLiteral("User");
const QString kPasswordElement = QStringLiteral("Password");

// Replaces field by value and reports whether that changed it.
template <typename T>
bool assignChanged(T& field, const T& value)
{
    if (field == value)
        return false;
    field = value;
    return true;
}

} // namespace

HttpAccess::HttpAccess()
    : port(0), ssl(false)
{
}

HttpAccess::HttpAccess(const QString& host, int port, const QString& user,
                       const QString& password)
    : host(host), port(port), ssl(false), user(user), password(password)
{
}

HttpAccess::HttpAccess(const QString& host, int port, bool ssl, const QString& user,
                       const QString& password)
    : host(host), port(port), ssl(ssl), user(user), password(password)
{
}

HttpAccess::HttpAccess(const HttpAccess& other) = default;

HttpAccess& HttpAccess::operator=(const HttpAccess& other) = default;

HttpAccess::~HttpAccess() = default;

void HttpAccess::setAuthentication(const QString& user, const QString& password)
{
    this->user = user;
    this->password = password;
}

void HttpAccess::store(QSettings& settings, const QString& prefix, bool withPassword) const
{
    settings.setValue(prefix + kHostKey, host);
    settings.setValue(prefix + kPortKey, port);
    settings.setValue(prefix + kSslKey, ssl);
    settings.setValue(prefix + kUserKey, user);
    if (withPassword)
        settings.setValue(prefix + kPasswordKey, password);
}

void HttpAccess::load(const QSettings& settings, const QString& prefix)
{
    host = Preferences::stringValue(settings, prefix + kHostKey);
    port = Preferences::intValue(settings, prefix + kPortKey, port);
    ssl = Preferences::boolValue(settings, prefix + kSslKey, false);
    user = Preferences::stringValue(settings, prefix + kUserKey);
    password = Preferences::stringValue(settings, prefix + kPasswordKey);
}

bool HttpAccess::update(const QSettings& settings, const QString& prefix)
{
    bool changed = false;
    // Each read defaults to the current value, so a missing key or an
    // unreadable value leaves the field alone.
    changed |= assignChanged(host, Preferences::stringValue(settings, prefix + kHostKey, host));
    changed |= assignChanged(port, Preferences::intValue(settings, prefix + kPortKey, port));
    changed |= assignChanged(ssl, Preferences::boolValue(settings, prefix + kSslKey, ssl));
    changed |= assignChanged(user, Preferences::stringValue(settings, prefix + kUserKey, user));
    changed |= assignChanged(password,
                             Preferences::stringValue(settings, prefix + kPasswordKey, password));
    return changed;
}

void HttpAccess::storeXml(XmlOutputStream& stream, bool withPassword) const
{
    stream.element(kHostElement, host);
    stream.element(kPortElement, port);
    stream.element(kSslElement, ssl);
    stream.element(kUserElement, user);
    if (withPassword)
        stream.element(kPasswordElement, password);
}

void HttpAccess::loadXml(const QDomElement& element)
{
    host = XmlUtils::stringValue(element, kHostElement);
    port = XmlUtils::intValue(element, kPortElement, port);
    ssl = XmlUtils::boolValue(element, kSslElement, false);
    user = XmlUtils::stringValue(element, kUserElement);
    password = XmlUtils::stringValue(element, kPasswordElement);
}

} // namespace oru
