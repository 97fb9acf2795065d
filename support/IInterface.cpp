#include "support/IInterface.h"

#include <cstring>

namespace oru {

IInterface::~IInterface() = default;

void* IInterface::getInterface(const char* name)
{
    return name && std::strcmp(name, "oru::IInterface") == 0 ? this : nullptr;
}

const void* IInterface::getInterface(const char* name) const
{
    return const_cast<IInterface*>(this)->getInterface(name);
}

} // namespace oru
