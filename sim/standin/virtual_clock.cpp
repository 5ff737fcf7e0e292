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

VirtualClock::VirtualClock(Time start, Time limit, std::optional<uint64_t> seed)
    : m_limit(start + limit), m_now(start.count()), m_inTurn(seed.has_value()),
      m_random(static_cast<std::minstd_rand::result_type>(seed.value_or(0)))
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
    m_clock.m_turnTaken = false;
    m_clock.Wait(lock, self);
}

void VirtualClock::Channel::Wake()
{
    const std::lock_guard lock(m_clock.m_mutex);
    m_wakes.fetch_add(1, std::memory_order_release);
    m_clock.ResumeIf([this](const Waiter &waiter) { return waiter.channel == this; });
}

/// Until it is resumed.
void VirtualClock::Wait(std::unique_lock<std::mutex> &lock, Waiter &self)
{
    GoOn();
    while (!self.resumed.wait_for(lock, kStallReport, [&] { return self.running; }))
        Report("a thread runs, or blocks outside of the clock, for a minute");
}

/// In turn, threads start one after the other, so that their order is the same each time.
void VirtualClock::ThreadStarts()
{
    std::unique_lock lock(m_mutex);
    m_arrived.wait(lock, [this] { return std::ranges::count(m_ready, nullptr) == 0; });
    if (++m_threads == 1)
        m_turnTaken = true;
    else if (m_inTurn)
        m_ready.push_back(nullptr);
}

void VirtualClock::ThreadDoesNotStart()
{
    const std::lock_guard lock(m_mutex);
    --m_threads;
    if (m_inTurn)
        m_ready.erase(std::ranges::find(m_ready, nullptr));
}

void VirtualClock::ThreadRuns()
{
    if (!m_inTurn)
        return;
    std::unique_lock lock(m_mutex);
    Waiter self{.channel = nullptr, .deadline = kNever, .what = "its first turn"};
    *std::ranges::find(m_ready, nullptr) = &self;
    m_arrived.notify_one();
    Wait(lock, self);
}

void VirtualClock::ThreadEnds()
{
    const std::lock_guard lock(m_mutex);
    --m_threads;
    m_turnTaken = false;
    GoOn();
}

void VirtualClock::Yield()
{
    constexpr uint64_t kOneIn = 4;
    if (!m_inTurn)
        return;
    std::unique_lock lock(m_mutex);
    if (m_ready.empty() || Draw(kOneIn) != 0)
        return;
    Waiter self{.channel = nullptr, .deadline = kNever, .what = "its turn"};
    m_ready.push_back(&self);
    m_turnTaken = false;
    Wait(lock, self);
}

void VirtualClock::GoOn()
{
    JumpWhenAllWait();
    if (m_inTurn)
        GiveTurn();
}

void VirtualClock::GiveTurn()
{
    if (m_turnTaken || m_ready.empty() || std::ranges::count(m_ready, nullptr) != 0)
        return;
    const auto chosen = m_ready.begin() + static_cast<std::ptrdiff_t>(Draw(m_ready.size()));
    (*chosen)->running = true;
    (*chosen)->resumed.notify_one();
    m_ready.erase(chosen);
    m_turnTaken = true;
}

uint64_t VirtualClock::Draw(uint64_t choices)
{
    return m_random() / 7 % choices; // the lowest bits of such a generator repeat soon
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
        if (m_inTurn) {
            m_ready.push_back(waiter);
            return true;
        }
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
        clock.ThreadRuns();
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
