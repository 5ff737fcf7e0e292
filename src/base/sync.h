#pragma once

#include "base/clock.h"
#include "base/thread_safety.h"
#include "base/time_source.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace vsccam {

/// A plain value that several threads read and write, each access on its own. What must change
/// together needs a CriticalSection instead.
template <class T> class Shared {
    static_assert(std::atomic<T>::is_always_lock_free, "would take a lock on 32-bit ARM");

  public:
    Shared() = default;
    Shared(T value) : m_value(value) {} // NOLINT(google-explicit-constructor): reads like a T
    Shared(const Shared &) = delete;
    Shared &operator=(const Shared &) = delete;

    operator T() const { return m_value.load(std::memory_order_relaxed); }
    T operator=(T value) // NOLINT(misc-unconventional-assign-operator): as std::atomic does
    {
        m_value.store(value, std::memory_order_relaxed);
        return value;
    }
    T operator+=(T value) { return m_value.fetch_add(value, std::memory_order_relaxed) + value; }
    T operator++() { return *this += T{1}; }

  private:
    std::atomic<T> m_value{};
};

/// The library's mutex. Lock it with a SectionLock. How it does it is out of the analysis: it knows
/// nothing of std::mutex.
template <class Mutex> class VSC_CAPABILITY BasicCriticalSection {
  public:
    void lock() VSC_ACQUIRE() VSC_NO_ANALYSIS
    {
        TimeSource *source = CurrentTimeSource();
        if (!source) {
            m_mutex.lock();
            return;
        }
        if (m_mutex.try_lock())
            return;
        ++m_contenders;
        for (;;) {
            const uint64_t seen = source->WakeCount(this);
            if (m_mutex.try_lock())
                break;
            source->WaitForWake(this, seen, TimeSource::kForever);
        }
        --m_contenders;
    }

    bool try_lock() VSC_TRY_ACQUIRE(true) VSC_NO_ANALYSIS { return m_mutex.try_lock(); }

    void unlock() VSC_RELEASE() VSC_NO_ANALYSIS
    {
        m_mutex.unlock();
        TimeSource *source = CurrentTimeSource();
        if (source && m_contenders.fetch_add(0) > 0)
            source->Wake(this);
    }

  private:
    Mutex m_mutex;
    std::atomic<int> m_contenders{0}; // threads that wait on a TimeSource for the mutex
};

using CriticalSection = BasicCriticalSection<std::mutex>;
using RecursiveCriticalSection = BasicCriticalSection<std::recursive_mutex>;

/// Holds a section as long as it lives, but for the time between unlock and lock.
template <class Section> class VSC_SCOPED_CAPABILITY SectionLock {
  public:
    explicit SectionLock(Section &section) VSC_ACQUIRE(section) : m_section(section)
    {
        m_section.lock();
    }
    ~SectionLock() VSC_RELEASE()
    {
        if (m_held)
            m_section.unlock();
    }
    SectionLock(const SectionLock &) = delete;
    SectionLock &operator=(const SectionLock &) = delete;

    void lock() VSC_ACQUIRE()
    {
        m_section.lock();
        m_held = true;
    }
    void unlock() VSC_RELEASE()
    {
        m_held = false;
        m_section.unlock();
    }

  private:
    Section &m_section;
    bool m_held = true;
};

/// Lets threads wait until something holds that a CriticalSection guards.
class Condition {
  public:
    void NotifyAll()
    {
        m_condition.notify_all();
        if (TimeSource *source = CurrentTimeSource())
            source->Wake(this);
    }

    /// Waits with the lock released until `predicate` holds; false when `deadline` passed first.
    /// Whoever calls holds the lock before and afterwards, and so does the predicate.
    template <class Lock, class Predicate>
    bool WaitUntil(Lock &lock, Clock::time_point deadline, Predicate predicate) VSC_NO_ANALYSIS
    {
        TimeSource *source = CurrentTimeSource();
        if (!source)
            return WaitOnSystemClock(lock, deadline, predicate);
        while (!predicate()) {
            if (Clock::now() >= deadline)
                return false;
            const uint64_t seen = source->WakeCount(this);
            lock.unlock();
            source->WaitForWake(this, seen, deadline.time_since_epoch().count());
            lock.lock();
        }
        return true;
    }

    template <class Lock, class Predicate> void Wait(Lock &lock, Predicate predicate)
    {
        (void)WaitUntil(lock, kNever, predicate); // never comes back without the predicate
    }

  private:
    template <class Lock, class Predicate>
    bool WaitOnSystemClock(Lock &lock, Clock::time_point deadline, Predicate predicate)
    {
        if (deadline == kNever) {
            m_condition.wait(lock, predicate);
            return true;
        }
        return m_condition.wait_until(
            lock, std::chrono::steady_clock::time_point(deadline.time_since_epoch()), predicate);
    }

    std::condition_variable_any m_condition;
};

/// "Go on" between a thread and the one that ends it: the thread runs and sleeps as long as the
/// flag is set; clearing it ends a sleep at once.
class RunFlag {
  public:
    operator bool() const { return m_running.load(std::memory_order_acquire); }

    void Set() { m_running.store(true, std::memory_order_release); }

    void Clear()
    {
        {
            const SectionLock lock(m_section);
            m_running.store(false, std::memory_order_release);
        }
        m_cleared.NotifyAll();
    }

    /// Sleeps while the flag is set; false when it was cleared.
    bool SleepFor(std::chrono::milliseconds time)
    {
        SectionLock lock(m_section);
        return !m_cleared.WaitUntil(lock, Clock::now() + time, [this] { return !*this; });
    }

  private:
    std::atomic<bool> m_running{false};
    CriticalSection m_section;
    Condition m_cleared;
};

/// A thread that can be started again after it was joined, and that a TimeSource knows of.
class Thread {
  public:
    Thread() = default;
    Thread(const Thread &) = delete;
    Thread &operator=(const Thread &) = delete;
    ~Thread() { Join(); }

    /// Joins the previous run, then starts `body`; false when the system has no thread to give. A
    /// body that throws has ended.
    bool Start(std::function<void()> body);

    /// Whether there is a run that was not joined yet.
    bool Started() const { return m_thread.joinable(); }

    /// Waits for the end of the thread. Does nothing when it was not started.
    void Join();

  private:
    std::thread m_thread;
    std::atomic<bool> m_finished{false};
};

} // namespace vsccam
