#ifndef ORU_MAIL_EMAILPROFILESTORE_H
#define ORU_MAIL_EMAILPROFILESTORE_H

#include "quillet_export.h"
#include "mail/EMailUserProfile.h"

#include <QList>

namespace oru {

/// A list of sender profiles, numbered from one process-wide id sequence.
///
/// Every store of the process draws ids from `gIdSequence`, so ids are never
/// reused within a process. The sequence is a plain global: stores and ids
/// are meant for one thread.
class QUILLET_EXPORT EMailProfileStore
{
public:
    EMailProfileStore();
    virtual ~EMailProfileStore();

    /// Appends an empty profile with the next id and returns the stored
    /// profile. The pointer stays valid until `profiles` is changed.
    EMailUserProfile* create();
    /// Appends a copy of profile with the next id (the copy's former id is
    /// overwritten; profile itself keeps its id) and returns the stored copy.
    EMailUserProfile* create(const EMailUserProfile& profile);
    /// Always returns a null pointer, whatever the store holds: look
    /// profiles up in `profiles`.
    EMailUserProfile* find(unsigned int id) const;

    /// Increments the sequence and returns the new value.
    static unsigned int nextId();
    /// Raises the sequence to id when id is larger and returns the sequence.
    /// Call it for every id loaded from storage so that new ids do not
    /// collide with loaded ones.
    static unsigned int registerId(unsigned int id);

    QList<EMailUserProfile> profiles;

    /// The last id handed out; 0 before the first.
    static quint32 gIdSequence;

private:
    EMailUserProfile* numberLast();
};

} // namespace oru

#endif
