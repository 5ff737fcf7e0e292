#include "image/algorithm.h"

#include <algorithm>
#include <cstddef>

namespace vsccam {

namespace {

// Place of the red site in a cell of 2 x 2; blue is diagonally opposite, the rest is green.
struct RedSite {
    int column;
    int row;
};
constexpr RedSite kRedSite[] = {{0, 0}, {1, 1}, {1, 0}, {0, 1}}; // by BayerPhase

std::array<uint8_t, 256> BalanceTable(int gain)
{
    std::array<uint8_t, 256> table{};
    const int64_t factor = std::max(gain, 0);
    for (size_t i = 0; i < table.size(); ++i)
        table[i] =
            static_cast<uint8_t>(std::min<int64_t>(255, static_cast<int64_t>(i) * factor / 50));
    return table;
}

CAlgorithm::LumaTable FixedPointTable(double coefficient)
{
    CAlgorithm::LumaTable table{};
    for (size_t v = 0; v < table.size(); ++v)
        table[v] = static_cast<int32_t>(static_cast<double>(v) * coefficient * 65536.0);
    return table;
}

/// The mean of bin x bin pixels that lie `step` apart. The divisions truncate one after the other.
template <class Sample> Sample BlockMean(const Sample *first, ptrdiff_t stride, int bin, int step)
{
    uint32_t sum = 0;
    for (int row = 0; row < bin; ++row)
        for (int column = 0; column < bin; ++column)
            sum += first[row * step * stride + column * step];
    const auto factor = static_cast<uint32_t>(bin);
    return static_cast<Sample>(sum / factor / factor);
}

template <class Sample> void BinMono(Sample *image, int w, int h, int bin)
{
    const ptrdiff_t stride = ptrdiff_t{w} * bin;
    Sample *out = image;
    for (ptrdiff_t y = 0; y < h; ++y)
        for (ptrdiff_t x = 0; x < w; ++x)
            *out++ = BlockMean(image + y * bin * stride + x * bin, stride, bin, 1);
}

template <class Sample> void BinMosaic(Sample *image, int w, int h, int bin)
{
    const ptrdiff_t stride = ptrdiff_t{w} * bin;
    const auto origin = [bin](ptrdiff_t i) { return (i & 1) + (i & ~ptrdiff_t{1}) * bin; };
    // The last cell of an odd size would reach beyond the image: those rows and columns have only
    // one site of each colour per block, and take it as it is.
    const auto fits = [bin](ptrdiff_t first, ptrdiff_t size) {
        return first + 2 * (bin - 1) < size;
    };
    const ptrdiff_t rows = ptrdiff_t{h} * bin;
    Sample *out = image;
    for (ptrdiff_t y = 0; y < h; ++y) {
        for (ptrdiff_t x = 0; x < w; ++x) {
            const ptrdiff_t row = origin(y);
            const ptrdiff_t column = origin(x);
            const Sample *first = image + row * stride + column;
            *out++ =
                fits(row, rows) && fits(column, stride) ? BlockMean(first, stride, bin, 2) : *first;
        }
    }
}

template <class Sample> void Mirror(Sample *image, ptrdiff_t w, ptrdiff_t h, bool flipV, bool flipH)
{
    if (flipV && flipH) {
        std::reverse(image, image + w * h);
        return;
    }
    if (flipH) {
        for (ptrdiff_t y = 0; y < h; ++y)
            std::reverse(image + y * w, image + (y + 1) * w);
    }
    if (flipV) {
        for (ptrdiff_t y = 0; y < h / 2; ++y)
            std::swap_ranges(image + y * w, image + (y + 1) * w, image + (h - 1 - y) * w);
    }
}

/// A mosaic that continues beyond its edges, by the nearest site of the same colour.
class Mosaic {
  public:
    Mosaic(const uint8_t *image, int w, int h) : m_image(image), m_width(w), m_height(h) {}

    int At(int x, int y) const
    {
        return m_image[ptrdiff_t{Inside(y, m_height)} * m_width + Inside(x, m_width)];
    }
    /// Means of the neighbours; they truncate.
    int Cross(int x, int y) const { return (Row(x, y) + Column(x, y)) >> 2; }
    int Diagonal(int x, int y) const { return (Row(x, y - 1) + Row(x, y + 1)) >> 2; }
    int Horizontal(int x, int y) const { return Row(x, y) >> 1; }
    int Vertical(int x, int y) const { return Column(x, y) >> 1; }

  private:
    static int Inside(int i, int size) { return i < size ? i : i - 2; }
    int Row(int x, int y) const { return At(x - 1, y) + At(x + 1, y); }
    int Column(int x, int y) const { return At(x, y - 1) + At(x, y + 1); }

