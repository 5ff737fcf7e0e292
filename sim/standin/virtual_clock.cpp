#include "standin/virtual_clock.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace vscsim {

using namespace std::chrono_literals;

namespace {

// A wait without end still looks around that often; it also keeps a 32-bit time_t from overflowing.
constexpr Time kLongestSystemWait = 1h;
constexpr size_t kUsualThreads = 64;
constexpr Time kShortestSystemSleep = 100us;
// Real time without any progress after which the clock says who runs and who waits.
constexpr auto kStallReport = 60s;

double Seconds(Time time)
{
    return std::chrono::duration<double>(time).count();
}

} // namespace

Time SteadyClock::Now()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

uint64_t SteadyClock::WakeCount()
{
    const std::lock_guard lock(m_mutex);
    return m_wakes;
}

void SteadyClock::WaitForWake(uint64_t seen, Time deadline, const char * /*what*/)
{
    if (deadline < Now() + kShortestSystemSleep) {
        std::this_thread::yield(); // a sleep would take far longer than asked
        return;
    }
    const Time until = std::min(deadline, Now() + kLongestSystemWait);
    std::unique_lock lock(m_mutex);
    m_woken.wait_until(lock, std::chrono::steady_clock::time_point(until),
                       [&] { return m_wakes != seen; });
}

void SteadyClock::Wake()
{
    const std::lock_guard lock(m_mutex);
    ++m_wakes;
    m_woken.notify_all();
}

struct VirtualClock::Waiter {
    const Channel *channel;
    Time deadline;
    const char *what;
    pthread_t thread = pthread_self();
    bool running = false;
    std::condition_variable resumed{};
};

VirtualClock::VirtualClock(Time start, Time limit) : m_limit(start + limit), m_now(start.count())
{
    m_waiters.reserve(kUsualThreads); // a wait is not to fail
}

void VirtualClock::Channel::WaitForWake(uint64_t seen, Time deadline, const char *what)
{
    std::unique_lock lock(m_clock.m_mutex);
    if (m_wakes != seen || Now() >= deadline)
        return;
    Waiter self{.channel = this, .deadline = deadline, .what = what};
    m_clock.m_waiters.push_back(&self);
    m_clock.JumpWhenAllWait();
    while (!self.resumed.wait_for(lock, kStallReport, [&] { return self.running; }))
        m_clock.Report("a thread runs, or blocks outside of the clock, for a minute");
}

void VirtualClock::Channel::Wake()
{
    const std::lock_guard lock(m_clock.m_mutex);
    m_wakes.fetch_add(1, std::memory_order_release);
    m_clock.ResumeIf([this](const Waiter &waiter) { return waiter.channel == this; });
}

void VirtualClock::ThreadStarts()
{
    const std::lock_guard lock(m_mutex);
    ++m_threads;
}

void VirtualClock::ThreadEnds()
{
    const std::lock_guard lock(m_mutex);
    --m_threads;
    JumpWhenAllWait();
}

void VirtualClock::JumpWhenAllWait()
{
    if (m_waiters.empty() || m_waiters.size() < m_threads)
        return;
    if (m_waiters.size() > m_threads)
        Fail("a thread waits that is not registered");
    const Time next =
        (*std::min_element(m_waiters.begin(), m_waiters.end(), [](Waiter *a, Waiter *b) {
            return a->deadline < b->deadline;
        }))->deadline;
    if (next == kNever)
        Fail("every thread waits and none has a deadline");
    if (next > m_limit)
        Fail("time runs away");
    m_now.store(next.count(), std::memory_order_relaxed);
    ResumeIf([next](const Waiter &waiter) { return waiter.deadline <= next; });
}

template <class Predicate> void VirtualClock::ResumeIf(Predicate predicate)
{
    std::erase_if(m_waiters, [&](Waiter *waiter) {
        if (!predicate(*waiter))
            return false;
        waiter->running = true;
        waiter->resumed.notify_one();
        return true;
    });
}

void VirtualClock::Report(const char *reason) const
{
    std::fprintf(stderr, "virtual clock at %.6f s: %s; %zu of %zu threads wait:\n", Seconds(Now()),
                 reason, m_waiters.size(), m_threads);
    for (const Waiter *waiter : m_waiters) {
        std::array<char, 16> name{};
        (void)pthread_getname_np(waiter->thread, name.data(), name.size()); // empty when it fails
        if (waiter->deadline == kNever)
            std::fprintf(stderr, "  %s: %s, for ever\n", name.data(), waiter->what);
        else
            std::fprintf(stderr, "  %s: %s, until %.6f s\n", name.data(), waiter->what,
                         Seconds(waiter->deadline));
    }
}

void VirtualClock::Fail(const char *reason) const
{
    Report(reason);
    std::abort();
}

ClockedThread::ClockedThread(VirtualClock &clock, std::function<void()> body) : m_end(clock)
{
    clock.ThreadStarts();
    m_thread = std::thread([this, &clock, body = std::move(body)] {
        body();
        m_finished = true;
        m_end.Wake();
        clock.ThreadEnds();
    });
}

void ClockedThread::Join()
{
    if (!m_thread.joinable())
        return;
    for (uint64_t seen = m_end.WakeCount(); !m_finished; seen = m_end.WakeCount())
        m_end.WaitForWake(seen, kNever, "join of a thread");
    m_thread.join();
}

} // namespace vscsim
