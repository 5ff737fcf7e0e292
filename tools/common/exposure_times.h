#pragma once

#include "library_lines.h"
#include "units.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace vsctool {

/// When a single exposure was exposed, from what the library says while it makes one. Nobody tells
/// when a sensor that times itself begins: that follows from when it was started and when its frame
/// was there, as it exposes for one period and is read out in the next.
class ExposureTimes {
  public:
    using Clock = std::chrono::steady_clock;

    struct Account {
        UtcTime start;
        Microseconds uncertainty{}; // of the start, either way
        Microseconds planned{};
        std::optional<Microseconds> measured; // only where the library times the exposure
    };

    /// To be made right before startExposure.
    ExposureTimes() : m_asked(Clock::now()) {}

    void Hear(const std::vector<LibraryLine> &lines);

    /// Frames that could not be used, and were taken anew.
    int DroppedFrames() const { return m_dropped; }

    /// @param set  exposure of the open camera
    Account Tell(const std::string &model, Microseconds set) const;

  private:
    Clock::time_point m_asked;
    std::optional<Clock::time_point> m_begun;   // the sensor is started after that
    std::optional<Clock::time_point> m_opening; // the request that opens the gate is sent after
    std::optional<Clock::time_point> m_opened;  // that, and answered before this
    std::optional<Clock::time_point> m_whole;   // the frame was there
    std::optional<Microseconds> m_measured;
    int m_dropped = 0;
};

/// By the clock of now: one that is set right meanwhile does not tear exposures apart.
UtcTime UtcOf(std::chrono::steady_clock::time_point time);

} // namespace vsctool
