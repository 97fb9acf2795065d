#ifndef ORU_MAIL_EMAILUSERPROFILE_H
#define ORU_MAIL_EMAILUSERPROFILE_H

#include "quillet_export.h"
#include "mail/MailAddress.h"
#include "mail/MailAddressList.h"
#include "smtp/SmtpAccess.h"

#include <QString>

namespace oru {

class EMail;

/// A stored set of sender data: addresses, default recipients, contact
/// details and an SMTP server, stamped onto new messages with applyTo().
///
/// The id is also the profile's hash value; an EMailProfileStore hands it
/// out. `smtp`, `sender` and `flag` travel with the profile but applyTo()
/// does not use them.
class QUILLET_EXPORT EMailUserProfile
{
public:
    /// All fields empty, id 0, flag false.
    EMailUserProfile();
    /// Copies every field, id and flag included.
    EMailUserProfile(const EMailUserProfile& other);
    EMailUserProfile& operator=(const EMailUserProfile& other);
    ~EMailUserProfile();

    /// Overwrites the message's sender data: from, to, cc and bcc (lists
    /// replaced whole), replyTo (this replyTo, else this from, else an empty
    /// address) and the four contact headers, which are set even when empty.
    /// The message's sender, subject, texts and attachments stay as they are.
    void applyTo(EMail& mail) const;

    quint32 id;
    QString label;
    SmtpAccess smtp;
    MailAddress from;
    MailAddress sender;
    MailAddress replyTo;
    MailAddressList to;
    MailAddressList cc;
    MailAddressList bcc;
    QString contactName;
    QString contactStreet;
    QString contactCity;
    QString contactPhone;
    bool flag;
};

/// The profile's id, unchanged.
QUILLET_EXPORT uint qHash(const EMailUserProfile& profile);

} // namespace oru

#endif
