#pragma once

#include <cstdint>

namespace vsccam {

/// Where the library's time comes from. Every wait, sleep and time stamp of the library goes
/// through the functions of clock.h and sync.h; those follow a TimeSource when one is in use and
/// the monotonic clock of the system otherwise. Tests bring a time line of their own this way, on
/// which a 2,000 s exposure takes no time and no test depends on the speed of the machine.
///
/// A thread waits like this: it reads WakeCount, tests its condition, and if that does not hold
/// calls WaitForWake with the count it read. A Wake in between is never lost. Each object that is
/// waited on has a count of its own, so that a Wake for another one ends no wait.
class TimeSource {
  public:
    static constexpr int64_t kForever = INT64_MAX;

    /// Nanoseconds since an arbitrary start; never runs backwards.
    virtual int64_t NowNs() = 0;

    /// Number of Wake calls for `object` so far.
    virtual uint64_t WakeCount(const void *object) = 0;

    /// Returns when WakeCount differs from `seen` or when the time reaches `deadlineNs`.
    virtual void WaitForWake(const void *object, uint64_t seen, int64_t deadlineNs) = 0;

    /// Lets every thread that waits on `object` test its condition again.
    virtual void Wake(const void *object) = 0;

    /// A thread that will use this time source is about to start (called by the thread that starts
    /// it, who also tells when it cannot), begins to run, or is at its end (both called by itself;
    /// the end is a Wake for `thread`). Time that only moves while all threads wait needs their
    /// number.
    virtual void ThreadStarts() = 0;
    virtual void ThreadDoesNotStart() = 0;
    virtual void ThreadRuns() = 0;
    virtual void ThreadEnds(const void *thread) = 0;

  protected:
    ~TimeSource() = default;
};

/// Replaces the system's clock for the whole process, nullptr puts it back. To be called only
/// while the library runs no thread and no call.
void UseTimeSource(TimeSource *source);

/// The time source in use, nullptr for the system's clock.
TimeSource *CurrentTimeSource();

} // namespace vsccam
