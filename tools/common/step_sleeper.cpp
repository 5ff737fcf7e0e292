#include "step_sleeper.h"

#include <algorithm>
#include <chrono>

namespace vsctool {

using Clock = std::chrono::steady_clock;

StepSleeper::StepSleeper(Microseconds total, Microseconds step)
    : m_thread([this, total, step](const std::stop_token &stop) { Sleep(stop, total, step); })
{
}

void StepSleeper::Sleep(const std::stop_token &stop, Microseconds total, Microseconds step)
{
    std::unique_lock lock(m_mutex);
    const auto begin = Clock::now();
    for (Microseconds left = total; left > Microseconds(0); left -= step) {
        const auto end = Clock::now() + std::min(left, step);
        m_changed.wait_until(lock, stop, end, [] { return false; });
        if (stop.stop_requested())
            return;
    }
    m_slept = std::chrono::duration_cast<Microseconds>(Clock::now() - begin);
    m_changed.notify_all();
}

std::optional<Microseconds> StepSleeper::Slept(Microseconds patience)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, patience, [this] { return m_slept.has_value(); });
    return m_slept;
}

} // namespace vsctool
