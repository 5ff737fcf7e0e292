#pragma once

#include "base/guarded.h"
#include "base/sync.h"
#include "usb/request_budget.h"

#include <cstdint>

namespace vsccam {

/// The temperature of a sensor as it was read last, in degrees Celsius.
class TemperatureReading {
  public:
    float Celsius() const { return m_celsius; }
    /// So far: who waits for a fresh one sees it here.
    uint32_t Readings() const { return m_readings; }

    /// What stands for a failure is no reading.
    void Store(float celsius)
    {
        m_celsius = celsius;
        ++m_readings;
    }

  private:
    Shared<float> m_celsius;
    Shared<uint32_t> m_readings;
};

/// What a cooler is set to, and what it does.
struct CoolerState {
    float powerPercent = 0;
    bool on = false; // regulates
    bool fanOn = false;
    int targetC = 0;
};

/// What a cooled camera owns; CCameraCool works it. It stands in the base, which the camera is
/// destroyed as.
struct CoolerParts {
    RunFlag running;
    Thread thread; // started and joined by CCameraCool
    /// Held while drive, fan and regulation change, over their requests. Locked after Programming,
    /// if both are.
    RequestSection section;
    Guarded<CoolerState> state;
};

} // namespace vsccam
