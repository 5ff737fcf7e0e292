#pragma once

#include "camera/camera.h"

namespace vscsim {

/// Temperature of the sensor: it follows what ambient air, the cooler's drive code and the fan
/// allow, with one time constant.
class Climate {
  public:
    explicit Climate(bool cooled) : m_cooled(cooled) {}

    void SetDriveCode(uint16_t code, Time now);
    void SetFan(bool on, Time now);
    double Celsius(Time now);

  private:
    double Equilibrium() const;

    bool m_cooled;
    uint16_t m_driveCode = 255; // 255: no current
    bool m_fan = false;
    double m_celsius = 20.0;
    Time m_at{};
};

} // namespace vscsim
