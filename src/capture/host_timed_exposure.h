#pragma once

#include "capture/capture.h"
#include "capture/capture_sensor.h"
#include "capture/presence_look.h"

#include <functional>

namespace vsccam {

/// Times exposures that are too long for the sensor: opens the gate, sleeps and closes it. For the
/// worker.
class HostTimedExposure {
  public:
    HostTimedExposure(Capture &capture, CaptureSensor &sensor)
        : m_capture(capture), m_sensor(sensor)
    {
    }

    enum class End {
        InTime,
        CutShort, // it was set to another length, or is of no use any more
        CameraGone,
    };
    /// Ends early when the capture is to end, too.
    End Expose(uint32_t us, const LongExposurePlan &plan, const std::function<bool()> &isOfNoUse);

  private:
    End Sleep(uint32_t us, const LongExposurePlan &plan, const std::function<bool()> &isOfNoUse);
    bool SleepWhileAttached(Clock::time_point end);

    Capture &m_capture;
    CaptureSensor &m_sensor;
    PresenceLook m_presence;
};

} // namespace vsccam
