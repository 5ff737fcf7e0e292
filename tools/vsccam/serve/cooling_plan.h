#pragma once

#include "units.h"

#include <chrono>
#include <deque>
#include <optional>

namespace vsctool::serve {

/// What the cooler is to do.
struct CoolingWish {
    bool on = true;
    int targetC = 0;                     // while it is on
    std::optional<double> rampCPerMin{}; // nothing: at once; switched off, by the usual ramp
    bool atOnce = false;                 // switched off without warming
};

struct CoolingReading {
    UtcTime at;
    double celsius = 0;
    int targetC = 0;
    int powerPerCent = 0;
};

/// The cooler of the open camera on its way to where it is to be; of the camera's thread.
class CoolingPlan {
  public:
    using Clock = std::chrono::steady_clock;

    /// Throws Failure for models without a cooler, and targets that they do not reach.
    void Set(const CoolingWish &wish, double nowC);
    /// Somebody else sets the cooler.
    void Forget() { m_ramp.reset(); }

    /// To be called now and then, kCoolingInterval apart.
    void Step(double nowC);
    /// The camera was opened anew: the cooler is to be what it was.
    void Resume(double nowC);

    bool IsWarming() const { return m_ramp && m_ramp->endsOff; }
    bool IsOnRamp() const { return m_ramp.has_value(); }
    const std::deque<CoolingReading> &History() const { return m_history; }

  private:
    struct Ramp {
        double fromC = 0;
        double toC = 0;
        double cPerMin = 0;
        Clock::time_point begun;
        bool endsOff = false; // at its end, or when no power is needed any more
    };

    void Follow(double nowC);

    std::optional<Ramp> m_ramp;
    std::optional<int> m_regulatesAt; // what was asked for last; nothing: off
    std::deque<CoolingReading> m_history;
};

} // namespace vsctool::serve
