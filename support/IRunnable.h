#ifndef ORU_SUPPORT_IRUNNABLE_H
#define ORU_SUPPORT_IRUNNABLE_H

#include "quillet_export.h"
#include "support/IInterface.h"

#include <QTime>

namespace oru {

/// A unit of work that a thread pool runs once on one of its threads.
///
/// The abort hint is only stored: whether and when a runnable looks at it is
/// the runnable's own business.
class QUILLET_EXPORT IRunnable : public virtual IInterface
{
public:
    ~IRunnable() override;

    /// Also answers "oru::IRunnable".
    void* getInterface(const char* name) override;
    const void* getInterface(const char* name) const override;

    /// Runs the work. `id` is the id the pool gave the runnable when it was
    /// scheduled; `time` holds the time at which the pool started it.
    virtual void run(int id, QTime* time) = 0;
    /// Stores a request to stop early.
    virtual void setAbortHint(bool hint);

protected:
    IRunnable() = default;

    bool abortHint = false;
};

} // namespace oru

#endif
