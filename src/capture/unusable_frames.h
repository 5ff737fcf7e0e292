#pragma once

#include "base/clock.h"

#include <algorithm>
#include <chrono>

namespace vsccam {

/// Counts frames that arrive but cannot be used. After a while only a reset of the device can help.
/// A reset that does not help is repeated less and less often.
class UnusableFrames {
  public:
    void Good()
    {
        m_inRow = 0;
        m_pause = kShortestPause;
    }

    /// Counts one more. @return whether the device should be reset now
    bool CallsForReset(Clock::time_point readBegan, Clock::time_point now)
    {
        if (m_inRow++ == 0)
            m_since = readBegan;
        if (m_inRow < kEnough || now - m_since < m_pause)
            return false;
        m_inRow = 0;
        m_pause = std::min(m_pause * 2, kLongestPause);
        return true;
    }

  private:
    static constexpr int kEnough = 8;
    static constexpr std::chrono::seconds kShortestPause{2};
    static constexpr std::chrono::seconds kLongestPause{60};

    int m_inRow = 0;
    Clock::time_point m_since{};
    std::chrono::seconds m_pause = kShortestPause;
};

} // namespace vsccam
