#pragma once

#include "usb/firmware_image.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

/// Firmware of the FX2 that stands in for the real one, which nobody here knows. It has the form
/// and the length of the real images, and its program is an endless loop: a camera that runs it
/// answers no request until its real firmware is loaded. Not verified on hardware.
namespace vsccam {

inline constexpr std::array<uint8_t, 2> kJumpToItself = {0x80, 0xFE}; // sjmp $

/// An image for the processor's RAM, to be loaded at address 0. No interrupt is enabled after a
/// reset, so that nothing else of it is ever executed.
template <size_t Length> consteval std::array<uint8_t, Length> IdleFx2Program()
{
    std::array<uint8_t, Length> ram{};
    std::ranges::copy(kJumpToItself, ram.begin());
    return ram;
}

/// A boot image of exactly `Length` bytes: header, the program in records from address 0 on, and
/// the end record with the byte that lets the processor run when it boots from the image.
template <size_t Length> consteval std::array<uint8_t, Length> IdleFx2Image()
{
    constexpr size_t kRecordHead = 4;
    constexpr size_t kRecordData = 512;
    constexpr size_t kRecords = Length - kFx2HeaderBytes - kFx2EndRecord.size() - 1;
    static_assert(kRecords % (kRecordHead + kRecordData) > kRecordHead,
                  "no room for a last record");

    std::array<uint8_t, Length> image{};
    image[0] = kFx2BootMark;
    uint8_t *next = image.data() + kFx2HeaderBytes;
    uint8_t *const end = next + kRecords;
    for (size_t address = 0; next != end; address += kRecordData) {
        const size_t room = static_cast<size_t>(end - next) - kRecordHead;
        const size_t length = room < kRecordData ? room : kRecordData;
        *next++ = static_cast<uint8_t>(length >> 8);
        *next++ = static_cast<uint8_t>(length);
        *next++ = static_cast<uint8_t>(address >> 8);
        *next++ = static_cast<uint8_t>(address);
        if (address == 0)
            std::ranges::copy(kJumpToItself, next);
        next += length;
    }
    std::ranges::copy(kFx2EndRecord, end);
    return image;
}

} // namespace vsccam
