#ifndef ORU_SMTP_SMTPSESSION_P_H
#define ORU_SMTP_SMTPSESSION_P_H

#include "smtp/SmtpClient.h"

#include <QSet>

namespace oru {

// The steps of one job's SMTP session. A nested class of the client, so that
// it reaches the client's conversation members; all state lives in the job.
class Q_DECL_HIDDEN SmtpClient::Session
{
public:
    using Features = QSet<ExtFeature>;

    // Connects as the settings say; false (reported as -1) on failure.
    static bool connect(SmtpJob* job);
    // Sends EHLO; true when the reply begins with a continuation line.
    static bool ehlo(SmtpJob* job);
    // Reads the remaining EHLO lines into offered.
    static void readExtensions(SmtpJob* job, Features& offered);
    // Upgrades with STARTTLS when it is offered and wanted. False when the
    // session must end.
    static bool startTls(SmtpJob* job, Features& offered);
    // Envelope, data and report of one message.
    static void sendMail(SmtpJob* job, const EMailPtr& mail);
    // Reports a socket failure with code -1.
    static void reportSocketError(SmtpJob* job);

    // Runs the first allowed mechanism of offered; true when authenticated
    // or when there is nothing to authenticate with.
    static bool authenticate(SmtpJob* job, const Features& offered);
    static bool authCramMd5(SmtpJob* job);
    static bool authLogin(SmtpJob* job);
    static bool authPlain(SmtpJob* job);

    // Fixed name the client greets the server with.
    static const char* const ehloDomain;
};

} // namespace oru

#endif
