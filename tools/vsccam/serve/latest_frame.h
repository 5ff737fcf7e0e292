#pragma once

#include "serve/frame.h"

#include <mutex>

namespace vsctool::serve {

/// The newest frame. The camera's thread puts it here, and never waits for those who look at it:
/// who is slow gets the newest one next, and never sees those between.
class LatestFrame {
  public:
    void Publish(FramePtr frame);

    /// Nothing before the first frame.
    FramePtr Get() const;
    /// The newest frame when it is newer than this one; otherwise nothing.
    FramePtr After(uint64_t sequence) const;

  private:
    mutable std::mutex m_mutex;
    FramePtr m_frame; // guarded by m_mutex
};

} // namespace vsctool::serve
