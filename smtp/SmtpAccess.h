#ifndef ORU_SMTP_SMTPACCESS_H
#define ORU_SMTP_SMTPACCESS_H

#include "quillet_export.h"
#include "support/HttpAccess.h"

namespace oru {

/// Settings to reach one SMTP server: the access settings of HttpAccess plus
/// the STARTTLS flag `tls`.
///
/// The flag persists under the settings key prefix + "tls" (lower case) and
/// as the XML element "TLS" (upper case), after the base's values.
class QUILLET_EXPORT SmtpAccess : public HttpAccess
{
public:
    /// Empty host, port 25, no SSL, no credentials, no STARTTLS.
    SmtpAccess();
    /// host:port as given (no default port is substituted), no SSL, no STARTTLS.
    SmtpAccess(const QString& host, int port, const QString& user, const QString& password);
    /// Port smtpPort(ssl): 465 with SSL, 25 without.
    SmtpAccess(const QString& host, bool ssl, bool tls, const QString& user,
               const QString& password);
    SmtpAccess(const SmtpAccess& other);
    SmtpAccess& operator=(const SmtpAccess& other);
    ~SmtpAccess() override;

    /// 465 when ssl, else 25.
    static int smtpPort(bool ssl);
    /// port when it is greater than 0, else smtpPort(ssl).
    static int smtpPort(int port, bool ssl);

    void store(QSettings& settings, const QString& prefix, bool withPassword) const override;
    /// Sets `tls` always: to false when the key is missing.
    void load(const QSettings& settings, const QString& prefix) override;
    /// Changes `tls` only when the store holds the key; a stored value that
    /// cannot be read as a boolean counts as true here.
    bool update(const QSettings& settings, const QString& prefix) override;
    /// Always writes the "TLS" element, also when the flag is false.
    void storeXml(XmlOutputStream& stream, bool withPassword) const override;
    void loadXml(const QDomElement& element) override;

    /// Use STARTTLS on a plain connection when the server offers it.
    bool tls;
};

} // namespace oru

#endif
