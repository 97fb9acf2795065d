#ifndef ORU_SUPPORT_OVKTERMINALEXCEPTION_H
#define ORU_SUPPORT_OVKTERMINALEXCEPTION_H

#include "support/ovkException.h"

namespace oru {

/// An ovkException after which the failing operation cannot go on at all,
/// as opposed to one that a caller may recover from.
class ovkTerminalException : public ovkException
{
public:
    explicit ovkTerminalException(const ovkString& message);
    explicit ovkTerminalException(const ovkStringList& messages);
};

} // namespace oru

#endif
