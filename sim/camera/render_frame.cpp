#include "camera/scene_source.h"

#include <algorithm>
#include <array>

namespace vscsim {
namespace {

/// Bus noise where no sample was driven; the same in each frame.
uint8_t Garbage(size_t place)
{
    return static_cast<uint8_t>((place * 2654435761U) >> 13);
}

void FillGarbage(std::span<uint8_t> bytes)
{
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = Garbage(i);
}

/// A sensor that sends more bits than the FPGA takes loses the upper ones; one that sends fewer
/// makes a darker picture.
void Align(std::span<uint16_t> samples, int bitsSent, int bitsTaken)
{
    if (bitsSent == bitsTaken)
        return;
    for (uint16_t &sample : samples)
        sample = static_cast<uint16_t>(bitsSent > bitsTaken ? sample << (bitsSent - bitsTaken)
                                                            : sample >> (bitsTaken - bitsSent));
}

void Pack8(std::span<const uint16_t> samples, uint8_t *to)
{
    for (size_t i = 0; i < samples.size(); ++i)
        to[i] = static_cast<uint8_t>(samples[i] >> 8);
}

void Pack16(std::span<const uint16_t> samples, uint8_t *to)
{
    for (size_t i = 0; i < samples.size(); ++i) {
        to[2 * i] = static_cast<uint8_t>(samples[i] & 0xFF);
        to[2 * i + 1] = static_cast<uint8_t>(samples[i] >> 8);
    }
}

void Pack16HighByteFirst(std::span<const uint16_t> samples, uint8_t *to)
{
    for (size_t i = 0; i < samples.size(); ++i) {
        to[2 * i] = static_cast<uint8_t>(samples[i] >> 8);
        to[2 * i + 1] = static_cast<uint8_t>(samples[i] & 0xFF);
    }
}

auto PackingOf(const FrameSettings &settings)
{
    if (!settings.output16Bits)
        return Pack8;
    return settings.sensor.highByteFirst ? Pack16HighByteFirst : Pack16;
}

} // namespace

void RenderFrame(SceneSource &scene, const FrameSettings &settings, const Exposure &exposure,
                 std::span<uint8_t> frame)
{
    const SensorReadout &sensor = settings.sensor;
    const int rows = std::min(settings.height, sensor.Rows());
    const auto columns = static_cast<size_t>(std::min(settings.width, sensor.Columns()));
    const size_t rowBytes = settings.RowBytes();
    const size_t filledBytes = columns * (settings.output16Bits ? 2 : 1);
    std::vector<uint16_t> samples(static_cast<size_t>(sensor.Columns()));
    const auto pack = PackingOf(settings);

    scene.Begin(sensor, exposure);
    for (int row = 0; row < rows; ++row) {
        const std::span<uint8_t> line =
            frame.subspan(static_cast<size_t>(row) * rowBytes, rowBytes);
        scene.Row(row, samples);
        const std::span<uint16_t> taken = std::span(samples).first(columns);
        Align(taken, sensor.bits, settings.inputBits);
        pack(taken, line.data());
        FillGarbage(line.subspan(filledBytes));
    }
    FillGarbage(frame.subspan(static_cast<size_t>(rows) * rowBytes));
}

void WriteMarks(const FrameMarks &marks, std::span<uint8_t> frame)
{
    constexpr uint16_t kHeadOfBothEnds = 0x5A7E;
    constexpr uint16_t kTail = 0x3CF0;
    constexpr std::array<uint16_t, 2> kHeadAlone = {0xAA11, 0xBB00};
    const auto spoiled = [](uint16_t mark, bool bad) {
        return static_cast<uint16_t>(bad ? ~mark : mark);
    };
    const size_t length = frame.size() & ~size_t{1};
    if (length < 8)
        return;
    if (marks.style == MarkStyle::Head) {
        Pack16(std::array{spoiled(kHeadAlone[0], marks.badHead), kHeadAlone[1]}, frame.data());
        return;
    }
    const auto tailCounter = static_cast<uint16_t>(marks.counter + (marks.unequalCounters ? 1 : 0));
    Pack16(std::array{spoiled(kHeadOfBothEnds, marks.badHead), marks.counter}, frame.data());
    Pack16(std::array{tailCounter, spoiled(kTail, marks.badTail)}, frame.data() + length - 4);
}

} // namespace vscsim
