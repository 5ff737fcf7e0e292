#include "base/clock.h"

#include "base/time_source.h"

#include <atomic>
#include <ctime>
#include <thread>

namespace vsccam {

namespace {
std::atomic<TimeSource *> g_timeSource{nullptr};
} // namespace

void UseTimeSource(TimeSource *source)
{
    g_timeSource.store(source, std::memory_order_release);
}

TimeSource *CurrentTimeSource()
{
    return g_timeSource.load(std::memory_order_acquire);
}

Clock::time_point Clock::now()
{
    if (TimeSource *source = CurrentTimeSource())
        return time_point(duration(source->NowNs()));
    return time_point(std::chrono::steady_clock::now().time_since_epoch());
}

uint32_t GetTickCount()
{
    const auto sinceStart = Clock::now().time_since_epoch();
    return static_cast<uint32_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(sinceStart).count());
}

uint32_t WallClockSecond()
{
    if (!CurrentTimeSource())
        return static_cast<uint32_t>(std::time(nullptr));
    const auto sinceStart = Clock::now().time_since_epoch(); // a time line has one clock only
    return static_cast<uint32_t>(
        std::chrono::duration_cast<std::chrono::seconds>(sinceStart).count());
}

void SleepFor(std::chrono::milliseconds time)
{
    TimeSource *source = CurrentTimeSource();
    if (!source) {
        std::this_thread::sleep_for(time);
        return;
    }
    const auto deadline = (Clock::now() + time).time_since_epoch().count();
    while (source->NowNs() < deadline)
        source->WaitForWake(nullptr, source->WakeCount(nullptr), deadline);
}

} // namespace vsccam
