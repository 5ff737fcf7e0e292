#pragma once

#include "image/image_type.h"

#include <array>
#include <cstdint>

namespace vsccam {

/// Which colours the first row of a mosaic has.
enum class BayerPhase { kRG = 0, kBG = 1, kGR = 2, kGB = 3 };

/// Phase of a mosaic after it was mirrored.
BayerPhase FlippedPhase(BayerPhase sensor, bool flipH, bool flipV);

/// The image transforms: plain functions of buffers, integer arithmetic throughout. Sizes are in
/// pixels, rows follow each other without padding.
class CAlgorithm {
  public:
    /// Tables of one colour plane's contribution to luminance, in 1/65536.
    using LumaTable = std::array<int32_t, 256>;

    /// Fills the tables, with neutral white balance.
    void RGBYUV_Init();

    /// White balance of red and blue sites, 50 is unity; negative gains count as 0.
    // Named after the plane they fill: the first argument makes the table of the third byte of the
    // output, where the samples of the red sites land.
    void SetRGBWB(int redSites, int blueSites);

    /// Replaces blocks of bin x bin pixels by their mean, in place. `w` and `h` are the size of the
    /// result; bin factors below 2 leave the buffer as it is.
    static void MonoBin(uint8_t *image8, uint16_t *image16, int w, int h, int bin, bool is16);

    /// The same for a mosaic, which stays one: means of bin x bin pixels of one colour.
    static void ColorRAWBin(uint8_t *image8, uint16_t *image16, int w, int h, int bin, bool is16);

    /// Mirrors in place: top to bottom (flipV), left to right (flipH).
    static void SoftMisc(uint8_t *image, int w, int h, int mul, bool is16, bool flipV, bool flipH);

    /// Replaces every sample by its entry in the table.
    static void Gamma(uint8_t *image, const uint8_t *table, int w, int h);
    static void Gamma(uint16_t *image, const uint16_t *table, int w, int h);

    /// Takes a dark frame off and adds `offset`, between 0 and 255. Without a dark frame nothing
    /// happens.
    static void SubtractDark(uint8_t *image, int w, int h, unsigned offset, const uint8_t *dark);

    /// Demosaics into RGB24 (bytes blue, green, red) or luminance; other formats and images of less
    /// than 2 x 2 pixels write nothing.
    void BayerConv(BayerPhase phase, const uint8_t *src, uint8_t *dst, int w, int h,
                   IMAGE_TYPE out) const;

  private:
    uint8_t Luminance(const uint8_t *pixel) const;

    std::array<uint8_t, 256> m_iWBRTable{}; // for the first byte of the output
    std::array<uint8_t, 256> m_iWBBTable{}; // for the third byte
    LumaTable YUV02990{};
    LumaTable YUV05870{};
    LumaTable YUV01140{};
};

} // namespace vsccam
