#pragma once

#include "camera.h"
#include "exposure_times.h"
#include "serve/frame.h"

#include <chrono>
#include <memory>

namespace vsctool::serve {

/// A single exposure of the open camera that is under way; of the camera's thread.
class ExposureRun {
  public:
    using Clock = std::chrono::steady_clock;

    /// Starts what is set.
    /// @param asked  exposure that was asked for
    ExposureRun(Camera &camera, Microseconds asked, Microseconds patience);
    /// Aborts it unless it is over.
    ~ExposureRun();
    ExposureRun(const ExposureRun &) = delete;
    ExposureRun &operator=(const ExposureRun &) = delete;

    /// Whether it has ended, with a frame or without.
    bool IsOver();
    Clock::duration Elapsed() const { return Clock::now() - m_begun; }
    UtcTime BegunAt() const { return m_begunAt; }

    /// Puts the frame into `frame`, and tells how it was exposed; the picture in there is an empty
    /// one. Throws Failure when no frame came.
    Exposure Take(Frame &frame);

  private:
    Camera &m_camera;
    const Microseconds m_asked;
    const Microseconds m_patience;
    ExposureTimes m_times;
    const Clock::time_point m_begun;
    const UtcTime m_begunAt;
    int m_dropped = 0;
};

} // namespace vsctool::serve
