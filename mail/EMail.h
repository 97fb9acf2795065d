// An e-mail message: the root of its MIME tree plus addressing fields.
#ifndef QUILLET_MAIL_EMAIL_H
#define QUILLET_MAIL_EMAIL_H

#include "quillet_export.h"
#include "mail/MailAddress.h"
#include "mail/MailAddressList.h"
#include "mail/MimePart.h"

#include <QString>

namespace oru {

/// A message. It is itself the root MIME node; a new message holds the
/// skeleton
///   multipart/related
///     multipart/alternative
///       text/plain   (child 0, 0: plainTextContent())
///       text/html    (child 0, 1: htmlTextContent())
/// and attachments are appended to the root from child 1 on with attach().
/// The message checks nothing and performs no I/O. Copies are independent.
class QUILLET_EXPORT EMail : public MimePart
{
public:
    EMail();

    /// Sets the plain-text alternative. When the HTML alternative is still
    /// empty, it receives the same text verbatim (setHtmlText()), so a message
    /// given one text carries both. Setting an empty text in a charset that
    /// writes no bytes for it (such as "utf-8") while both alternatives are
    /// empty never returns, as each side keeps handing over to the other.
    void setPlainText(const QString &text, const char *charset = "utf-8");
    /// Sets the HTML alternative; mirrors setPlainText().
    void setHtmlText(const QString &text, const char *charset = "utf-8");

    /// Root child 0, child 0; missing positions are recreated as "text/plain".
    MimePart &plainTextContent();
    /// Root child 0, child 1; missing positions are recreated as "text/plain".
    MimePart &htmlTextContent();

    /// The root's contact headers. Calling one adds its header with an empty
    /// value when it is missing.
    QString &contactName();
    QString &contactStreet();
    QString &contactCity();
    QString &contactPhone();

    MailAddress from;    ///< Author; the envelope sender.
    MailAddress sender;  ///< Agent sending for the author.
    MailAddress replyTo; ///< Where replies go.
    MailAddressList to;  ///< Primary recipients.
    MailAddressList cc;  ///< Copy recipients.
    MailAddressList bcc; ///< Blind copy recipients, envelope only.
    QString subject;
};

} // namespace oru

#endif
