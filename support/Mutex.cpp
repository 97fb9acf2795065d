#include "support/Mutex.h"

namespace oru {

Mutex::Mutex() = default;

Mutex::~Mutex() = default;

void Mutex::lock()
{
    mutex.lock();
}

bool Mutex::tryLock(int timeout)
{
    return mutex.tryLock(timeout);
}

void Mutex::unlock()
{
    mutex.unlock();
}

} // namespace oru
