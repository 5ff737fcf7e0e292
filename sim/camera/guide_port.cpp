#include "camera/guide_port.h"

namespace vscsim {
namespace {

constexpr double kPixelsPerSecond = 5.0; // about half the sidereal rate at half a metre

} // namespace

GuidePort::Shift GuidePort::ShiftAt(Time now)
{
    if (now > m_at) {
        const double pixels = kPixelsPerSecond * std::chrono::duration<double>(now - m_at).count();
        m_shift.x += pixels * (static_cast<int>(m_on[1]) - static_cast<int>(m_on[0]));
        m_shift.y += pixels * (static_cast<int>(m_on[3]) - static_cast<int>(m_on[2]));
        m_at = now;
    }
    return m_shift;
}

std::optional<Pulse> GuidePort::Switch(int line, bool on, Time now)
{
    (void)ShiftAt(now); // what was before ends here
    const auto i = static_cast<size_t>(line);
    const bool ends = m_on.at(i) && !on;
    if (on && !m_on.at(i))
        m_since.at(i) = now;
    m_on.at(i) = on;
    if (!ends)
        return std::nullopt;
    return Pulse{.line = line, .length = now - m_since.at(i)};
}

} // namespace vscsim
