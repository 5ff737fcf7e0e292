#pragma once

#include "image/image_type.h"
#include "image/kernels.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace vsccam {

/// Which colours the first row of a mosaic has.
enum class BayerPhase { kRG = 0, kBG = 1, kGR = 2, kGB = 3 };

/// A place in the cells of 2 x 2 pixels that a mosaic is made of.
struct Site {
    int column;
    int row;
};

// Place of the red site, by BayerPhase; blue is diagonally opposite, the rest is green.
inline constexpr Site kRedSite[] = {{0, 0}, {1, 1}, {1, 0}, {0, 1}};

constexpr Site RedSite(BayerPhase phase)
{
    return kRedSite[static_cast<size_t>(phase)];
}

inline constexpr int kUnityGain = 50; // of the white balance

/// Phase of a mosaic after it was mirrored.
BayerPhase FlippedPhase(BayerPhase sensor, bool flipH, bool flipV);

/// The image transforms: plain functions of buffers, integer arithmetic throughout. Sizes are in
/// pixels, rows follow each other without padding.
///
/// Frames are delivered by frame_rows.h, which does all steps row by row and needs only the first
/// part of these. Nothing in the library calls the second part, which works on whole images: it is
/// what the class offers by name.
class CAlgorithm {
  public:
    /// Fills the tables, with neutral white balance.
    void RGBYUV_Init();

    /// White balance of red and blue sites, in units of kUnityGain; negative gains count as 0.
    // Named after the plane they fill: the first argument makes the table of the third byte of the
    // output, where the samples of the red sites land.
    void SetRGBWB(int redSites, int blueSites);

    /// Demosaics into RGB24 (bytes blue, green, red), luminance or packed YUV. Other formats,
    /// unknown phases and images of less than 2 x 2 pixels write nothing.
    void BayerConv(BayerPhase phase, const uint8_t *src, uint8_t *dst, int w, int h,
                   IMAGE_TYPE out);

    /// The same for two rows out of an image of `h` rows: `row` is row `y` (even), with its
    /// neighbours around it at a distance of `w`, as far as the image has them.
    void BayerConvRows(BayerPhase phase, const uint8_t *row, int y, uint8_t *dst, int w, int h,
                       IMAGE_TYPE out);

    // ---- By name only ----

    /// BayerConv of one phase.
    void BayerConv_RG(const uint8_t *src, uint8_t *dst, int w, int h, IMAGE_TYPE out);
    void BayerConv_BG(const uint8_t *src, uint8_t *dst, int w, int h, IMAGE_TYPE out);
    void BayerConv_GR(const uint8_t *src, uint8_t *dst, int w, int h, IMAGE_TYPE out);
    void BayerConv_GB(const uint8_t *src, uint8_t *dst, int w, int h, IMAGE_TYPE out);

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

    /// Takes the dark frame away, down to 0, and adds the offset, up to 255. No dark, no change.
    static void SubtractDark(uint8_t *image, int w, int h, unsigned offset, const uint8_t *dark);

    /// Interpolate the cell of 2 x 2 pixels at (x, y) into the RGB24 image `dst`, or into the
    /// scratch cell when there is none. The colour that the name gives to red comes first in the
    /// output. Copy looks at nothing but the cell, Bilinear at the pixels around it, too.
    void BayerCopy_RG(const uint8_t *src, int x, int y, int w, uint8_t *dst);
    void BayerCopy_BG(const uint8_t *src, int x, int y, int w, uint8_t *dst);
    void BayerCopy_GR(const uint8_t *src, int x, int y, int w, uint8_t *dst);
    void BayerCopy_GB(const uint8_t *src, int x, int y, int w, uint8_t *dst);
    void BayerBilinear_RG(const uint8_t *src, int x, int y, int w, uint8_t *dst);
    void BayerBilinear_BG(const uint8_t *src, int x, int y, int w, uint8_t *dst);
    void BayerBilinear_GR(const uint8_t *src, int x, int y, int w, uint8_t *dst);
    void BayerBilinear_GB(const uint8_t *src, int x, int y, int w, uint8_t *dst);

    /// Convert the scratch cell into the image `dst` at (x, y). Packed YUV: each pixel is its
    /// luminance, then for even pixels V and for odd ones U, both of the even pixel. `flip` writes
    /// the lower row of the cell first.
    void RGBTemp2Y8(uint8_t *dst, int x, int y, int w) const;
    void RGBTemp2YUV2(uint8_t *dst, int x, int y, int w, bool flip) const;

    /// Convert whole RGB24 images; `flip` writes the last row first.
    void RGB2YUV2(const uint8_t *rgb, uint8_t *dst, int w, int h, bool flip) const;
    void RGB2Y8(const uint8_t *rgb, uint8_t *dst, int w, int h) const;
    /// The plane of the red sites, the third byte of each pixel.
    static void RGB2R8(const uint8_t *rgb, uint8_t *dst, int w, int h);

  private:
    using Product = std::array<int32_t, 256>; // of each byte and a coefficient, in 1/65536

    template <BayerPhase kCell> void Copy(const uint8_t *src, int x, int y, int w, uint8_t *dst);
    template <BayerPhase kCell>
    void Bilinear(const uint8_t *src, int x, int y, int w, uint8_t *dst);
    template <BayerPhase kImage>
    void ConvertRows(const uint8_t *row, int y, uint8_t *dst, int w, int h, IMAGE_TYPE out);
    template <BayerPhase kCell>
    void ConvertPartialCell(const uint8_t *src, int x, uint8_t *dst, int w, bool lastRow,
                            IMAGE_TYPE out);
    template <BayerPhase kImage>
    void ConvertImage(const uint8_t *src, uint8_t *dst, int w, int h, IMAGE_TYPE out);
    template <BayerPhase kCell>
    bool ConvertInnerRows(const uint8_t *row, uint8_t *dst, int w, IMAGE_TYPE out) const;
    void ConvertScratch(uint8_t *dst, int x, int w, IMAGE_TYPE out) const;

    int Luminance(const uint8_t *pixel) const;
    int V(const uint8_t *pixel) const;
    int U(const uint8_t *pixel) const;
    void PackPair(const uint8_t *even, const uint8_t *odd, uint8_t *out) const;

    std::array<uint8_t, 256> m_iWBRTable{}; // for the first byte of the output
    std::array<uint8_t, 256> m_iWBBTable{}; // for the third byte

    // The same gains for the kernels, in 1/2^14; nothing when they are out of the kernels' range.
    struct KernelGains {
        uint16_t first;
        uint16_t third;
    };
    std::optional<KernelGains> m_kernelGains;

    // Quirk, kept: named after one set of coefficients, filled with another.
    Product YUV02990{};
    Product YUV05870{};
    Product YUV01140{};
    Product YUV0439{};
    Product YUV01684{};
    Product YUV03316{};
    Product YUV04187{};
    Product YUV00813{};

    std::array<uint8_t, 12> m_cell{}; // two rows of two RGB24 pixels
};

} // namespace vsccam
