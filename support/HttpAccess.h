#ifndef ORU_SUPPORT_HTTPACCESS_H
#define ORU_SUPPORT_HTTPACCESS_H

#include "quillet_export.h"
#include "support/XmlOutputStream.h"

#include <QDomElement>
#include <QSettings>
#include <QString>

namespace oru {

/// Settings to reach one server: host, port, SSL flag, user and password.
///
/// Persists to a settings store under the keys prefix + "host", "port",
/// "ssl", "user" and "password" (the prefix is prepended as it is, so it
/// carries its own separator), and to XML as the child elements "Host",
/// "Port", "SSL", "User" and "Password". The SSL flag is stored as a boolean
/// value. Subclasses extend each persistence operation and call the base
/// version first.
class QUILLET_EXPORT HttpAccess
{
public:
    /// Empty host, port 0, no SSL, no credentials.
    HttpAccess();
    /// A plain (non-SSL) connection to host:port with the given credentials.
    HttpAccess(const QString& host, int port, const QString& user, const QString& password);
    HttpAccess(const QString& host, int port, bool ssl, const QString& user,
               const QString& password);
    HttpAccess(const HttpAccess& other);
    HttpAccess& operator=(const HttpAccess& other);
    virtual ~HttpAccess();

    /// Sets user and password.
    void setAuthentication(const QString& user, const QString& password);

    /// Writes all values under prefix. The password is written only when
    /// withPassword is true; otherwise a password already in the store is
    /// left as it is.
    virtual void store(QSettings& settings, const QString& prefix, bool withPassword) const;
    /// Reads all values from under prefix. Missing host, user or password
    /// read as empty, a missing SSL flag as false; a missing or non-numeric
    /// port leaves the port as it is, since its default depends on the
    /// protocol.
    virtual void load(const QSettings& settings, const QString& prefix);
    /// Reads only the values whose keys the store holds and returns whether
    /// any of them differed from the current one. A missing key changes
    /// nothing; so does an unreadable port or SSL value.
    virtual bool update(const QSettings& settings, const QString& prefix);
    /// Writes the values as child elements at the stream's position; the
    /// "Password" element only when withPassword is true.
    virtual void storeXml(XmlOutputStream& stream, bool withPassword) const;
    /// Reads the values from the child elements of element, with the same
    /// defaults as load().
    virtual void loadXml(const QDomElement& element);

    QString host;
    int port;
    bool ssl;
    QString user;
    QString password;
};

} // namespace oru

#endif
