#pragma once

#include "camera/camera.h"

#include <array>

namespace vscsim {

/// The four lines of the guide port and the mount behind them. Lines 0 and 1 move the picture left
/// and right, 2 and 3 up and down; which is which on a real mount is a matter of its cable.
class GuidePort {
  public:
    static constexpr int kLines = 4;

    void Switch(int line, bool on, Time now);

    struct Shift {
        double x = 0; // pixels
        double y = 0;
        bool operator==(const Shift &) const = default;
    };
    Shift ShiftAt(Time now);

  private:
    std::array<bool, kLines> m_on{};
    Shift m_shift;
    Time m_at{};
};

} // namespace vscsim
