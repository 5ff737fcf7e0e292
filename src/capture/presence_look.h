#pragma once

#include "base/clock.h"

#include <chrono>

namespace vsccam {

/// A request tells that the camera was unplugged. While none is sent, the list of devices is looked
/// at now and then.
class PresenceLook {
  public:
    static constexpr std::chrono::milliseconds kInterval{400};

    /// Whether it is time for a look; then the next one is an interval later.
    bool IsDue(Clock::time_point now)
    {
        if (now < m_next)
            return false;
        m_next = now + kInterval;
        return true;
    }

  private:
    Clock::time_point m_next{};
};

} // namespace vsccam
