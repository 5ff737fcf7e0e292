#pragma once

#include "base/guarded.h"
#include "core/settings.h"
#include "usb/camera_fx3.h"

#include <cstdint>
#include <functional>

namespace vsccam {

/// Who programs a camera, and how far that has come: sequences that store what is set, compute what
/// the registers get and write them come one after the other. The threads of the host, the capture
/// worker and the automatics all program. Values in Settings are stored and read without waiting
/// for it; requests are sent within it only, never within Guarded::With.
class Programming {
  public:
    Programming(CCameraFX3 &camera, Guarded<Settings> &settings)
        : m_camera(camera), m_settings(settings)
    {
    }

    /// One sequence. Sequences contain each other on one thread; the outermost one ends with what
    /// the sensor exposes by from then on, see Settings::inForce.
    class Scope {
      public:
        explicit Scope(Programming &programming);
        ~Scope();
        Scope(const Scope &) = delete;
        Scope &operator=(const Scope &) = delete;

      private:
        Programming &m_owner;
    };

    /// Settings::frameChanges, in a moment in which nobody programs: none of them is half made.
    uint32_t CompleteFrameChanges();

    /// Whether a request that should have set the camera up got lost, and not everything was
    /// programmed since: no frame of it may be used.
    bool IsHalfDone() const { return m_camera.LostSetUps() != m_lostSetUpsMended; }
    /// Runs `program`, which sets the camera up as a whole, until no request of it got lost; false
    /// when it fails or the requests may lose no more time.
    bool Whole(const std::function<bool()> &program);

    // For who is within a sequence.

    void CountFrameChange();
    /// Both are stored before the camera is told. Gates time long exposures, whatever the frame
    /// time is: then it is no change.
    void SetFrameTime(int us);
    void SetLongExposure(bool on) { m_longExposure = on; }
    bool LongExposure() const { return m_longExposure; }
    int FrameTimeUs() const { return m_frameTimeUs; }

  private:
    CCameraFX3 &m_camera;
    Guarded<Settings> &m_settings;
    Shared<int> m_lostSetUpsMended; // of CCameraFX3::LostSetUps

    RequestSection m_section; // held over the requests of a sequence; guards the next three
    int m_depth = 0;          // of sequences in each other
    int m_frameTimeUs = 0;
    bool m_longExposure = false;
};

} // namespace vsccam
