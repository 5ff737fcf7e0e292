#pragma once

#include "base/guarded.h"
#include "core/camera_model.h"
#include "core/dark_frames.h"
#include "core/frame_region.h"
#include "core/hot_pixels.h"
#include "core/settings.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace vsccam {

/// What is corrected in one raw frame, of its size; null: nothing.
struct FrameCorrections {
    DarkCut dark; // its frame: of 8-bit frames only
    std::shared_ptr<const PixelPatches> hotPixels;
};

/// Dark frame and hot pixels of a camera, fitted to the frames that it sends.
///
/// Threads. Any thread may call anything at any time, but not with the settings locked, which are
/// asked here. The parts have locks of their own; nobody holds those of two parts, or one of them
/// while he asks for the settings.
class Corrections {
  public:
    Corrections(const CameraModel &model, const Guarded<Settings> &settings)
        : m_model(model), m_settings(settings)
    {
    }

    DarkFrames dark;
    HotPixels hotPixels;

    /// Fits both to the region that is set, unless it is the one they were fitted to last.
    void FollowRegion();
    /// Fit one of them to the region that is set. Without memory for it the correction ends; of the
    /// dark frame, the result says so.
    bool FitDark();
    void FitHotPixels();

    void SetHotPixels(std::vector<uint32_t> pixels);
    /// Adds an 8-bit frame to a dark frame that was requested, if it shows the whole sensor.
    void TakeForDark(const uint8_t *frame, const Settings &settings);
    /// The dark frame as a bitmap file, with the results of SaveBMPToFile and LoadBMPFromFile.
    int SaveDark(const char *path);
    int LoadDark(const char *path);

    /// What is corrected in a frame that came with these settings.
    FrameCorrections For(const Settings &settings) const;

  private:
    FrameRegion Region() const { return RegionOf(m_model, m_settings.Now()); } // that is set

    const CameraModel &m_model;
    const Guarded<Settings> &m_settings;
    Guarded<FrameRegion> m_fitted; // by FollowRegion
};

} // namespace vsccam
