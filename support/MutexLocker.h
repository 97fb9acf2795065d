#ifndef ORU_SUPPORT_MUTEXLOCKER_H
#define ORU_SUPPORT_MUTEXLOCKER_H

#include "support/Mutex.h"

namespace oru {

/// Holds a Mutex for the lifetime of the locker.
class MutexLocker
{
public:
    explicit MutexLocker(Mutex& mutex) : m(mutex) { m.lock(); }
    ~MutexLocker() { unlock(); }

    /// Releases the lock early; the destructor then does nothing.
    void unlock()
    {
        if (locked) {
            locked = false;
            m.unlock();
        }
    }

    /// Takes the lock again after unlock().
    void relock()
    {
        if (!locked) {
            m.lock();
            locked = true;
        }
    }

private:
    Q_DISABLE_COPY(MutexLocker)
    Mutex& m;
    bool locked = true;
};

} // namespace oru

#endif
