#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace soak {

/// What the delivered frames of a camera with the test pattern look like.
struct Image {
    int width = 0, height = 0, bin = 1, type = 0;
    int x = 0, y = 0;       // of the region, binned
    int sensorBin = 1;      // of `bin`; software does the rest
    int head = 0, tail = 0; // bytes at the ends that show the row next to them

    size_t Bytes() const;
    /// Number, modulo 256, of the frame that these bytes are a whole and true image of.
    std::optional<uint32_t> NumberOf(std::span<const uint8_t> bytes) const;

  private:
    uint32_t ReadOut(uint32_t number, int column, int row) const;
    uint32_t Pixel(uint32_t number, int column, int row) const;
    bool Shows(uint32_t number, std::span<const uint8_t> bytes) const;
};

} // namespace soak
