#include "image/algorithm.h"

#include "image/kernel_choice.h"
#include "image/rows.h"

#include <algorithm>
#include <iterator>

namespace vsccam {

namespace {

/// Phases come from the data of models, as numbers.
constexpr bool IsKnown(BayerPhase phase)
{
    return static_cast<size_t>(phase) < std::size(kRedSite);
}

/// The cells are named after the colour that comes first in the output, the images after red, which
/// comes last: each image is made of the cells of the opposite diagonal.
constexpr BayerPhase CellOf(BayerPhase image)
{
    constexpr BayerPhase kCells[] = {BayerPhase::kBG, BayerPhase::kRG, BayerPhase::kGB,
                                     BayerPhase::kGR};
    return kCells[static_cast<size_t>(image)];
}

constexpr Site Opposite(Site site)
{
    return {1 - site.column, 1 - site.row};
}

std::array<uint8_t, 256> BalanceTable(int gain)
{
    std::array<uint8_t, 256> table{};
    const int64_t factor = std::max(gain, 0);
    for (size_t i = 0; i < table.size(); ++i)
        table[i] = static_cast<uint8_t>(
            std::min<int64_t>(255, static_cast<int64_t>(i) * factor / kUnityGain));
    return table;
}

/// The quotient is rounded up, so that the products of all bytes round down to those of the table.
uint16_t KernelGain(int gain)
{
    return static_cast<uint16_t>(((std::max(gain, 0) << 14) + kUnityGain - 1) / kUnityGain);
}

std::array<int32_t, 256> FixedPointTable(double coefficient)
{
    std::array<int32_t, 256> table{};
    for (size_t v = 0; v < table.size(); ++v)
        table[v] = static_cast<int32_t>(static_cast<double>(v) * coefficient * 65536.0);
    return table;
}

template <class Sample> void BinInPlace(Sample *image, int w, int h, int bin, bool mosaic)
{
    const auto binRow = mosaic ? &BinMosaicRow<Sample> : &BinMonoRow<Sample>;
    const auto count = static_cast<size_t>(w);
    const auto rows = static_cast<size_t>(h);
    const auto factor = static_cast<unsigned>(bin);
    const size_t stride = count * factor;
    for (size_t y = 0; y < rows; ++y) {
        const auto [first, step] = RowsOfBinned(y, rows, factor, mosaic);
        binRow(image + first * stride, step * stride, factor, image + y * count, count);
    }
}

template <class Sample> void Mirror(Sample *image, size_t w, size_t h, bool flipV, bool flipH)
{
    if (flipV && flipH) {
        ReverseInPlace(image, w * h);
        return;
    }
    if (flipH) {
        for (size_t y = 0; y < h; ++y)
            ReverseInPlace(image + y * w, w);
    }
    if (flipV) {
        for (size_t y = 0; y < h / 2; ++y)
            std::swap_ranges(image + y * w, image + (y + 1) * w, image + (h - 1 - y) * w);
    }
}

size_t Area(int w, int h)
{
    return static_cast<size_t>(w) * static_cast<size_t>(h);
}

constexpr bool IsDemosaiced(IMAGE_TYPE out)
{
    return out == kRgb24 || out == kYuv2 || out == kByteImage;
}

int Cross(const uint8_t *p, ptrdiff_t w)
{
    return (p[-w] + p[-1] + p[1] + p[w]) >> 2;
}

int Diagonal(const uint8_t *p, ptrdiff_t w)
{
    return (p[-w - 1] + p[-w + 1] + p[w - 1] + p[w + 1]) >> 2;
}

int Horizontal(const uint8_t *p)
{
    return (p[-1] + p[1]) >> 1;
}

int Vertical(const uint8_t *p, ptrdiff_t w)
{
    return (p[-w] + p[w]) >> 1;
}

/// A cell of the mosaic, and the place of its pixels in an RGB24 image.
struct Cell {
    const uint8_t *sites;
    ptrdiff_t sitesWidth;
    uint8_t *pixels;
    ptrdiff_t pixelsWidth;

