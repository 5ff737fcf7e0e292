#pragma once

#include <cstdint>
#include <span>

/// The fixed register sequences of the PYTHON sensors: power, clocks, sequencer programs.
namespace vsccam::python {

/// Changes the bits lowestBit to highestBit of a register.
struct SensorWrite {
    uint16_t address;
    uint8_t lowestBit, highestBit;
    uint16_t value;

    constexpr bool IsWhole() const { return lowestBit == 0 && highestBit == 15; }
    constexpr bool Fits() const
    {
        return lowestBit <= highestBit && highestBit <= 15 &&
               value >> (highestBit - lowestBit + 1) == 0;
    }
};

/// Writes all of a register, which needs no reading before.
constexpr SensorWrite Whole(uint16_t address, uint16_t value)
{
    return {address, 0, 15, value};
}

using Sequence = std::span<const SensorWrite>;

extern const Sequence kSoftReset;
extern const Sequence kClockManagement1;
extern const Sequence kClockManagement2;
extern const Sequence kRequiredUploads;
extern const Sequence kPowerUp;
extern const Sequence kPowerDown;
extern const Sequence kNormalRowOverhead; // sequencer programs
extern const Sequence kZeroRowOverhead;

} // namespace vsccam::python
