#pragma once

#include <array>
#include <cstdint>

namespace vsccam {

inline constexpr int kLinearGamma = 50;

/// Exponent of a gamma setting: 2 at 0, 1 at 50, 0.5 at 100.
float GammaExponent(int gamma);

/// Lookup tables for 8-bit and 16-bit samples.
using GammaTable8 = std::array<uint8_t, 256>;
using GammaTable16 = std::array<uint16_t, 65536>;
void FillGammaTable(int gamma, GammaTable8 &table);
void FillGammaTable(int gamma, GammaTable16 &table);

/// Both, of one setting.
struct GammaTables {
    GammaTable8 of8Bits;
    GammaTable16 of16Bits;
};

} // namespace vsccam
