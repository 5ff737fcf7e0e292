#pragma once

#include "camera/camera.h"
#include "camera/frame_settings.h"
#include "camera/guide_port.h"

#include <memory>
#include <span>

namespace vscsim {

/// What one exposure saw, beyond the settings.
struct Exposure {
    uint32_t frame = 0; // since the stream was started
    Time begins{};      // after all exposures before it, one behind the other
    Time duration{};
    Time since{}; // by the clock of the simulator
    double celsius = 20;
    GuidePort::Shift shift = {};
};

/// Where the pixels come from.
class SceneSource {
  public:
    SceneSource() = default;
    SceneSource(const SceneSource &) = delete;
    SceneSource &operator=(const SceneSource &) = delete;
    virtual ~SceneSource() = default;

    /// Rows of the same exposure follow, from the top.
    virtual void Begin(const SensorReadout &sensor, const Exposure &exposure) = 0;

    /// One row as the sensor sends it, left-aligned in 16 bits.
    virtual void Row(int row, std::span<uint16_t> samples) = 0;
};

std::unique_ptr<SceneSource> MakePatternSource();
std::unique_ptr<SceneSource> MakeSkySource(const ModelFacts &model, const CameraOptions &options);

/// Makes the bytes of a frame: what the FPGA does with the rows of the sensor. Where the sensor
/// sends less than the FPGA was told to expect, the frame shows garbage.
void RenderFrame(SceneSource &scene, const FrameSettings &settings, const Exposure &exposure,
                 std::span<uint8_t> frame);

/// The marks over the first and last pixels of a frame, and what is wrong with them.
struct FrameMarks {
    MarkStyle style = MarkStyle::BothEnds;
    uint16_t counter = 0; // at both ends
    bool badHead = false;
    bool badTail = false;         // where there is a tail
    bool unequalCounters = false; // where there are any
};
void WriteMarks(const FrameMarks &marks, std::span<uint8_t> frame);

} // namespace vscsim
