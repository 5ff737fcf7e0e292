#pragma once

#include "base/clock.h"
#include "image/exposure_setting.h"

#include <chrono>

namespace vsccam {

/// When a single exposure has to have ended, whatever the camera sends: five seconds and four frame
/// times after its own time, and a little earlier, because a request may be under way.
class ExposureDeadline {
  public:
    explicit ExposureDeadline(Clock::time_point now) : m_began(now) {}

    /// Another exposure was set, which begins anew.
    void BeginAnew(Clock::time_point now) { m_began = now; }

    /// Reckons with an exposure of this setting.
    void Follow(const ExposureSetting &exposure)
    {
        using std::chrono::microseconds;
        m_latestBegin = m_began + kGrace + kFrames * microseconds(exposure.frameTimeUs);
        m_end = m_latestBegin + microseconds(exposure.us);
    }
    /// Whether one that begins only now would end too late.
    bool TooLate(Clock::time_point now) const { return now >= m_latestBegin; }
    Clock::time_point End() const { return m_end; }

  private:
    static constexpr std::chrono::milliseconds kGrace{4'000};
    static constexpr int kFrames = 4;

    Clock::time_point m_began;
    Clock::time_point m_latestBegin{};
    Clock::time_point m_end{};
};

} // namespace vsccam
