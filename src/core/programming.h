#pragma once

#include "base/guarded.h"
#include "core/settings.h"
#include "usb/camera_fx3.h"

#include <cstdint>
#include <functional>

namespace vsccam {

/// The right to program a camera, and how far that has come. A sequence stores what is set,
/// computes what the registers get, and writes them. Sequences come one after the other. The
/// threads of the host, the capture worker and the automatics all program. Values in Settings are
/// stored and read without waiting for it; requests are sent within it only, never within
/// Guarded::With.
class VSC_CAPABILITY Programming {
  public:
    Programming(CCameraFX3 &camera, Guarded<Settings> &settings)
        : m_camera(camera), m_settings(settings)
    {
    }

    /// One sequence. Sequences contain each other on one thread; the outermost one ends with what
    /// the sensor exposes by from then on, see Settings::inForce.
    class VSC_SCOPED_CAPABILITY Scope {
      public:
        explicit Scope(Programming &programming) VSC_ACQUIRE(programming);
        ~Scope() VSC_RELEASE();
        Scope(const Scope &) = delete;
        Scope &operator=(const Scope &) = delete;

      private:
        Programming &m_owner;
    };

    /// Settings::frameChanges at a moment when nobody programs, so that no change is half made.
    uint32_t CompleteFrameChanges();

    /// Whether a request that sets the camera up got lost, and the camera was not programmed as a
    /// whole since. No frame of such a camera may be used.
    bool IsHalfDone() const { return m_camera.LostSetUps() != m_lostSetUpsMended; }
    /// Runs `program`, which sets the camera up as a whole, again until none of its requests got
    /// lost. False when it fails, or when the requests may take no more time.
    bool Whole(const std::function<bool()> &program);

    // For who is within a sequence.

    void CountFrameChange() VSC_REQUIRES(this);
    /// Both are stored before the camera is told. Gates time long exposures, whatever the frame
    /// time is: then it is no change.
    void SetFrameTime(int us) VSC_REQUIRES(this);
    void SetLongExposure(bool on) VSC_REQUIRES(this) { m_longExposure = on; }
    bool LongExposure() const VSC_REQUIRES(this) { return m_longExposure; }
    int FrameTimeUs() const VSC_REQUIRES(this) { return m_frameTimeUs; }

  private:
    CCameraFX3 &m_camera;
    Guarded<Settings> &m_settings;
    Shared<int> m_lostSetUpsMended; // of CCameraFX3::LostSetUps

    RequestSection m_section;             // held by a Scope, over the requests of a sequence
    int m_depth VSC_GUARDED_BY(this) = 0; // of sequences in each other
    int m_frameTimeUs VSC_GUARDED_BY(this) = 0;
    bool m_longExposure VSC_GUARDED_BY(this) = false;
};

} // namespace vsccam
