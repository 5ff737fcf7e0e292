#pragma once

#include <vsccam.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace vsctool::serve {

/// The two axes of the guide port of the open camera. A pulse on one waits for no pulse on the
/// other, nor for anything else that the camera does; it begins at once or not at all, as one that
/// comes late moves the mount when nobody wants it any more.
class GuidePort {
  public:
    using milliseconds = std::chrono::milliseconds;
    static constexpr milliseconds kLongest = std::chrono::minutes(10);

    GuidePort();
    /// Waits for the end of pulses: closing the camera ends them at once.
    ~GuidePort();
    GuidePort(const GuidePort &) = delete;
    GuidePort &operator=(const GuidePort &) = delete;

    /// A program that was killed may have left a line on.
    static void SwitchAllOff();

    /// Of any thread; does not wait. @return false while a pulse is under way on that axis
    bool Pulse(GuideD direction, milliseconds length);

    /// How long a line stays on; nothing when it is off.
    std::optional<milliseconds> Left(GuideD direction) const;
    bool IsPulsing() const;

  private:
    using Clock = std::chrono::steady_clock;
    struct Pulsing {
        GuideD direction;
        milliseconds length;
        Clock::time_point end;
    };
    struct Axis {
        std::optional<Pulsing> pulse; // guarded by m_mutex
        std::thread thread;           // Work; ended by m_ending, joined by the destructor
    };
    static size_t AxisOf(GuideD direction) { return static_cast<size_t>(direction) / 2; }

    void Work(Axis &axis);

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ending = false; // guarded by m_mutex
    std::array<Axis, 2> m_axes;
};

/// "north", "south", "east", "west", in the order of their numbers.
inline constexpr const char *kDirections[] = {"north", "south", "east", "west"};

} // namespace vsctool::serve