    const uint8_t *At(Site site) const { return sites + site.row * sitesWidth + site.column; }
    uint8_t *PixelAt(Site site) const
    {
        return pixels + 3 * (site.row * pixelsWidth + site.column);
    }
};

void Store(uint8_t *pixel, uint8_t first, int second, uint8_t third)
{
    pixel[0] = first;
    pixel[1] = static_cast<uint8_t>(second);
    pixel[2] = third;
}

} // namespace

BayerPhase FlippedPhase(BayerPhase sensor, bool flipH, bool flipV)
{
    if (!IsKnown(sensor))
        return sensor;
    // Quirk, kept: takes sizes for even. Images of odd ones, flipped, come in the wrong colours.
    Site red = RedSite(sensor);
    red.column ^= flipH ? 1 : 0;
    red.row ^= flipV ? 1 : 0;
    const auto *found = std::find_if(std::begin(kRedSite), std::end(kRedSite), [red](Site site) {
        return site.column == red.column && site.row == red.row;
    });
    return static_cast<BayerPhase>(found - std::begin(kRedSite));
}

void CAlgorithm::RGBYUV_Init()
{
    YUV02990 = FixedPointTable(0.257);
    YUV05870 = FixedPointTable(0.504);
    YUV01140 = FixedPointTable(0.098);
    YUV0439 = FixedPointTable(0.439);
    YUV01684 = FixedPointTable(0.071);
    YUV03316 = FixedPointTable(0.368);
    YUV04187 = FixedPointTable(0.291);
    YUV00813 = FixedPointTable(0.148);
    SetRGBWB(kUnityGain, kUnityGain);
}

void CAlgorithm::SetRGBWB(int redSites, int blueSites)
{
    m_iWBBTable = BalanceTable(redSites);
    m_iWBRTable = BalanceTable(blueSites);
    m_kernelGains.reset();
    if (std::max(redSites, blueSites) <= kLargestKernelGain)
        m_kernelGains = {KernelGain(blueSites), KernelGain(redSites)};
}

void CAlgorithm::MonoBin(uint8_t *image8, uint16_t *image16, int w, int h, int bin, bool is16)
{
    if (bin < 2)
        return;
    if (is16)
        BinInPlace(image16, w, h, bin, false);
    else
        BinInPlace(image8, w, h, bin, false);
}

void CAlgorithm::ColorRAWBin(uint8_t *image8, uint16_t *image16, int w, int h, int bin, bool is16)
{
    if (bin < 2)
        return;
    if (is16)
        BinInPlace(image16, w, h, bin, true);
    else
        BinInPlace(image8, w, h, bin, true);
}

void CAlgorithm::SoftMisc(uint8_t *image, int w, int h, int mul, bool is16, bool flipV, bool flipH)
{
    const auto width = static_cast<size_t>(w) * static_cast<size_t>(mul);
    const auto height = static_cast<size_t>(h) * static_cast<size_t>(mul);
    if (is16)
        Mirror(reinterpret_cast<uint16_t *>(image), width, height, flipV, flipH);
    else
        Mirror(image, width, height, flipV, flipH);
}

void CAlgorithm::Gamma(uint8_t *image, const uint8_t *table, int w, int h)
{
    LookUp(image, table, image, Area(w, h));
}

void CAlgorithm::Gamma(uint16_t *image, const uint16_t *table, int w, int h)
{
    LookUp(image, table, image, Area(w, h));
}

void CAlgorithm::SubtractDark(uint8_t *image, int w, int h, unsigned offset, const uint8_t *dark)
{
    if (dark)
        vsccam::SubtractDark(image, dark, offset, image, Area(w, h));
}

// ------------------------------------------------------------------------------------- demosaic

// Border cells: each pixel takes the two colours of its cell, and green from itself or as a mean.
template <BayerPhase kCell>
void CAlgorithm::Copy(const uint8_t *src, int x, int y, int w, uint8_t *dst)
{
    const ptrdiff_t at = ptrdiff_t{y} * w + x;
    const Cell cell = dst ? Cell{src + at, w, dst + 3 * at, w} : Cell{src + at, w, &m_cell[0], 2};
    constexpr Site kFirst = RedSite(kCell);
    constexpr Site kThird = Opposite(kFirst);
    constexpr Site kGreens[] = {{kThird.column, kFirst.row}, {kFirst.column, kThird.row}};
    const uint8_t first = m_iWBRTable[*cell.At(kFirst)];
    const uint8_t third = m_iWBBTable[*cell.At(kThird)];
    const int greens[] = {*cell.At(kGreens[0]), *cell.At(kGreens[1])};
    const int mean = (greens[0] + greens[1]) >> 1;
    Store(cell.PixelAt(kFirst), first, mean, third);
    Store(cell.PixelAt(kGreens[0]), first, greens[0], third);
    Store(cell.PixelAt(kGreens[1]), first, greens[1], third);
    Store(cell.PixelAt(kThird), first, mean, third);
}

// Inner cells: each pixel takes the means of its nearest neighbours. Balance follows the averaging;
// green is never balanced.
template <BayerPhase kCell>
void CAlgorithm::Bilinear(const uint8_t *src, int x, int y, int w, uint8_t *dst)
{
    const ptrdiff_t at = ptrdiff_t{y} * w + x;
    const Cell cell = dst ? Cell{src + at, w, dst + 3 * at, w} : Cell{src + at, w, &m_cell[0], 2};
    constexpr Site kFirst = RedSite(kCell);
    constexpr Site kThird = Opposite(kFirst);
    constexpr Site kGreenBesideFirst = {kThird.column, kFirst.row};
    constexpr Site kGreenBesideThird = {kFirst.column, kThird.row};
    const auto first = [this](int v) { return m_iWBRTable[static_cast<size_t>(v)]; };
    const auto third = [this](int v) { return m_iWBBTable[static_cast<size_t>(v)]; };

    const uint8_t *p = cell.At(kFirst);
    Store(cell.PixelAt(kFirst), first(*p), Cross(p, w), third(Diagonal(p, w)));
    p = cell.At(kGreenBesideFirst);
    Store(cell.PixelAt(kGreenBesideFirst), first(Horizontal(p)), *p, third(Vertical(p, w)));
    p = cell.At(kGreenBesideThird);
    Store(cell.PixelAt(kGreenBesideThird), first(Vertical(p, w)), *p, third(Horizontal(p)));
    p = cell.At(kThird);
    Store(cell.PixelAt(kThird), first(Diagonal(p, w)), Cross(p, w), third(*p));
}

void CAlgorithm::ConvertScratch(uint8_t *dst, int x, int w, IMAGE_TYPE out) const
{
    if (out == kByteImage)
        RGBTemp2Y8(dst, x, 0, w);
    else if (out == kYuv2)
        RGBTemp2YUV2(dst, x, 0, w, false);
}

/// The last cell of an odd size lies partly outside: what is missing repeats the nearest sites of
/// its colour, and only the pixels inside are written.
template <BayerPhase kCell>
void CAlgorithm::ConvertPartialCell(const uint8_t *src, int x, uint8_t *dst, int w, bool lastRow,
                                    IMAGE_TYPE out)
{
    const ptrdiff_t right = x + 1 < w ? x + 1 : x - 1;
    const ptrdiff_t below = lastRow ? -ptrdiff_t{w} : ptrdiff_t{w};
    const uint8_t sites[] = {src[x], src[right], src[below + x], src[below + right]};
    uint8_t pixels[12] = {};
    Copy<kCell>(sites, 0, 0, 2, out == kRgb24 ? pixels : nullptr);
    ConvertScratch(pixels, 0, 2, out);
    const auto bytes = static_cast<ptrdiff_t>(BytesPerPixel(out));
    const int columns = std::min(2, w - x);
    for (ptrdiff_t row = 0; row < (lastRow ? 1 : 2); ++row)
        std::copy_n(pixels + row * 2 * bytes, columns * bytes, dst + (row * w + x) * bytes);
}

/// Converts the inner cells of two rows by a kernel; false when there is none for them.
template <BayerPhase kCell>
bool CAlgorithm::ConvertInnerRows(const uint8_t *row, uint8_t *dst, int w, IMAGE_TYPE out) const
{
    const Kernels &kernels = CurrentKernels();
    const auto kernel = out == kRgb24  ? kernels.demosaicRgb
                        : out == kYuv2 ? kernels.demosaicYuv
                                       : kernels.demosaicY8;
    const auto width = static_cast<size_t>(w);
    const size_t cells = (width - 1) / 2; // without the one at the right end
    if (!m_kernelGains || cells < 2)
        return false;
    constexpr Site kFirst = RedSite(kCell);
    for (size_t y = 0; y < 2; ++y) {
        const bool ownIsFirst = y == kFirst.row;
        const MosaicRow mosaic{.pixels = row + y * width + 2,
                               .stride = width,
                               .greenFirst = ownIsFirst == (kFirst.column == 1),
                               .ownIsFirst = ownIsFirst,
                               .firstGain = m_kernelGains->first,
                               .thirdGain = m_kernelGains->third};
        if (kernel(mosaic, dst + (y * width + 2) * BytesPerPixel(out), 2 * cells - 2) == 0)
            return false;
    }
    return true;
}

template <BayerPhase kImage>
void CAlgorithm::ConvertRows(const uint8_t *row, int y, uint8_t *dst, int w, int h, IMAGE_TYPE out)
{
    constexpr BayerPhase kCell = CellOf(kImage);
    uint8_t *const rgb = out == kRgb24 ? dst : nullptr;
    const bool borderRows = y == 0 || y >= h - 2;
    const bool partialRows = y + 1 == h;
    const bool innerDone = !borderRows && ConvertInnerRows<kCell>(row, dst, w, out);
    for (int x = 0; x < w; x += 2) {
        if (innerDone && x == 2)
            x = (w - 1) & ~1;
        if (partialRows || x + 1 == w) {
            ConvertPartialCell<kCell>(row, x, dst, w, partialRows, out);
            continue;
        }
        if (borderRows || x == 0 || x >= w - 2)
            Copy<kCell>(row, x, 0, w, rgb);
        else
            Bilinear<kCell>(row, x, 0, w, rgb);
        ConvertScratch(dst, x, w, out);
    }
}

template <BayerPhase kImage>
void CAlgorithm::ConvertImage(const uint8_t *src, uint8_t *dst, int w, int h, IMAGE_TYPE out)
{
    if (!IsDemosaiced(out) || w < 2 || h < 2)
        return;
    for (int y = 0; y < h; y += 2) {
        const size_t at = Area(w, y);
        ConvertRows<kImage>(src + at, y, dst + at * BytesPerPixel(out), w, h, out);
    }
}

void CAlgorithm::BayerConv_RG(const uint8_t *src, uint8_t *dst, int w, int h, IMAGE_TYPE out)
{
    ConvertImage<BayerPhase::kRG>(src, dst, w, h, out);
}
void CAlgorithm::BayerConv_BG(const uint8_t *src, uint8_t *dst, int w, int h, IMAGE_TYPE out)
{
    ConvertImage<BayerPhase::kBG>(src, dst, w, h, out);
}
void CAlgorithm::BayerConv_GR(const uint8_t *src, uint8_t *dst, int w, int h, IMAGE_TYPE out)
{
    ConvertImage<BayerPhase::kGR>(src, dst, w, h, out);
}
void CAlgorithm::BayerConv_GB(const uint8_t *src, uint8_t *dst, int w, int h, IMAGE_TYPE out)
{
    ConvertImage<BayerPhase::kGB>(src, dst, w, h, out);
}

void CAlgorithm::BayerConv(BayerPhase phase, const uint8_t *src, uint8_t *dst, int w, int h,
                           IMAGE_TYPE out)
{
    constexpr decltype(&CAlgorithm::BayerConv_RG) kByPhase[] = {
        &CAlgorithm::BayerConv_RG, &CAlgorithm::BayerConv_BG, &CAlgorithm::BayerConv_GR,
        &CAlgorithm::BayerConv_GB};
    if (IsKnown(phase))
        (this->*kByPhase[static_cast<size_t>(phase)])(src, dst, w, h, out);
}

void CAlgorithm::BayerConvRows(BayerPhase phase, const uint8_t *row, int y, uint8_t *dst, int w,
                               int h, IMAGE_TYPE out)
{
    constexpr decltype(&CAlgorithm::ConvertRows<BayerPhase::kRG>) kByPhase[] = {
        &CAlgorithm::ConvertRows<BayerPhase::kRG>, &CAlgorithm::ConvertRows<BayerPhase::kBG>,
        &CAlgorithm::ConvertRows<BayerPhase::kGR>, &CAlgorithm::ConvertRows<BayerPhase::kGB>};
    if (IsKnown(phase) && IsDemosaiced(out) && w >= 2 && h >= 2)
        (this->*kByPhase[static_cast<size_t>(phase)])(row, y, dst, w, h, out);
}

void CAlgorithm::BayerCopy_RG(const uint8_t *src, int x, int y, int w, uint8_t *dst)
{
    Copy<BayerPhase::kRG>(src, x, y, w, dst);
}
void CAlgorithm::BayerCopy_BG(const uint8_t *src, int x, int y, int w, uint8_t *dst)
{
    Copy<BayerPhase::kBG>(src, x, y, w, dst);
}
void CAlgorithm::BayerCopy_GR(const uint8_t *src, int x, int y, int w, uint8_t *dst)
{
    Copy<BayerPhase::kGR>(src, x, y, w, dst);
}
void CAlgorithm::BayerCopy_GB(const uint8_t *src, int x, int y, int w, uint8_t *dst)
{
    Copy<BayerPhase::kGB>(src, x, y, w, dst);
}
void CAlgorithm::BayerBilinear_RG(const uint8_t *src, int x, int y, int w, uint8_t *dst)
{
    Bilinear<BayerPhase::kRG>(src, x, y, w, dst);
}
void CAlgorithm::BayerBilinear_BG(const uint8_t *src, int x, int y, int w, uint8_t *dst)
{
    Bilinear<BayerPhase::kBG>(src, x, y, w, dst);
}
void CAlgorithm::BayerBilinear_GR(const uint8_t *src, int x, int y, int w, uint8_t *dst)
{
    Bilinear<BayerPhase::kGR>(src, x, y, w, dst);
}
void CAlgorithm::BayerBilinear_GB(const uint8_t *src, int x, int y, int w, uint8_t *dst)
{
    Bilinear<BayerPhase::kGB>(src, x, y, w, dst);
}

// -------------------------------------------------------------------------- luminance and colour

// Sums of 1/65536; negative ones round down.
int CAlgorithm::Luminance(const uint8_t *pixel) const
{
    return (YUV02990[pixel[0]] + YUV05870[pixel[1]] + YUV01140[pixel[2]]) >> 16;
}

int CAlgorithm::V(const uint8_t *pixel) const
{
    return ((YUV0439[pixel[0]] - YUV01684[pixel[2]] - YUV03316[pixel[1]]) >> 16) + 128;
}

int CAlgorithm::U(const uint8_t *pixel) const
{
    return ((YUV0439[pixel[2]] - YUV00813[pixel[0]] - YUV04187[pixel[1]]) >> 16) + 128;
}

void CAlgorithm::PackPair(const uint8_t *even, const uint8_t *odd, uint8_t *out) const
{
    const int bytes[] = {Luminance(even) + 16, V(even), Luminance(odd) + 16, U(even)};
    std::ranges::transform(bytes, out, [](int v) { return static_cast<uint8_t>(v); });
}

void CAlgorithm::RGBTemp2Y8(uint8_t *dst, int x, int y, int w) const
{
    const ptrdiff_t at = ptrdiff_t{y} * w + x;
    for (ptrdiff_t i = 0; i < 4; ++i)
        dst[at + i / 2 * w + i % 2] = static_cast<uint8_t>(Luminance(&m_cell[0] + 3 * i));
}

void CAlgorithm::RGBTemp2YUV2(uint8_t *dst, int x, int y, int w, bool flip) const
{
    uint8_t *const upper = dst + 2 * (ptrdiff_t{y} * w + x);
    uint8_t *const lower = upper + 2 * ptrdiff_t{w};
    PackPair(&m_cell[0], &m_cell[3], flip ? lower : upper);
    PackPair(&m_cell[6], &m_cell[9], flip ? upper : lower);
}

void CAlgorithm::RGB2YUV2(const uint8_t *rgb, uint8_t *dst, int w, int h, bool flip) const
{
    for (ptrdiff_t y = 0; y < h; ++y) {
        const uint8_t *row = rgb + 3 * (flip ? h - 1 - y : y) * w;
        uint8_t *out = dst + 2 * y * w;
        const size_t done = CurrentKernels().rgbToYuv(row, out, static_cast<size_t>(w));
        for (auto x = static_cast<ptrdiff_t>(done); x + 1 < w; x += 2)
            PackPair(row + 3 * x, row + 3 * x + 3, out + 2 * x);
        if (w % 2 != 0) { // a pixel without its pair
            const uint8_t *last = row + 3 * (w - 1);
            out[2 * (w - 1)] = static_cast<uint8_t>(Luminance(last) + 16);
            out[2 * (w - 1) + 1] = static_cast<uint8_t>(V(last));
        }
    }
}

void CAlgorithm::RGB2Y8(const uint8_t *rgb, uint8_t *dst, int w, int h) const
{
    for (size_t i = CurrentKernels().rgbToY8(rgb, dst, Area(w, h)); i < Area(w, h); ++i)
        dst[i] = static_cast<uint8_t>(Luminance(rgb + 3 * i));
}

void CAlgorithm::RGB2R8(const uint8_t *rgb, uint8_t *dst, int w, int h)
{
    for (size_t i = 0; i < Area(w, h); ++i)
        dst[i] = rgb[3 * i + 2];
}

} // namespace vsccam
