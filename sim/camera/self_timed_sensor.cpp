#include "camera/self_timed_sensor.h"

#include <algorithm>
#include <cmath>

namespace vscsim {
namespace {

constexpr uint16_t kBlackOffsets[] = {0x60, 0x61, 0x63, 0x64};
constexpr uint16_t kFirstRow = 0x3002; // 2 more than the row of the picture
constexpr uint16_t kFirstColumn = 0x3004;
constexpr uint16_t kLastRow = 0x3006; // 2 more, too
constexpr uint16_t kLastColumn = 0x3008;
constexpr uint16_t kFrameLines = 0x300A;
constexpr uint16_t kLineClocks = 0x300C;
constexpr uint16_t kIntegrationLines = 0x3012;
constexpr uint16_t kControl = 0x301A;     // bit 2: streams
constexpr uint16_t kBlackLevel = 0x301E;  // of 4096 steps
constexpr uint16_t kPreDivider = 0x302E;  // of the clock that comes in
constexpr uint16_t kMultiplier = 0x3030;  // of what the divider leaves
constexpr uint16_t kDigitalGain = 0x305E; // in 1/32
constexpr uint16_t kAnalogGain = 0x30B0;  // bits 4 and 5: a power of 2
constexpr uint16_t kTemperature = 0x30B2;
constexpr uint16_t kTemperatureAt70 = 0x30C6; // what it reads at 70 and 55 degrees
constexpr uint16_t kTemperatureAt55 = 0x30C8;

constexpr int kRowOffset = 2;
constexpr uint16_t kStreams = 0x0004;
constexpr uint16_t kStepsAt70 = 467;
constexpr uint16_t kStepsAt55 = 447;

bool IsReadOnly(uint16_t address)
{
    return address == kTemperature || address == kTemperatureAt70 || address == kTemperatureAt55;
}

/// The part of the range from first to last, both included, that lies within so many.
std::pair<int, int> Clipped(int first, int last, int count)
{
    first = std::clamp(first, 0, count);
    return {first, std::clamp(last + 1 - first, 0, count - first)};
}

} // namespace

SelfTimedSensor::SelfTimedSensor(PixelArray pixels, const SelfTimedTraits &traits)
    : m_pixels(pixels), m_traits(traits), m_registers(0x10000)
{
    const auto word = [](int value) { return static_cast<uint16_t>(value); };
    m_registers[kFirstRow] = kRowOffset;
    m_registers[kLastRow] = word(pixels.height - 1 + kRowOffset);
    m_registers[kLastColumn] = word(pixels.width - 1);
    m_registers[kFrameLines] = word(pixels.height + 26);
    m_registers[kLineClocks] = 1390;
    m_registers[kIntegrationLines] = 16;
    m_registers[kControl] = 0x10D8;
    m_registers[kPreDivider] = 2;
    m_registers[kMultiplier] = 4;
    m_registers[kDigitalGain] = 32;
    m_registers[kAnalogGain] = 0x1300;
    m_registers[kBlackLevel] = 40;
    m_registers[kTemperatureAt70] = kStepsAt70;
    m_registers[kTemperatureAt55] = kStepsAt55;
    for (size_t i = 0; i < m_traits.blackOffsets.size(); ++i)
        m_registers[kBlackOffsets[i]] = static_cast<uint8_t>(m_traits.blackOffsets[i]);
    SetCelsius(20);
}

void SelfTimedSensor::WriteByte(uint16_t address, uint8_t value)
{
    WriteWord(address, static_cast<uint16_t>((m_registers[address] & 0xFF00) | value));
}

uint8_t SelfTimedSensor::ReadByte(uint16_t address) const
{
    return static_cast<uint8_t>(m_registers[address] & 0xFF);
}

void SelfTimedSensor::WriteWord(uint16_t address, uint16_t value)
{
    if (!IsReadOnly(address))
        m_registers[address] = value;
}

void SelfTimedSensor::SetCelsius(double celsius)
{
    constexpr double kStepsPerDegree = (kStepsAt70 - kStepsAt55) / 15.0;
    const double steps = kStepsAt55 + (celsius - 55) * kStepsPerDegree;
    m_registers[kTemperature] = static_cast<uint16_t>(std::lround(std::max(steps, 0.0)));
}

Window SelfTimedSensor::ReadoutWindow() const
{
    const auto [x, width] =
        Clipped(m_registers[kFirstColumn], m_registers[kLastColumn], m_pixels.width);
    const auto [y, height] = Clipped(m_registers[kFirstRow] - kRowOffset,
                                     m_registers[kLastRow] - kRowOffset, m_pixels.height);
    return {.x = x, .y = y, .width = width, .height = height};
}

double SelfTimedSensor::ClockHz() const
{
    const int divider = m_registers[kPreDivider];
    return divider == 0 ? 0 : m_inputHz * m_registers[kMultiplier] / divider;
}

double SelfTimedSensor::Gain() const
{
    const int analog = 1 << (m_registers[kAnalogGain] >> 4 & 3);
    return analog * m_registers[kDigitalGain] / 32.0;
}

SensorReadout SelfTimedSensor::Readout() const
{
    return {.streaming = (m_registers[kControl] & kStreams) != 0,
            .window = ReadoutWindow(),
            .highByteFirst = m_traits.highByteFirst,
            .clockHz = ClockHz(),
            .pulses = FramePulses{.lineClocks = m_registers[kLineClocks],
                                  .frameLines = m_registers[kFrameLines],
                                  .exposedLines = m_registers[kIntegrationLines]},
            .gain = Gain(),
            .blackLevel = m_registers[kBlackLevel]};
}

} // namespace vscsim
