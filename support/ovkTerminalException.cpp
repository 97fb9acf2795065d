#include "support/ovkTerminalException.h"

namespace oru {

ovkTerminalException::ovkTerminalException(const ovkString& message) : ovkException(message)
{
}

ovkTerminalException::ovkTerminalException(const ovkStringList& messages)
    : ovkException(messages)
{
}

} // namespace oru
