#pragma once

#include "base/guarded.h"
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
    std::vector<uint32_t> Pixels() const;

    /// Looks up the pixels that another region shows. Does nothing before they are set.
    void Cut(const FrameRegion &region);

    /// Null when there is none.
    std::shared_ptr<const PixelPatches> Patches() const { return m_lists.Now().patches; }

  private:
    struct Lists {
        std::shared_ptr<const std::vector<uint32_t>> pixels; // of the sensor; null: not loaded
        std::shared_ptr<const PixelPatches> patches;         // of these, in the frames
    };

    void Install(Lists lists);

    Shared<bool> m_enabled;
    Guarded<Lists> m_lists;
};

} // namespace vsccam
