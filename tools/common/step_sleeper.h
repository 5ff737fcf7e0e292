#pragma once

#include "units.h"

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

namespace vsctool {

/// Sleeps the steps of an exposure beside the library, which tells when it opens an exposure but
/// not when it closes it. What a busy machine adds to each sleep, or a suspended one to all, it
/// adds to these as well.
class StepSleeper {
  public:
    StepSleeper(Microseconds total, Microseconds step);

    /// How long all steps took; nothing when they are not over within `patience`. On a busy machine
    /// they may end a little after the library's.
    std::optional<Microseconds> Slept(Microseconds patience);

  private:
    void Sleep(const std::stop_token &stop, Microseconds total, Microseconds step);

    std::mutex m_mutex;
    std::condition_variable_any m_changed;
    std::optional<Microseconds> m_slept; // guarded by m_mutex
    std::jthread m_thread;               // stopped and joined by its destructor, which comes first
};

} // namespace vsctool
