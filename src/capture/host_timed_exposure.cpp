#include "capture/host_timed_exposure.h"

#include "base/debug_print.h"
#include "capture/captured_camera.h"

#include <algorithm>

namespace vsccam {

using std::chrono::milliseconds;

HostTimedExposure::End HostTimedExposure::Expose(uint32_t us, const LongExposurePlan &plan,
                                                 const std::function<bool()> &isOfNoUse)
{
    OutputDbgPrint("Begin long exp %d\n", static_cast<int>(us / 1000));
    const auto opened = Clock::now();
    m_sensor.OpenExposureGate();
    OutputDbgPrint("wait:%ld\n", plan.printedWaitMs);
    const End end = Sleep(us, plan, isOfNoUse);
    if (end == End::CameraGone)
        return end;
    m_sensor.CloseExposureGate();
    const auto exposed = floor<milliseconds>(Clock::now() - opened) + plan.beside;
    OutputDbgPrint("exposed:%d ms\n", static_cast<int>(exposed.count())); // programs read it
    return end;
}

HostTimedExposure::End HostTimedExposure::Sleep(uint32_t us, const LongExposurePlan &plan,
                                                const std::function<bool()> &isOfNoUse)
{
    auto due = Clock::now() + plan.rest; // what makes one sleep longer makes the next one shorter
    bool attached = SleepWhileAttached(due);
    for (int i = 0; i < plan.steps && attached && m_capture.GoOn(); ++i) {
        if (m_capture.Camera().SettingsOfNow().exposure.us != us || isOfNoUse())
            return End::CutShort;
        due += plan.step;
        attached = SleepWhileAttached(due);
    }
    return attached ? End::InTime : End::CameraGone;
}

/// @return false when the camera is gone
bool HostTimedExposure::SleepWhileAttached(Clock::time_point end)
{
    while (Clock::now() < end && m_capture.GoOn()) {
        const auto left = ceil<milliseconds>(end - Clock::now());
        (void)m_capture.SleepFor(std::min(left, PresenceLook::kInterval));
        if (m_presence.IsDue(Clock::now()) && !m_capture.Usb().IsAttached())
            return false;
    }
    return true;
}

} // namespace vsccam
