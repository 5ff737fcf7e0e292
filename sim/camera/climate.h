#pragma once

#include "camera/camera.h"

namespace vscsim {

/// Temperature of the sensor: it follows what ambient air, the cooler's drive code and the fan
/// allow, with one time constant.
class Climate {
  public:
    Climate(bool cooled, double ambientC)
        : m_cooled(cooled), m_ambientC(ambientC), m_celsius(ambientC)
    {
    }

    void SetDriveCode(uint16_t code, Time now);
    void SetFan(bool on, Time now);
    double Celsius(Time now);

  private:
    double Equilibrium() const;

    bool m_cooled;
    double m_ambientC;
    uint16_t m_driveCode = 255; // 255: no current
    bool m_fan = false;
    double m_celsius;
    Time m_at{};
};

} // namespace vscsim
