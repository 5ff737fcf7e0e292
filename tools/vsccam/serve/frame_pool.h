#pragma once

#include "serve/frame.h"

#include <memory>
#include <mutex>
#include <vector>

namespace vsctool::serve {

/// Frames whose memory is used again when nobody looks at them any more: pages of new memory cost
/// more than what is written to them.
class FramePool {
  public:
    FramePool() : m_spares(std::make_shared<Spares>()) {}

    /// A frame to fill, of this size and format; what its bytes are is left open.
    std::shared_ptr<Frame> Take(int width, int height, PixelFormat format);

  private:
    struct Spares {
        std::mutex mutex;
        std::vector<std::unique_ptr<Frame>> frames; // guarded by mutex
    };

    const std::shared_ptr<Spares> m_spares; // frames may outlive the pool
};

} // namespace vsctool::serve
