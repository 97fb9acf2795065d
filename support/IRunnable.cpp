#include "support/IRunnable.h"

#include <cstring>

namespace oru {

IRunnable::~IRunnable() = default;

void* IRunnable::getInterface(const char* name)
{
    if (name && std::strcmp(name, "oru::IRunnable") == 0)
        return this;
    return IInterface::getInterface(name);
}

const void* IRunnable::getInterface(const char* name) const
{
    return const_cast<IRunnable*>(this)->getInterface(name);
}

void IRunnable::setAbortHint(bool hint)
{
    abortHint = hint;
}

} // namespace oru
