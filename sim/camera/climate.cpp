#include "camera/climate.h"

#include <algorithm>
#include <cmath>

namespace vscsim {
namespace {

constexpr double kTimeConstantS = 60.0; // well below 2 degrees a second at any change of drive
constexpr double kDeepestC = 38.0;      // below ambient, at full current with the fan on
constexpr double kWithoutFan = 0.5;     // of that, when the warm side keeps its heat
constexpr int kNoCurrentCode = 255;
constexpr int kFullCurrentCode = 40;

} // namespace

double Climate::Equilibrium() const
{
    if (!m_cooled)
        return m_ambientC;
    const int code = std::clamp<int>(m_driveCode, kFullCurrentCode, kNoCurrentCode);
    const double drive = static_cast<double>(kNoCurrentCode - code) /
                         static_cast<double>(kNoCurrentCode - kFullCurrentCode);
    return m_ambientC - kDeepestC * drive * (m_fan ? 1.0 : kWithoutFan);
}

double Climate::Celsius(Time now)
{
    if (now > m_at) {
        const double seconds = std::chrono::duration<double>(now - m_at).count();
        const double target = Equilibrium();
        m_celsius = target + (m_celsius - target) * std::exp(-seconds / kTimeConstantS);
        m_at = now;
    }
    return m_celsius;
}

void Climate::SetDriveCode(uint16_t code, Time now)
{
    (void)Celsius(now); // what was before ends here
    m_driveCode = code;
}

void Climate::SetFan(bool on, Time now)
{
    (void)Celsius(now);
    m_fan = on;
}

} // namespace vscsim
