#pragma once

#include "base/sync.h"
#include "core/frame_region.h"
#include "image/pixel_patches.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace vsccam {

/// The hot pixels of a camera's sensor, and where they are in the frames that are read now. Like a
/// working dark, a list that was cut is never changed, but replaced.
class HotPixels {
  public:
    bool Enabled() const { return m_enabled; }
    void Enable() { m_enabled = true; }
    /// Ends correction and forgets the pixels.
    void Disable();

    /// @param pixels  of the whole sensor, in ascending order
    /// @param region  that is shown
    void SetPixels(std::vector<uint32_t> pixels, const FrameRegion &region);
    std::vector<uint32_t> Pixels();

    /// Looks up the pixels that another region shows. Does nothing before they are set.
    void Cut(const FrameRegion &region);

    /// Null when there is none.
    std::shared_ptr<const PixelPatches> Patches();

  private:
    std::shared_ptr<const std::vector<uint32_t>> List();

    Shared<bool> m_enabled;

    CriticalSection m_section; // guards the rest; the last of the four that dark_frames.h orders
    std::shared_ptr<const std::vector<uint32_t>> m_pixels; // null: not loaded
    std::shared_ptr<const PixelPatches> m_patches;
};

} // namespace vsccam
