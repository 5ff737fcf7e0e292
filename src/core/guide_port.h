#pragma once

#include "base/sync.h"
#include "base/turns.h"
#include "usb/camera_fx3.h"

namespace vsccam {

/// The four guide lines of a camera. Lines 0 and 1 are opposite, and so are 2 and 3: of each axis
/// one line at most is on. Pulses run on the threads of the host that send them, those of one axis
/// in turn; they delay nothing else. Other lines are ignored.
class GuidePort {
  public:
    explicit GuidePort(CCameraFX3 &camera) : m_camera(camera) { m_guiding.Set(); }

    /// Switches a line on for so long. A pulse of no length switches it off alone: it may be on
    /// from a program that was killed.
    void Pulse(int line, int ms);
    void SwitchOn(int line);
    void SwitchOff(int line);

    /// Ends all pulses, and grants none from now on. Waits for nobody.
    void EndPulses();
    /// Switches off what a pulse that has not ended yet has switched on.
    void LeaveSafe();

  private:
    static constexpr int kLines = 4;
    static constexpr int kAxes = kLines / 2;

    void BeginPulse(int line);
    void EndPulse(int line);

    CCameraFX3 &m_camera;
    Turns m_axes[kAxes];
    RunFlag m_guiding;                 // cleared to end the pulses
    CriticalSection m_sections[kAxes]; // held while a pulse switches a line of the axis
    Shared<bool> m_lineOn[kLines];     // by a pulse
};

} // namespace vsccam
