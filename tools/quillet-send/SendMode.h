// Sending: settings, message, delivery.
#ifndef QUILLET_SEND_SENDMODE_H
#define QUILLET_SEND_SENDMODE_H

#include "SendOptions.h"

namespace send {

/// Resolves the server settings, writes them when --save-config asks for
/// it, builds the message and sends every copy. Returns the exit status.
/// Every input is checked before anything is sent.
int runSend(const SendOptions &options);

} // namespace send

#endif
