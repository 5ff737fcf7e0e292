#pragma once

#include <chrono>
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

using RegisterList = std::span<const RegisterWrite>;

} // namespace vsccam
