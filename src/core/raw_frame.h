#pragma once

#include "core/frame_geometry.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace vsccam {

inline constexpr int kBrightest = 255; // of eight bits

/// A frame as the camera sent it, for those who look at single samples. What lies outside is the
/// caller's fault: `bytes` holds all of `size`.
struct RawFrame {
    std::span<const uint8_t> bytes;
    Size size;
    bool is16 = false;
    bool highByteFirst = false; // of 16-bit samples

    static constexpr size_t Bytes(Size size, bool is16)
    {
        return static_cast<size_t>(size.width) * static_cast<size_t>(size.height) * (is16 ? 2 : 1);
    }

    /// As many bits as the frame has.
    int Sample(int x, int y) const
    {
        const size_t i = Index(x, y);
        if (!is16)
            return bytes[i];
        const int first = bytes[2 * i];
        const int second = bytes[2 * i + 1];
        return highByteFirst ? first << 8 | second : second << 8 | first;
    }

    /// The upper eight bits.
    int Brightness(int x, int y) const { return is16 ? Sample(x, y) >> 8 : Sample(x, y); }

  private:
    size_t Index(int x, int y) const
    {
        return static_cast<size_t>(y) * static_cast<size_t>(size.width) + static_cast<size_t>(x);
    }
};

} // namespace vsccam
