#include "mail/EMailUserProfile.h"

#include "mail/EMail.h"

namespace oru {

EMailUserProfile::EMailUserProfile()
    : id(0), flag(false)
{
}

EMailUserProfile::EMailUserProfile(const EMailUserProfile& other) = default;

EMailUserProfile& EMailUserProfile::operator=(const EMailUserProfile& other) = default;

EMailUserProfile::~EMailUserProfile() = default;

void EMailUserProfile::applyTo(EMail& mail) const
{
    mail.from = from;
    mail.to = to;
    mail.cc = cc;
    mail.bcc = bcc;

    if (!replyTo.isEmpty())
        mail.replyTo = replyTo;
    else if (!from.isEmpty())
        mail.replyTo = from;
    else
        mail.replyTo = MailAddress();

    // Set even when empty: the header then exists, and the writer leaves
    // empty headers off the wire.
    mail.contactName() = contactName;
    mail.contactStreet() = contactStreet;
    mail.contactCity() = contactCity;
    mail.contactPhone() = contactPhone;
}

uint qHash(const EMailUserProfile& profile)
{
    return profile.id;
}

} // namespace oru
