#pragma once

#include "camera/camera.h"

#include <array>
#include <optional>

namespace vscsim {

/// A line of the guide port that was on.
struct Pulse {
    int line = 0;
    Time length{};
};

/// The four lines of the guide port and the mount behind them. Lines 0 and 1 move the picture left
/// and right, 2 and 3 up and down; which is which on a real mount is a matter of its cable.
class GuidePort {
  public:
    static constexpr int kLines = 4;

    /// @return the pulse that ends
    std::optional<Pulse> Switch(int line, bool on, Time now);

    struct Shift {
        double x = 0; // pixels
        double y = 0;
        bool operator==(const Shift &) const = default;
    };
    Shift ShiftAt(Time now);

  private:
    std::array<bool, kLines> m_on{};
    std::array<Time, kLines> m_since{}; // of those that are
    Shift m_shift;
    Time m_at{};
};

} // namespace vscsim
