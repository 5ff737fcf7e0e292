#include "camera/sony_sensor.h"

#include <algorithm>
#include <cmath>

namespace vscsim {
namespace {

constexpr uint16_t kStandby = 0x3000;     // 1 at power-on
constexpr uint16_t kHold = 0x3001;        // 1 collects writes
constexpr uint16_t kBinning = 0x3006;     // 0x22: 2 x 2
constexpr uint16_t kWindowMode = 0x3007;  // high nibble 4: cropped
constexpr uint16_t kReadoutMode = 0x3009; // low nibble: rate; bit 4: high conversion gain
constexpr uint16_t kBlackLevel = 0x300A;  // 2 bytes
constexpr uint16_t kGain = 0x3014;        // steps of 0.3 dB
constexpr uint16_t kShutter = 0x3020;     // 3 bytes
constexpr uint16_t kWindowTop = 0x303C;   // 2 bytes each, in this order
constexpr uint16_t kWindowHeight = 0x303E;
constexpr uint16_t kWindowLeft = 0x3040;
constexpr uint16_t kWindowWidth = 0x3042;
constexpr uint16_t kOutputBits = 0x3046; // bit 0: 12 bits, else 10

constexpr uint8_t kBinning2x2 = 0x22;
constexpr uint8_t kCropped = 0x40;
constexpr uint8_t kHighConversionGain = 0x10;
constexpr double kHighConversionFactor = 2.0; // 6 dB

} // namespace

SonySensor::SonySensor(PixelArray pixels, const SonyTraits &traits)
    : m_pixels(pixels), m_traits(traits), m_registers(0x10000)
{
    m_registers.WriteThrough(kStandby, 1);
    m_registers.WriteThrough(kOutputBits, 0xF1);
    m_registers.WriteThrough(kBlackLevel, 0xF0);
}

void SonySensor::WriteByte(uint16_t address, uint8_t value)
{
    if (address == kStandby || address == kHold)
        m_registers.WriteThrough(address, value);
    else
        m_registers.Write(address, value);
    if (address == kHold)
        m_registers.Hold((value & 1) != 0);
}

uint8_t SonySensor::ReadByte(uint16_t address) const
{
    return m_registers.Written(address);
}

void SonySensor::WriteWord(uint16_t address, uint16_t value)
{
    WriteByte(address, static_cast<uint8_t>(value >> 8));
    WriteByte(static_cast<uint16_t>(address + 1), static_cast<uint8_t>(value & 0xFF));
}

uint16_t SonySensor::ReadWord(uint16_t address) const
{
    return static_cast<uint16_t>(ReadByte(address) << 8 |
                                 ReadByte(static_cast<uint16_t>(address + 1)));
}

/// The part of the programmed window that the sensor has.
Window SonySensor::ReadoutWindow() const
{
    if ((m_registers.Acting(kWindowMode) & 0xF0) != kCropped)
        return {.x = 0, .y = 0, .width = m_pixels.width, .height = m_pixels.height};
    const auto number = [this](uint16_t first) {
        return static_cast<int>(m_registers.Acting(first, 2));
    };
    Window window{.x = std::min(number(kWindowLeft), m_pixels.width),
                  .y = std::min(number(kWindowTop), m_pixels.height),
                  .width = number(kWindowWidth),
                  .height = number(kWindowHeight)};
    window.width = std::min(window.width, m_pixels.width - window.x);
    window.height = std::min(window.height, m_pixels.height - window.y);
    return window;
}

double SonySensor::ClockHz(bool binned) const
{
    const size_t rate = m_registers.Acting(kReadoutMode) & 0x0FU;
    if (binned && rate == 0)
        return m_traits.binnedClockHz;
    return rate < m_traits.clockHz.size() ? m_traits.clockHz[rate] : 0;
}

double SonySensor::Gain() const
{
    const bool high = (m_registers.Acting(kReadoutMode) & kHighConversionGain) != 0;
    const double decibels = 0.3 * m_registers.Acting(kGain);
    return std::pow(10.0, decibels / 20.0) * (high ? kHighConversionFactor : 1.0);
}

SensorReadout SonySensor::Readout() const
{
    const bool binned = m_registers.Acting(kBinning) == kBinning2x2;
    return {.streaming = (m_registers.Acting(kStandby) & 1) == 0,
            .window = ReadoutWindow(),
            .bin = binned ? 2 : 1,
            .bits = (m_registers.Acting(kOutputBits) & 1) != 0 ? 12 : 10,
            .clockHz = ClockHz(binned),
            .shutterLines = m_registers.Acting(kShutter, 3),
            .gain = Gain(),
            .blackLevel = static_cast<int>(m_registers.Acting(kBlackLevel, 2))};
}

} // namespace vscsim
