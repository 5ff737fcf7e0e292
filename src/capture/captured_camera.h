#pragma once

#include "image/exposure_setting.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>

namespace vsccam {

/// What is set of a camera, as far as the capture of its frames depends on it. All of one moment.
struct CaptureSettings {
    ExposureSetting exposure; // in force
    int frameBytes = 0;       // of what the camera sends
    int bandwidth = 0;        // in the units of the control
    int lowestBandwidth = 0;
    bool bandwidthAuto = false;
    bool exposureOrGainAuto = false;
    bool whiteBalanceAuto = false;

    /// Whether the thread of the automatics has a use for a frame that was exposed like this.
    bool AutomaticsLookAt(const ExposureSetting &exposedBy) const
    {
        return whiteBalanceAuto || (exposureOrGainAuto && exposedBy.IsShort());
    }
};

/// What a capture needs of the camera beside its USB controller. For the worker.
class CapturedCamera {
  public:
    /// Asked for between frames: waits for nobody who sends requests.
    virtual CaptureSettings SettingsOfNow() = 0;
    /// Tells how many changes of exposure, region and timing there were so far. After one of them a
    /// frame under way no longer belongs to what is set. Waits for whoever programs the camera, so
    /// that no change is half made; it is therefore not asked for between the frames of a video.
    virtual uint32_t FrameChanges() = 0;

    /// Takes a step off a bandwidth that is automatic.
    virtual void LowerBandwidth(int step) = 0;

    /// Whether a request that sets the camera up got lost, and the camera was not programmed as a
    /// whole since. No frame of such a camera may be used.
    virtual bool HalfProgrammed() = 0;
    /// Runs `program`, which sets the camera up as a whole, again until none of its requests got
    /// lost. False when it fails, or when the requests may take no more time.
    virtual bool ProgramWhole(const std::function<bool()> &program) = 0;
    /// Closes the device, which is gone, and opens it again where it has come back. Both end when
    /// the capture is to end.
    virtual bool Reconnect() = 0;
    /// The same without a device to close: an earlier try has lost it.
    virtual bool Reopen() = 0;

    /// The automatics, on a thread of their own that looks at some of the short frames, and on the
    /// worker's, which shows them each frame that is not short.
    virtual void StartAutomatics(std::chrono::milliseconds pass) = 0;
    virtual void StopAutomatics() = 0; // joins the thread
    // Sets what it decides, and so may wait for whoever programs the camera.
    virtual void Adjust(std::span<const uint8_t> frame, const ExposureSetting &exposedBy) = 0;

  protected:
    ~CapturedCamera() = default;
};

} // namespace vsccam
