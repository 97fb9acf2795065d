#ifndef ORU_SUPPORT_OVKQTTHREADPOOL_H
#define ORU_SUPPORT_OVKQTTHREADPOOL_H

#include <QMutex>
#include <QSet>
#include <QThreadPool>
#include <QWaitCondition>

#include <boost/shared_ptr.hpp>

namespace oru {

class IRunnable;

/// A thread pool for IRunnable objects, built on QThreadPool, that numbers
/// what it runs and lets a caller wait for one runnable by its number.
///
/// Ids are unique for the life of the process (counting up from 1). The
/// pool holds a runnable until its run() has returned; an exception leaving
/// run() is swallowed, so that it cannot take the worker thread down.
class ovkQtThreadPool
{
public:
    ovkQtThreadPool();
    /// Waits for every runnable that is queued or running.
    ~ovkQtThreadPool();

    /// The process-wide pool.
    static ovkQtThreadPool* globalInstance();

    /// Queues the runnable and returns its id; a worker thread calls
    /// run(id, time) on it later. A null runnable is not queued and gets 0.
    int schedule(const boost::shared_ptr<IRunnable>& runnable);

    /// Waits until the runnable with that id has finished, for at most
    /// `timeout` ms (negative: without limit). True when it has finished,
    /// and for an id that is neither queued nor running.
    bool waitForFinished(int id, long timeout);

    /// Ids that are queued or running.
    int activeCount() const;

    int maxThreadCount() const;
    void setMaxThreadCount(int count);

private:
    Q_DISABLE_COPY(ovkQtThreadPool)
    class Task;
    void finished(int id);

    QThreadPool pool;
    mutable QMutex mutex;
    QWaitCondition done;
    QSet<int> active;  // ids queued or running
};

} // namespace oru

#endif
