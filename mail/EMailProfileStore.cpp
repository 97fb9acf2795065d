#include "mail/EMailProfileStore.h"

namespace oru {

quint32 EMailProfileStore::gIdSequence = 0;

EMailProfileStore::EMailProfileStore() = default;

EMailProfileStore::~EMailProfileStore() = default;

EMailUserProfile* EMailProfileStore::create()
{
    profiles.append(EMailUserProfile());
    return numberLast();
}

EMailUserProfile* EMailProfileStore::create(const EMailUserProfile& profile)
{
    // Copy first: profile may be one of our own entries.
    const EMailUserProfile copy(profile);
    profiles.append(copy);
    return numberLast();
}

EMailUserProfile* EMailProfileStore::find(unsigned int id) const
{
    Q_UNUSED(id);
    return nullptr;
}

unsigned int EMailProfileStore::nextId()
{
    return ++gIdSequence;
}

unsigned int EMailProfileStore::registerId(unsigned int id)
{
    if (id > gIdSequence)
        gIdSequence = id;
    return gIdSequence;
}

EMailUserProfile* EMailProfileStore::numberLast()
{
    EMailUserProfile& profile = profiles.last();
    profile.id = nextId();
    return &profile;
}

} // namespace oru
