#include "models/usb2/usb2_timing.h"

#include "models/usb2/usb2_registers.h"

#include <algorithm>
#include <iterator>

namespace vsccam {

using std::chrono::milliseconds;

namespace {

constexpr int kLongestLine = 12'287;
constexpr int kFrameTail = 358;      // clocks by which a frame is shorter than its lines
constexpr int kIntegrationTail = 26; // the same of the integration

constexpr uint32_t kLongestOwnUs = 4'000'000;
constexpr int64_t kTooManyLines = 0x10000;

constexpr uint16_t kCoarseNormal = 0x1300;
constexpr uint16_t kCoarseSlow = 0x5300; // at the slow clock

/// Fine gain is (gain - from) x step + base, without the bits that the mask leaves out.
struct GainBand {
    int to; // the last gain
    uint16_t coarse;
    int from;
    int step;
    int base;
    uint16_t mask;
};
constexpr GainBand kGainBands[] = {
    {15, 0x00, -16, 2, 0, 0xFFFE}, {31, 0x10, 0, 2, 0, 0xFFFE},  {47, 0x20, 16, 2, 0, 0xFFFE},
    {63, 0x30, 32, 2, 0, 0xFFFE},  {79, 0x30, 48, 4, 0, 0xFFFC}, {100, 0x30, 80, 6, 128, 0xFFFE},
};

/// The fastest clock for rows of up to so many pixels.
struct ClockBand {
    int width;
    int mhz;
};
constexpr ClockBand kClockBands[] = {{800, 80}, {960, 66}, {1024, 62}};
constexpr int kClockOfWideRows = 50;

} // namespace

int Usb2ClockMHz(int rowWidth, bool is16)
{
    if (is16 && rowWidth > 320 && rowWidth <= 480)
        return 50;
    if (rowWidth <= 480)
        return 80;
    const auto *band = std::ranges::find_if(
        kClockBands, [rowWidth](const ClockBand &b) { return rowWidth <= b.width; });
    const int mhz = band == std::end(kClockBands) ? kClockOfWideRows : band->mhz;
    return mhz / (is16 ? 2 : 1);
}

Usb2Gain Usb2GainFor(int gain, ControlRange range, int clockMHz)
{
    const int stored = std::clamp(gain, range.min, range.max);
    const GainBand &band =
        *std::ranges::find_if(kGainBands, [stored](const GainBand &b) { return stored <= b.to; });
    const uint16_t base = clockMHz == kUsb2SlowClockMHz ? kCoarseSlow : kCoarseNormal;
    const int fine = (stored - band.from) * band.step + band.base;
    return {.stored = stored,
            .coarse = static_cast<uint16_t>(base | band.coarse),
            .fine = static_cast<uint16_t>(fine & band.mask)};
}

int Usb2Timing::FrameTimeUs() const
{
    return FrameClocks() / clockMHz;
}

double Usb2Timing::FramesPerS() const
{
    return clockMHz * 1e6 / FrameClocks();
}

int Usb2Timing::FrameClocks() const
{
    return lineLength * frameLines - kFrameTail;
}

int64_t Usb2Timing::Lines(uint32_t exposureUs) const
{
    const int64_t clocks = int64_t{clockMHz} * exposureUs;
    return std::max<int64_t>((clocks - kIntegrationTail) / lineLength, 1);
}

uint32_t Usb2Timing::OwnIntegrationUs() const
{
    return static_cast<uint32_t>(usb2::kLongestOwnIntegration * lineLength / clockMHz);
}

int Usb2LineLength(int clockMHz, int frameBytes, int megabytesPerS, int percent, int frameLines)
{
    const int64_t clocks = int64_t{clockMHz} * frameBytes * 100 / megabytesPerS / percent;
    const int64_t line = (clocks + kFrameTail) / frameLines;
    return static_cast<int>(std::clamp<int64_t>(line, usb2::kShortestLine, kLongestLine));
}

bool Usb2NeedsHostTiming(uint32_t exposureUs, int64_t lines)
{
    return lines >= kTooManyLines || exposureUs > kLongestOwnUs;
}

std::optional<uint16_t> Usb2LinesWithoutHost(uint32_t exposureUs, int lineLength)
{
    const Usb2Timing slow{.clockMHz = kUsb2SlowClockMHz, .lineLength = lineLength, .frameLines = 0};
    const int64_t lines = slow.Lines(exposureUs);
    // A little less than the limit from which the host times it, so that the two do not take turns.
    if (lines >= kTooManyLines - 1 || exposureUs > kLongestOwnUs - 1)
        return std::nullopt;
    return static_cast<uint16_t>(lines);
}

LongExposurePlan Usb2LongExposurePlan(uint32_t exposureUs, uint32_t ownUs)
{
    constexpr uint32_t kLongStepsFromUs = 10'000'000;
    const int stepMs = exposureUs < kLongStepsFromUs ? 200 : 500;
    const auto exposureMs = static_cast<int>(exposureUs / 1000);
    const int sleepMs = exposureMs - std::min(exposureMs, static_cast<int>(ownUs / 1000));
    const int readMs = exposureMs - sleepMs + 1000;
    return {.step = milliseconds(stepMs),
            .steps = sleepMs / stepMs,
            .readTimeout = milliseconds(readMs),
            .printedWaitMs = readMs,
            .rest = milliseconds(sleepMs % stepMs),
            .beside = milliseconds(exposureMs - sleepMs)};
}

float Usb2Temperature(uint16_t reading, uint16_t at70, uint16_t at55)
{
    constexpr float kCalibrationSpanC = 15;
    constexpr float kCalibrationLowC = 55;
    const float slope = kCalibrationSpanC / static_cast<float>(at70 - at55); // or infinite
    if (slope >= 0.5F && slope <= 1.0F)
        return kCalibrationLowC - static_cast<float>(at55) * slope +
               static_cast<float>(reading) * slope;
    return -280.0F + static_cast<float>(reading) * 0.75F;
}

} // namespace vsccam
