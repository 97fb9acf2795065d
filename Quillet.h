// Quillet: e-mail messages, SMTP delivery and mail program hand-off for Qt 5.
// Including this header gives every public class of the library.
#ifndef QUILLET_H
#define QUILLET_H

// Support layer
#include "support/XmlOutputStream.h"
#include "support/HttpAccess.h"
#include "support/IInterface.h"
#include "support/IRunnable.h"
#include "support/Mutex.h"
#include "support/Log.h"

// Message model
#include "mail/QuotedPrintable.h"
#include "mail/MailAddress.h"
#include "mail/MailAddressList.h"
#include "mail/MimePart.h"
#include "mail/EMail.h"
#include "mail/EMailUserProfile.h"
#include "mail/EMailProfileStore.h"

// SMTP delivery
#include "smtp/SmtpAccess.h"
#include "smtp/SmtpClient.h"

// Mail program hand-off
#include "mailto/AppCall.h"
#include "mailto/MailTo.h"

#endif
