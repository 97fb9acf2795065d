// --compose: hands the message to the user's mail program through MailTo.
#ifndef QUILLET_SEND_HANDOFF_H
#define QUILLET_SEND_HANDOFF_H

#include "SendOptions.h"

namespace send {

/// True when --compose may open a mailto: URL, which needs a GUI
/// application and so a desktop session (or a chosen Qt platform).
bool handOffWantsGui(const SendOptions &options);

/// Tries the mail programs that --app names, in MailTo's order, until one
/// starts; prints what it started, or why each could not start. Returns
/// 0 when one started, 1 when none did, 2 for bad input.
int runHandOff(const SendOptions &options);

} // namespace send

#endif
