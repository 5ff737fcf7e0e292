#pragma once

#include "base/guarded.h"
#include "base/sync.h"
#include "core/frame_region.h"
#include "image/pixel_patches.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace vsccam {

/// The dark frame that fits the frames of one geometry.
struct WorkingDark {
    Size size;
    int mean = 0;
    std::vector<uint8_t> pixels;
};

/// What a dark frame comes to in the frames of one geometry. Null: nothing.
struct DarkCut {
    std::shared_ptr<const WorkingDark> working;
    std::shared_ptr<const PixelPatches> bright; // its pixels that are to be patched
};

/// The dark frame of a camera: captured or loaded for the whole sensor, cut for the frames that are
/// read now. What has been cut is never changed, but replaced: who took it may go on using it.
class DarkFrames {
  public:
    bool Enabled() const { return m_enabled; }
    void Enable() { m_enabled = true; }
    /// Ends subtraction and forgets the frame.
    void Disable();

    /// Begins a capture of so many frames, or gives one up.
    void Request(int frames);
    bool Requested() const { return m_requested; }
    /// Adds a frame of the whole sensor to a requested capture. @return whether it is complete
    bool Add(std::span<const uint8_t> frame);

    void SetImage(std::vector<uint8_t> image);
    /// The frame of the whole sensor; empty when there is none.
    std::vector<uint8_t> Image();
    /// Bitmap of its pixels that are much brighter than the working dark, see Compress.
    std::vector<uint8_t> BrightBitmap();

    /// Cuts the frame for a region. Does nothing without a frame.
    void Cut(const FrameRegion &region);

    /// Both of one cut.
    DarkCut Current() const { return m_cut.Now(); }

  private:
    void Install(DarkCut cut);

    Shared<bool> m_enabled;
    Shared<bool> m_requested;

    // Order of locks: m_imageSection, then that of m_cut, which readers of frames take: nobody
    // holds it while he cuts.
    CriticalSection m_imageSection;
    /// Of the whole sensor; empty: none.
    std::vector<uint8_t> m_image VSC_GUARDED_BY(m_imageSection);
    /// Of the frames taken, each divided by their number.
    std::vector<uint8_t> m_sum VSC_GUARDED_BY(m_imageSection);
    int m_framesWanted VSC_GUARDED_BY(m_imageSection) = 1;
    int m_framesTaken VSC_GUARDED_BY(m_imageSection) = 0;

    Guarded<DarkCut> m_cut;
};

/// Number of frames that make a dark frame of this exposure.
int DarkFramesFor(uint32_t exposureUs);

} // namespace vsccam
