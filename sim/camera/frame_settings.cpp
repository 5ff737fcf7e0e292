#include "camera/frame_settings.h"

#include <algorithm>

namespace vscsim {
namespace {

// Lines that a sensor needs beyond those of the picture, even when the frame pulse comes earlier.
constexpr uint32_t kBlankingLines = 17;

// Width of the FPGA's line buffer, and the tallest picture it counts.
constexpr int kLargestSide = 8192;

FramePulses PulsesOf(const SensorReadout &sensor, const Fpga &fpga, uint32_t shortestFrame)
{
    const uint32_t lines = std::max(fpga.FrameLines(), shortestFrame);
    return {.lineClocks = std::max(fpga.LineClocks(), sensor.shortestLine),
            .frameLines = lines,
            .exposedLines = lines - std::min(sensor.shutterLines + 1, lines)};
}

FramePulses Stretched(const FramePulses &own, uint32_t shortestFrame)
{
    return {.lineClocks = own.lineClocks,
            .frameLines = std::max({own.frameLines, shortestFrame, own.exposedLines + 1}),
            .exposedLines = own.exposedLines};
}

uint32_t RowsOf(const FrameSettings &settings)
{
    return static_cast<uint32_t>(std::max(settings.sensor.Rows(), settings.height));
}

void SetTimes(FrameSettings &settings, const FramePulses &pulses)
{
    const double lineNs = pulses.lineClocks * 1e9 / settings.sensor.clockHz;
    const auto lines = [lineNs](uint32_t count) {
        return std::chrono::duration_cast<Time>(
            std::chrono::duration<double, std::nano>(lineNs * count));
    };
    settings.period = lines(pulses.frameLines);
    settings.readout = lines(RowsOf(settings));
    settings.exposure = lines(pulses.exposedLines);
}

/// Sets the columns that the FPGA takes. There is no frame when it would take blank ones.
Window TakenWindow(const SensorReadout &sensor, const Fpga &fpga)
{
    Window window = sensor.window;
    const int skipped = (fpga.FirstColumn() - sensor.blankColumns) * sensor.bin;
    const int left = skipped < 0 ? 0 : std::max(window.width - skipped, 0);
    if (left > 0) // else there is no place on the sensor for it
        window.x += skipped;
    window.width = std::min(left, fpga.OutputWidth() * sensor.bin);
    return window;
}

} // namespace

FrameSettings SettingsOf(const SensorReadout &sensor, const Fpga &fpga)
{
    FrameSettings settings{.sensor = sensor,
                           .width = fpga.OutputWidth(),
                           .height = fpga.OutputHeight(),
                           .output16Bits = fpga.Output16Bits(),
                           .inputBits = fpga.InputBits()};
    settings.sensor.window = TakenWindow(sensor, fpga);
    if (std::max(settings.width, settings.height) > kLargestSide || sensor.clockHz <= 0)
        return settings; // without a period: impossible
    const uint32_t shortestFrame = RowsOf(settings) + kBlankingLines;
    SetTimes(settings, sensor.pulses ? Stretched(*sensor.pulses, shortestFrame)
                                     : PulsesOf(sensor, fpga, shortestFrame));
    if (sensor.exposureUs)
        settings.exposure = std::chrono::duration_cast<Time>(
            std::chrono::duration<double, std::micro>(*sensor.exposureUs));
    return settings;
}

FrameSettings SettingsOf(const SensorReadout &sensor, bool output16Bits)
{
    FrameSettings settings{.sensor = sensor,
                           .width = sensor.Columns(),
                           .height = sensor.Rows(),
                           .output16Bits = output16Bits,
                           .inputBits = sensor.bits,
                           .marks = MarkStyle::Head};
    if (sensor.pulses && sensor.clockHz > 0)
        SetTimes(settings, Stretched(*sensor.pulses, RowsOf(settings) + kBlankingLines));
    return settings;
}

} // namespace vscsim
