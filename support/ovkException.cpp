#include "support/ovkException.h"

namespace oru {

ovkException::ovkException(const ovkString& message)
    : list{message}, joined(message.str())
{
}

ovkException::ovkException(const ovkStringList& messages)
    : list(messages), joined(messages.concatenate(",").str())
{
}

void ovkException::addMessage(const ovkString& message)
{
    list.append(message);
    joined = list.concatenate(",").str();
}

const char* ovkException::what() const noexcept
{
    return joined.c_str();
}

} // namespace oru
