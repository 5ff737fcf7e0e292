#include "camera/frame_settings.h"

#include <algorithm>

namespace vscsim {
namespace {

// Lines that a sensor needs beyond those of the picture, even when the frame pulse comes earlier.
constexpr uint32_t kBlankingLines = 17;

// Width of the FPGA's line buffer, and the tallest picture it counts.
constexpr int kLargestSide = 8192;

} // namespace

FrameSettings SettingsOf(const SensorReadout &sensor, const Fpga &fpga)
{
    FrameSettings settings{.sensor = sensor,
                           .width = fpga.OutputWidth(),
                           .height = fpga.OutputHeight(),
                           .output16Bits = fpga.Output16Bits(),
                           .inputBits = fpga.InputBits()};
    if (std::max(settings.width, settings.height) > kLargestSide || sensor.clockHz <= 0)
        return settings; // without a period: impossible

    const double lineNs = std::max(fpga.LineClocks(), sensor.shortestLine) * 1e9 / sensor.clockHz;
    const auto lines = [lineNs](uint32_t count) {
        return std::chrono::duration_cast<Time>(
            std::chrono::duration<double, std::nano>(lineNs * count));
    };
    const auto rows = static_cast<uint32_t>(std::max(sensor.Rows(), settings.height));
    const uint32_t frameLines = std::max(fpga.FrameLines(), rows + kBlankingLines);
    settings.period = lines(frameLines);
    settings.readout = lines(rows);
    settings.exposure = lines(frameLines - std::min(sensor.shutterLines + 1, frameLines));
    if (sensor.exposureUs)
        settings.exposure = std::chrono::duration_cast<Time>(
            std::chrono::duration<double, std::micro>(*sensor.exposureUs));
    return settings;
}

} // namespace vscsim
