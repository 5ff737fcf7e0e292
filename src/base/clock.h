#pragma once

#include <chrono>
#include <cstdint>

namespace vsccam {

/// The monotonic clock that all waits and statistics use: setting the wall clock changes none.
struct Clock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<Clock, duration>;
    static constexpr bool is_steady = true;

    static time_point now();
};

/// A deadline that never comes.
inline constexpr Clock::time_point kNever = Clock::time_point::max();

/// Milliseconds of the monotonic clock in 32 bits. It wraps every 49.7 days: only unsigned
/// differences mean anything.
uint32_t GetTickCount();

/// The second that the wall clock shows: a number that differs from run to run. No wait may depend
/// on it.
uint32_t WallClockSecond();

/// Suspends the calling thread. Sleeps that a stop must end belong to RunFlag::SleepFor.
void SleepFor(std::chrono::milliseconds time);

} // namespace vsccam
