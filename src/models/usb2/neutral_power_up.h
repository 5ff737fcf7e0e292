#pragma once

#include "models/register_list.h"
#include "models/usb2/usb2_registers.h"

#include <array>
#include <cstddef>

/// Start-up list of the family's sensors. What their real lists write was never seen: this one
/// stops the stream and selects the whole sensor at the lowest gain, in `Rows` rows, the last of
/// them pauses without length in the places of unknown writes. Not verified on hardware. The clock
/// is programmed after it, as the board wants it.
namespace vsccam {

inline constexpr size_t kUsb2KnownRows = 13;

template <size_t Rows>
consteval std::array<RegisterWrite, Rows> NeutralUsb2PowerUp(int width, int height)
{
    const auto number = [](int value) { return static_cast<uint16_t>(value); };
    const RegisterWrite known[] = {
        {usb2::kStreaming, usb2::kStreamOff},
        Pause(std::chrono::milliseconds(20)),
        {usb2::kReg3032, 0},
        {usb2::kReg306E, usb2::kReg306EInit},
        {usb2::kWindowTop, usb2::kTopMargin},
        {usb2::kWindowLeft, 0},
        {usb2::kWindowBottom, number(usb2::kTopMargin - 1 + height)},
        {usb2::kWindowRight, number(width - 1)},
        {usb2::kFrameLength, number(height + usb2::kFrameOverhead)},
        {usb2::kLineLength, usb2::kShortestLine},
        {usb2::kIntegration, 1},
        {usb2::kCoarseGain, 0x1300}, // with the fine one: the lowest gain
        {usb2::kFineGain, 32},
    };
    static_assert(std::size(known) == kUsb2KnownRows);
    return Padded<Rows>(known);
}

} // namespace vsccam
