#include "camera/binning_sensor.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace vscsim {
namespace {

constexpr size_t kRegisters = 0x400;

constexpr uint16_t kPower = 0x00;
constexpr uint16_t kWakingUp = 0x0053; // of the power register
constexpr uint16_t kBinning = 0x20;
constexpr uint16_t kBits = 0x21;
constexpr uint16_t kGain = 0x30; // steps of 0.1 dB
constexpr uint16_t kBlackLevel = 0x31;
constexpr uint16_t kShutter = 0x32;
constexpr uint16_t kFirstRow = 0x1DC;
constexpr uint16_t kRowsEnd = 0x1DD;

// What the row registers count before the first row of the picture, and behind the last.
constexpr int kRowsBefore = 32;
constexpr int kRowsAround = 36;

constexpr int kBlankColumns = 60; // of a line, before the picture

} // namespace

/// A way to read out: what tells the sensor so, and the shortest line that it can do.
struct BinningSensor::Mode {
    uint16_t binning, bits;
    uint32_t shortestLine; // clocks
};

const BinningSensor::Mode BinningSensor::kModes[] = {
    {1, 12, 680}, {1, 10, 435}, {2, 10, 397}, {3, 10, 397}};

const BinningSensor::Setting BinningSensor::kAwake[] = {
    {kPower, 0x0173}, {0x05, 0x1000}, {0x06, 0x7C00}, {0x11, 0x3C43}, {0x1C, 0x0008}};
const BinningSensor::Setting BinningSensor::kAsleepExposing[] = {{kPower, 0x0000}, {0x05, 0x1000},
                                                                 {0x06, 0x7C00},   {0x11, 0x3C40},
                                                                 {0x1C, 0x0008},   {0x60, 0x0011}};

BinningSensor::BinningSensor(PixelArray pixels, const BinningTraits &traits)
    : m_pixels(pixels), m_traits(traits), m_registers(kRegisters)
{
}

void BinningSensor::WriteWord(uint16_t address, uint16_t value)
{
    if (address >= kRegisters)
        return;
    m_registers[address] = value;
    // On the way from one state to the next, it goes on as it was.
    if (address == kPower && value != kWakingUp)
        m_power = SelectedPower();
}

BinningSensor::Power BinningSensor::SelectedPower() const
{
    const auto holds = [this](const Setting &setting) { return Is(setting); };
    if (std::ranges::all_of(kAwake, holds))
        return Power::Awake;
    return std::ranges::all_of(kAsleepExposing, holds) ? Power::AsleepExposing : Power::Asleep;
}

uint16_t BinningSensor::ReadWord(uint16_t address) const
{
    return address < kRegisters ? m_registers[address] : uint16_t{0};
}

/// Nothing while the registers fit no way to read out.
const BinningSensor::Mode *BinningSensor::ReadoutMode() const
{
    const auto *const found = std::ranges::find_if(kModes, [this](const Mode &mode) {
        return Is({kBinning, mode.binning}) && Is({kBits, mode.bits});
    });
    return found == std::end(kModes) ? nullptr : found;
}

/// The part of the programmed rows that the sensor has.
Window BinningSensor::ReadoutWindow() const
{
    const int top = std::clamp(ReadWord(kFirstRow) - kRowsBefore, 0, m_pixels.height);
    const int end = std::clamp(ReadWord(kRowsEnd) - kRowsAround, top, m_pixels.height);
    return {.x = 0, .y = top, .width = m_pixels.width, .height = end - top};
}

SensorReadout BinningSensor::Readout() const
{
    const Mode *const mode = ReadoutMode();
    if (!mode || m_power == Power::Asleep)
        return {};
    return {.streaming = true,
            .keepsExposing = m_power == Power::AsleepExposing,
            .window = ReadoutWindow(),
            .blankColumns = kBlankColumns,
            .bin = mode->binning,
            .bits = mode->bits,
            .clockHz = m_traits.clockHz,
            .shortestLine = mode->shortestLine,
            .shutterLines = ReadWord(kShutter),
            .gain = std::pow(10.0, ReadWord(kGain) / 200.0),
            .blackLevel = ReadWord(kBlackLevel)};
}

} // namespace vscsim
