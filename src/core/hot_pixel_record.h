#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// The form in which a camera keeps its hot pixels in flash memory. A bitmap of the whole sensor
/// (pixel 0 is the lowest bit of byte 0) is stored as pairs of bytes: place and value of every byte
/// that is not zero, within a block of 256 bytes; the pair of zeros ends a block.
namespace vsccam {

/// Where it begins in the flash.
inline constexpr uint32_t kHotPixelAddress = 0x40000;
/// Magic and length, before the pairs.
inline constexpr size_t kHotPixelHeader = 8;
inline constexpr uint32_t kLongestHotPixelRecord = 0x30000; // up to the sector of the identity

/// Stores a bitmap. A record that would become as large as the bitmap is cut short.
std::vector<uint8_t> Compress(std::span<const uint8_t> bitmap);

/// Length of the whole record that begins with these bytes; nothing when they are no record.
std::optional<uint32_t> RecordLength(std::span<const uint8_t, kHotPixelHeader> header);

/// The bitmap of `size` bytes that a whole record holds; nothing when a pair lies outside of it.
std::optional<std::vector<uint8_t>> Uncompress(std::span<const uint8_t> record, size_t size);

/// Numbers of the bits that are set, in ascending order.
std::vector<uint32_t> FlaggedPixels(std::span<const uint8_t> bitmap);

} // namespace vsccam
