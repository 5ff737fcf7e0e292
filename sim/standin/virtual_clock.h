#pragma once

#include "camera/camera.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <random>
#include <thread>
#include <vector>

namespace vscsim {

/// What the simulated bus takes its time from and waits on. A thread reads WakeCount, tests its
/// condition, and if that does not hold calls WaitForWake with the count it read: a Wake in between
/// is never lost.
class BusClock {
  public:
    virtual Time Now() = 0;
    virtual uint64_t WakeCount() = 0;

    /// Returns when WakeCount differs from `seen`, when the time reaches `deadline`, or for no
    /// reason at all. `what` names the wait in reports.
    virtual void WaitForWake(uint64_t seen, Time deadline, const char *what) = 0;

    /// Lets every waiting thread test its condition again.
    virtual void Wake() = 0;

    /// The calling thread, which holds no lock, is at a point where another one may go first.
    virtual void Yield() {}

  protected:
    ~BusClock() = default;
};

/// The system's monotonic clock.
class SteadyClock final : public BusClock {
  public:
    Time Now() override;
    uint64_t WakeCount() override;
    void WaitForWake(uint64_t seen, Time deadline, const char *what) override;
    void Wake() override;

  private:
    std::mutex m_mutex; // guards m_wakes
    std::condition_variable m_woken;
    uint64_t m_wakes = 0;
};

/// Time that stands still while any thread runs and jumps to the earliest deadline once all wait,
/// so that nothing depends on the speed of the machine. It must know every thread that takes part;
/// a thread counts as running from the moment it is woken, not from when the system schedules it.
/// A registered thread must not block on anything else for long: time would stand still.
///
/// With a seed, threads run in turn: one at a time, until it waits or yields, and the seed decides
/// whose turn is next. Whatever the machine does, the same program then goes the same way. Without,
/// they run at the same time, as a tool that looks for races wants them to.
///
/// When all threads wait and none has a deadline, or when time runs away because the others wait
/// for ever beside a periodic one, the clock says on standard error who waits for what and aborts.
class VirtualClock {
  public:
    static constexpr Time kStart = std::chrono::seconds(1000);
    static constexpr Time kLimit = std::chrono::hours(100 * 24);

    explicit VirtualClock(Time start = kStart, Time limit = kLimit,
                          std::optional<uint64_t> seed = {});
    VirtualClock(const VirtualClock &) = delete;
    VirtualClock &operator=(const VirtualClock &) = delete;

    Time Now() const { return Time(m_now.load(std::memory_order_relaxed)); }

    /// A thread is about to take part (called before it starts, by whoever starts it, who also
    /// tells when it cannot), begins to do so (called by itself, first of all; the first thread of
    /// all does not), or stops doing so (called by itself).
    void ThreadStarts();
    void ThreadDoesNotStart();
    void ThreadRuns();
    void ThreadEnds();

    /// See BusClock.
    void Yield();

    /// Waits on this clock that belong together: a Wake ends these and no others.
    class Channel;

  private:
    struct Waiter;

    void Wait(std::unique_lock<std::mutex> &lock, Waiter &self);
    void GoOn();
    void GiveTurn();
    void JumpWhenAllWait();
    template <class Predicate> void ResumeIf(Predicate predicate);
    uint64_t Draw(uint64_t choices);
    void Report(const char *reason) const;
    [[noreturn]] void Fail(const char *reason) const;

    const Time m_limit;
    std::mutex m_mutex; // guards what follows; the time is written under it, too
    std::atomic<Time::rep> m_now;
    size_t m_threads = 0;
    std::vector<Waiter *> m_waiters;

    // In turn
    const bool m_inTurn;
    std::minstd_rand m_random;
    bool m_turnTaken = false;
    std::vector<Waiter *> m_ready; // for their turn; null: one that is starting
    std::condition_variable m_arrived;
};

class VirtualClock::Channel final : public BusClock {
  public:
    explicit Channel(VirtualClock &clock) : m_clock(clock) {}

    Time Now() override { return m_clock.Now(); }
    uint64_t WakeCount() override { return m_wakes.load(std::memory_order_acquire); }
    void WaitForWake(uint64_t seen, Time deadline, const char *what) override;
    void Wake() override;
    void Yield() override { m_clock.Yield(); }

  private:
    VirtualClock &m_clock;
    std::atomic<uint64_t> m_wakes{0}; // written under the clock's mutex
};

/// A thread that a VirtualClock knows of. Joined by another one of its threads, at the latest in
/// the destructor.
class ClockedThread {
  public:
    ClockedThread(VirtualClock &clock, std::function<void()> body);
    ClockedThread(const ClockedThread &) = delete;
    ClockedThread &operator=(const ClockedThread &) = delete;
    ~ClockedThread() { Join(); }

    void Join();

  private:
    VirtualClock::Channel m_end;
    std::atomic<bool> m_finished{false};
    std::thread m_thread;
};

} // namespace vscsim
