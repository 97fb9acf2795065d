#ifndef ORU_SUPPORT_IINTERFACE_H
#define ORU_SUPPORT_IINTERFACE_H

#include "quillet_export.h"

namespace oru {

/// Root of the support layer's interfaces: asks an object by name for one of
/// the interfaces it implements.
class QUILLET_EXPORT IInterface
{
public:
    virtual ~IInterface();

    /// The object as the interface named `name` ("oru::IInterface" here),
    /// or null when it does not implement that interface. The pointer points
    /// at the subobject of that interface type.
    virtual void* getInterface(const char* name);
    /// Const form of getInterface().
    virtual const void* getInterface(const char* name) const;

protected:
    IInterface() = default;
    IInterface(const IInterface&) = default;
    IInterface& operator=(const IInterface&) = default;
};

} // namespace oru

#endif
