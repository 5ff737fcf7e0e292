#pragma once

#include "picture.h"
#include "units.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace vsctool {

/// Time in a SER file: steps of 100 ns since the beginning of the year 1.
using SerTicks = int64_t;

SerTicks SerTicksOf(UtcTime time);

/// As FormatUtc, or the bare number when no clock can have meant it.
std::string FormatSerTicks(SerTicks ticks);

inline constexpr size_t kSerHeaderBytes = 178;
inline constexpr size_t kSerTimeBytes = 8; // of each frame, behind all of them
inline constexpr size_t kSerCountAt = 38;  // where the header has the number of frames

/// What stands in front of the frames of a SER file.
struct SerHeader {
    int32_t luId = 0;
    int32_t colour = 0;
    /// Readers take this flag the other way round than its name says: with 0, 16-bit samples come
    /// with the low byte first.
    int32_t littleEndian = 0;
    int32_t width = 0;
    int32_t height = 0;
    int32_t bits = 8; // of each sample
    int32_t frames = 0;
    std::string observer = {}; // these three end after 40 bytes
    std::string instrument = {};
    std::string telescope = {};
    SerTicks localTime = 0;
    SerTicks utcTime = 0;

    bool operator==(const SerHeader &) const = default;
};

using SerHeaderBytes = std::array<uint8_t, kSerHeaderBytes>;
SerHeaderBytes Encode(const SerHeader &header);

/// Throws Failure, with the reason, when these bytes begin no SER file.
SerHeader DecodeSerHeader(std::span<const uint8_t> bytes);

/// Bytes of one frame; not 0 for a header that was decoded.
int64_t FrameBytesOf(const SerHeader &header);

/// The number by which the format knows what a picture consists of.
int32_t SerColourOf(PixelFormat format, std::optional<Mosaic> mosaic);

/// "mono", "RGGB", "BGR"
std::string SerColourName(int32_t colour);

/// Sets the time at which the recording began, by UTC and by the clock on the wall.
void SetBegin(SerHeader &header, UtcTime begin);

/// Numbers in files have their low byte first.
template <class Number> void StoreLow(Number value, uint8_t *bytes)
{
    for (size_t i = 0; i < sizeof value; ++i)
        bytes[i] = static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i));
}

template <class Number> Number LoadLow(const uint8_t *bytes)
{
    uint64_t value = 0;
    for (size_t i = 0; i < sizeof(Number); ++i)
        value |= uint64_t{bytes[i]} << (8 * i);
    return static_cast<Number>(value);
}

} // namespace vsctool
