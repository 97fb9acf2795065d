#include "support/ovkQtThreadPool.h"

#include "support/IRunnable.h"

#include <QAtomicInt>
#include <QDeadlineTimer>
#include <QRunnable>
#include <QThread>
#include <QTime>

#include <utility>

namespace oru {

namespace {

QAtomicInt gIdSequence;

int nextId()
{
    int id;
    do {
        id = gIdSequence.fetchAndAddOrdered(1) + 1;
    } while (id <= 0);  // after a wrap-around, skip 0 and the negative range
    return id;
}

Q_GLOBAL_STATIC(ovkQtThreadPool, gPool)

} // namespace

// Runs one runnable on a worker thread and reports it finished once the
// pool's reference to it is gone.
class ovkQtThreadPool::Task : public QRunnable
{
public:
    Task(ovkQtThreadPool* owner, int id, boost::shared_ptr<IRunnable> runnable)
        : owner(owner), id(id), runnable(std::move(runnable))
    {
    }

    void run() override
    {
        QTime started = QTime::currentTime();
        try {
            runnable->run(id, &started);
        } catch (...) {
            // Nothing may leave a worker thread; the runnable reports its own
            // failures.
        }
        try {
            runnable.reset();
        } catch (...) {
        }
        owner->finished(id);
    }

private:
    ovkQtThreadPool* owner;
    int id;
    boost::shared_ptr<IRunnable> runnable;
};

ovkQtThreadPool::ovkQtThreadPool()
{
    // Runnables mostly wait on the network, so run more of them than there
    // are cores.
    pool.setMaxThreadCount(qMax(16, 4 * QThread::idealThreadCount()));
}

ovkQtThreadPool::~ovkQtThreadPool()
{
    pool.waitForDone();
}

ovkQtThreadPool* ovkQtThreadPool::globalInstance()
{
    return gPool();
}

int ovkQtThreadPool::schedule(const boost::shared_ptr<IRunnable>& runnable)
{
    if (!runnable)
        return 0;
    const int id = nextId();
    {
        QMutexLocker lock(&mutex);
        active.insert(id);
    }
    pool.start(new Task(this, id, runnable));
    return id;
}

bool ovkQtThreadPool::waitForFinished(int id, long timeout)
{
    QDeadlineTimer deadline(timeout < 0 ? QDeadlineTimer(QDeadlineTimer::Forever)
                                        : QDeadlineTimer(qint64(timeout)));
    QMutexLocker lock(&mutex);
    while (active.contains(id)) {
        if (!done.wait(&mutex, deadline))
            return !active.contains(id);
    }
    return true;
}

int ovkQtThreadPool::activeCount() const
{
    QMutexLocker lock(&mutex);
    return active.size();
}

int ovkQtThreadPool::maxThreadCount() const
{
    return pool.maxThreadCount();
}

void ovkQtThreadPool::setMaxThreadCount(int count)
{
    pool.setMaxThreadCount(count);
}

void ovkQtThreadPool::finished(int id)
{
    QMutexLocker lock(&mutex);
    active.remove(id);
    done.wakeAll();
}

} // namespace oru
