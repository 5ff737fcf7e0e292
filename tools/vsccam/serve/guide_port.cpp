#include "serve/guide_port.h"

#include <algorithm>

namespace vsctool::serve {
GuidePort::GuidePort()
{
    for (Axis &axis : m_axes)
        axis.thread = std::thread([this, &axis] { Work(axis); });
}

GuidePort::~GuidePort()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    for (Axis &axis : m_axes)
        axis.thread.join();
}

void GuidePort::SwitchAllOff()
{
    for (const GuideD direction : {GUIDE_NORTH, GUIDE_SOUTH, GUIDE_EAST, GUIDE_WEST})
        pulseGuide(direction, 0);
}

bool GuidePort::Pulse(GuideD direction, milliseconds length)
{
    {
        const std::lock_guard lock(m_mutex);
        std::optional<Pulsing> &pulse = m_axes.at(AxisOf(direction)).pulse;
        if (pulse)
            return false;
        length = std::clamp(length, milliseconds(0), kLongest);
        pulse = {direction, length, Clock::now() + length};
    }
    m_changed.notify_all();
    return true;
}

std::optional<GuidePort::milliseconds> GuidePort::Left(GuideD direction) const
{
    const std::lock_guard lock(m_mutex);
    const std::optional<Pulsing> &pulse = m_axes.at(AxisOf(direction)).pulse;
    if (!pulse || pulse->direction != direction)
        return std::nullopt;
    return std::max(std::chrono::ceil<milliseconds>(pulse->end - Clock::now()), milliseconds(0));
}

bool GuidePort::IsPulsing() const
{
    const std::lock_guard lock(m_mutex);
    return std::ranges::any_of(m_axes, [](const Axis &axis) { return axis.pulse.has_value(); });
}

void GuidePort::Work(Axis &axis)
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [&] { return m_ending || axis.pulse; });
        if (m_ending)
            return;
        const Pulsing pulse = *axis.pulse;
        lock.unlock();
        pulseGuide(pulse.direction, static_cast<int>(pulse.length.count()));
        lock.lock();
        axis.pulse.reset();
    }
}

} // namespace vsctool::serve
