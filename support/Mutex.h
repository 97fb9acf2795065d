#ifndef ORU_SUPPORT_MUTEX_H
#define ORU_SUPPORT_MUTEX_H

#include "quillet_export.h"

#include <QMutex>

namespace oru {

/// A non-recursive lock. Lock it through MutexLocker where possible.
class QUILLET_EXPORT Mutex
{
public:
    Mutex();
    ~Mutex();

    void lock();
    /// Tries to lock for at most `timeout` ms (negative: without limit);
    /// true when the lock was taken.
    bool tryLock(int timeout = 0);
    void unlock();

private:
    Q_DISABLE_COPY(Mutex)
    QMutex mutex;
};

} // namespace oru

#endif
