#include "core/guide_port.h"

#include "base/debug_print.h"
#include "usb/requests.h"

#include <chrono>

namespace vsccam {

namespace {

constexpr bool IsLine(int line)
{
    return line >= 0 && line <= 3;
}

} // namespace

void GuidePort::Pulse(int line, int ms)
{
    if (!IsLine(line))
        return;
    OutputDbgPrint("PulseGuide Direction:%d time:%d\n", line, ms);
    const Turns::Turn turn(m_axes[line / 2]);
    if (!turn) // the camera is being closed
        return;
    if (ms > 0) {
        BeginPulse(line);
        (void)m_guiding.SleepFor(std::chrono::milliseconds(ms)); // shorter when it is to end
    }
    // Is sent also when "on" seemed to fail, because a line that stays on drives the mount away.
    EndPulse(line);
}

/// Does nothing after the last "off" of a camera that is being closed.
void GuidePort::BeginPulse(int line)
{
    const SectionLock lock(m_sections[line / 2]);
    if (!m_guiding)
        return;
    m_lineOn[line] = true;
    (void)m_camera.SendCMD(request::kGuideOn, static_cast<uint16_t>(line), 0, false, nullptr, 0);
}

void GuidePort::EndPulse(int line)
{
    const SectionLock lock(m_sections[line / 2]);
    (void)m_camera.SendOff(request::kGuideOff, static_cast<uint16_t>(line));
    m_lineOn[line] = false;
}

void GuidePort::SwitchOn(int line)
{
    if (!IsLine(line))
        return;
    OutputDbgPrint("PulseGuide Direction On:%d", line);
    (void)m_camera.SendCMD(request::kGuideOn, static_cast<uint16_t>(line), 0, false, nullptr, 0);
}

void GuidePort::SwitchOff(int line)
{
    if (!IsLine(line))
        return;
    OutputDbgPrint("PulseGuide Direction Off:%d", line);
    (void)m_camera.SendOff(request::kGuideOff, static_cast<uint16_t>(line));
}

void GuidePort::EndPulses()
{
    for (Turns &axis : m_axes)
        axis.Close();
    m_guiding.Clear();
}

void GuidePort::LeaveSafe()
{
    for (int line = 0; line < kLines; ++line)
        if (m_lineOn[line])
            EndPulse(line);
}

} // namespace vsccam