    const uint8_t *m_image;
    int m_width;
    int m_height;
};

struct Colour {
    int red;
    int green;
    int blue;
};

/// Border cells: each pixel takes the red and the blue of its cell.
Colour CopyRule(const Mosaic &mosaic, int cellX, int cellY, int x, int y, RedSite red)
{
    const int redX = cellX + red.column;
    const int redY = cellY + red.row;
    const int blueX = cellX + 1 - red.column;
    const int blueY = cellY + 1 - red.row;
    const bool green = (x == redX) != (y == redY);
    return {.red = mosaic.At(redX, redY),
            .green =
                green ? mosaic.At(x, y) : (mosaic.At(redX, blueY) + mosaic.At(blueX, redY)) >> 1,
            .blue = mosaic.At(blueX, blueY)};
}

/// Inner cells: each pixel takes the means of its nearest neighbours.
Colour BilinearRule(const Mosaic &mosaic, int x, int y, bool redColumn, bool redRow)
{
    const int own = mosaic.At(x, y);
    if (redColumn && redRow)
        return {own, mosaic.Cross(x, y), mosaic.Diagonal(x, y)};
    if (!redColumn && !redRow)
        return {mosaic.Diagonal(x, y), mosaic.Cross(x, y), own};
    if (redRow)
        return {mosaic.Horizontal(x, y), own, mosaic.Vertical(x, y)};
    return {mosaic.Vertical(x, y), own, mosaic.Horizontal(x, y)};
}

} // namespace

BayerPhase FlippedPhase(BayerPhase sensor, bool flipH, bool flipV)
{
    RedSite red = kRedSite[static_cast<size_t>(sensor)];
    red.column ^= flipH ? 1 : 0;
    red.row ^= flipV ? 1 : 0;
    const auto *found = std::find_if(std::begin(kRedSite), std::end(kRedSite), [red](RedSite site) {
        return site.column == red.column && site.row == red.row;
    });
    return static_cast<BayerPhase>(found - std::begin(kRedSite));
}

void CAlgorithm::RGBYUV_Init()
{
    // Quirk, kept: the tables are named after one set of coefficients and filled with another.
    YUV02990 = FixedPointTable(0.257);
    YUV05870 = FixedPointTable(0.504);
    YUV01140 = FixedPointTable(0.098);
    SetRGBWB(50, 50);
}

void CAlgorithm::SetRGBWB(int redSites, int blueSites)
{
    m_iWBBTable = BalanceTable(redSites);
    m_iWBRTable = BalanceTable(blueSites);
}

void CAlgorithm::MonoBin(uint8_t *image8, uint16_t *image16, int w, int h, int bin, bool is16)
{
    if (bin < 2)
        return;
    if (is16)
        BinMono(image16, w, h, bin);
    else
        BinMono(image8, w, h, bin);
}

void CAlgorithm::ColorRAWBin(uint8_t *image8, uint16_t *image16, int w, int h, int bin, bool is16)
{
    if (bin < 2)
        return;
    if (is16)
        BinMosaic(image16, w, h, bin);
    else
        BinMosaic(image8, w, h, bin);
}

void CAlgorithm::SoftMisc(uint8_t *image, int w, int h, int mul, bool is16, bool flipV, bool flipH)
{
    if (is16)
        Mirror(reinterpret_cast<uint16_t *>(image), ptrdiff_t{w} * mul, ptrdiff_t{h} * mul, flipV,
               flipH);
    else
        Mirror(image, ptrdiff_t{w} * mul, ptrdiff_t{h} * mul, flipV, flipH);
}

void CAlgorithm::Gamma(uint8_t *image, const uint8_t *table, int w, int h)
{
    std::transform(image, image + ptrdiff_t{w} * h, image, [table](uint8_t v) { return table[v]; });
}

void CAlgorithm::Gamma(uint16_t *image, const uint16_t *table, int w, int h)
{
    std::transform(image, image + ptrdiff_t{w} * h, image,
                   [table](uint16_t v) { return table[v]; });
}

uint8_t CAlgorithm::Luminance(const uint8_t *pixel) const
{
    return static_cast<uint8_t>((YUV02990[pixel[0]] + YUV05870[pixel[1]] + YUV01140[pixel[2]]) >>
                                16);
}

void CAlgorithm::SubtractDark(uint8_t *image, int w, int h, unsigned offset, const uint8_t *dark)
{
    if (!dark)
        return;
    const int64_t pixels = int64_t{w} * h;
    for (int64_t i = 0; i < pixels; ++i) {
        const unsigned over = image[i] > dark[i] ? image[i] - dark[i] : 0U;
        image[i] = static_cast<uint8_t>(std::min(over + offset, 255U));
    }
}

void CAlgorithm::BayerConv(BayerPhase phase, const uint8_t *src, uint8_t *dst, int w, int h,
                           IMAGE_TYPE out) const
{
    if ((out != kRgb24 && out != kByteImage) || w < 2 || h < 2)
        return;
    const Mosaic mosaic(src, w, h);
    const RedSite red = kRedSite[static_cast<size_t>(phase)];
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const int cellX = x & ~1;
            const int cellY = y & ~1;
            const bool border = cellX == 0 || cellY == 0 || cellX >= w - 2 || cellY >= h - 2;
            const Colour colour =
                border ? CopyRule(mosaic, cellX, cellY, x, y, red)
                       : BilinearRule(mosaic, x, y, (x & 1) == red.column, (y & 1) == red.row);
            // Balance follows the averaging; green is never balanced.
            const uint8_t pixel[3] = {m_iWBRTable[static_cast<size_t>(colour.blue)],
                                      static_cast<uint8_t>(colour.green),
                                      m_iWBBTable[static_cast<size_t>(colour.red)]};
            const ptrdiff_t index = ptrdiff_t{y} * w + x;
            if (out == kRgb24)
                std::copy_n(pixel, 3, dst + index * 3);
            else
                dst[index] = Luminance(pixel);
        }
    }
}

} // namespace vsccam
