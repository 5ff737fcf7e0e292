#pragma once

#include "base/clock.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vsccam {

/// One step of a register list. Address 0xFFFF is no register: the value is a pause in
/// milliseconds.
struct RegisterWrite {
    static constexpr uint16_t kPause = 0xFFFF;

    uint16_t address;
    uint16_t value;
};

constexpr RegisterWrite Pause(std::chrono::milliseconds time)
{
    return {RegisterWrite::kPause, static_cast<uint16_t>(time.count())};
}

/// A list of which only some steps are known; the others are pauses of no length, because a guess
/// could harm the sensor.
template <size_t Steps, size_t Known>
constexpr std::array<RegisterWrite, Steps> Padded(const RegisterWrite (&known)[Known])
{
    static_assert(Known <= Steps);
    std::array<RegisterWrite, Steps> list{};
    list.fill(Pause(std::chrono::milliseconds(0)));
    std::copy_n(known, Known, list.begin());
    return list;
}

using RegisterList = std::span<const RegisterWrite>;

/// Carries out the pauses of a list and leaves its writes to `write(address, value)`.
template <class Write> void SendRegisterList(RegisterList list, Write write)
{
    for (const auto [address, value] : list) {
        if (address == RegisterWrite::kPause)
            SleepFor(std::chrono::milliseconds(value));
        else
            write(address, value);
    }
}

/// Byte `index` of a number that is spread over byte registers, the lowest first.
constexpr uint8_t ByteOf(int value, int index)
{
    return static_cast<uint8_t>(value >> (8 * index));
}

} // namespace vsccam
