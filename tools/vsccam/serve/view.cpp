#include "serve/view.h"

#include <algorithm>
#include <cstring>

namespace vsctool::serve {
namespace {

/// Every second sample of a row whose pixels are `PixelBytes` apart.
template <class Sample, int PixelBytes> class EverySecond {
  public:
    explicit EverySecond(const uint8_t *row) : m_row(row) {}
    unsigned operator[](int i) const
    {
        Sample sample = 0;
        std::memcpy(&sample, m_row + i * 2 * PixelBytes, sizeof sample);
        return sample;
    }

  private:
    const uint8_t *m_row;
};

/// What stands for four samples: their mean where there are 16 bits; else their sum, of which
/// nothing is lost.
template <class Sample> constexpr unsigned kDividedBy = sizeof(Sample) == 1 ? 1 : 4;

/// Means, or sums, of cells of 2 x 2 pixels of which each has the sample at `byte`.
template <class Sample, int PixelBytes> Plane MeansOfFour(const Picture &picture, int byte)
{
    Plane plane(picture.width / 2, picture.height / 2);
    const int rowBytes = picture.width * PixelBytes;
    for (int y = 0; y < plane.height; ++y) {
        const uint8_t *row = picture.bytes.data() + static_cast<ptrdiff_t>(2) * y * rowBytes + byte;
        const EverySecond<Sample, PixelBytes> a(row);
        const EverySecond<Sample, PixelBytes> b(row + PixelBytes);
        const EverySecond<Sample, PixelBytes> c(row + rowBytes);
        const EverySecond<Sample, PixelBytes> d(row + rowBytes + PixelBytes);
        uint16_t *out = plane.Row(y);
        for (int x = 0; x < plane.width; ++x)
            out[x] = static_cast<uint16_t>((a[x] + b[x] + c[x] + d[x]) / kDividedBy<Sample>);
    }
    return plane;
}

/// The colours of the cells of a mosaic, on the same scale as those.
template <class Sample> std::vector<Plane> CellsOf(const Picture &picture, Mosaic mosaic)
{
    using Samples = EverySecond<Sample, sizeof(Sample)>;
    constexpr unsigned kScale = 4 / kDividedBy<Sample>;
    const int pixel = sizeof(Sample);
    const int rowBytes = picture.width * pixel;
    const Plane empty(picture.width / 2, picture.height / 2);
    std::vector<Plane> planes(3, empty);
    for (int y = 0; y < empty.height; ++y) {
        const uint8_t *cell = picture.bytes.data() + static_cast<ptrdiff_t>(2) * y * rowBytes;
        const uint8_t *redRow = cell + mosaic.redRow * rowBytes;
        const uint8_t *blueRow = cell + (1 - mosaic.redRow) * rowBytes;
        const int redColumn = mosaic.redColumn * pixel;
        const int blueColumn = pixel - redColumn;
        const Samples red(redRow + redColumn);
        const Samples greenBesideRed(redRow + blueColumn);
        const Samples greenBesideBlue(blueRow + redColumn);
        const Samples blue(blueRow + blueColumn);
        uint16_t *reds = planes[0].Row(y);
        uint16_t *greens = planes[1].Row(y);
        uint16_t *blues = planes[2].Row(y);
        for (int x = 0; x < empty.width; ++x) {
            reds[x] = static_cast<uint16_t>(red[x] * kScale);
            greens[x] =
                static_cast<uint16_t>((greenBesideRed[x] + greenBesideBlue[x]) * kScale / 2);
            blues[x] = static_cast<uint16_t>(blue[x] * kScale);
        }
    }
    return planes;
}

bool Is16Bit(const Picture &picture)
{
    return picture.format == PixelFormat::kRaw16;
}

std::vector<Plane> HalfPlanes(const Picture &picture, std::optional<Mosaic> mosaic)
{
    if (mosaic)
        return Is16Bit(picture) ? CellsOf<uint16_t>(picture, *mosaic)
                                : CellsOf<uint8_t>(picture, *mosaic);
    if (picture.format != PixelFormat::kRgb24)
        return {Is16Bit(picture) ? MeansOfFour<uint16_t, 2>(picture, 0)
                                 : MeansOfFour<uint8_t, 1>(picture, 0)};
    return {MeansOfFour<uint8_t, 3>(picture, 2), MeansOfFour<uint8_t, 3>(picture, 1),
            MeansOfFour<uint8_t, 3>(picture, 0)};
}

constexpr int kFull8 = 0xFF;
constexpr int kFull16 = 0xFFFF;

} // namespace

View FullSize(const Picture &picture, std::optional<Mosaic> mosaic)
{
    return {PlanesOf(picture, mosaic), Is16Bit(picture) ? kFull16 : kFull8, 1, 1};
}

View HalfSize(const Picture &picture, std::optional<Mosaic> mosaic)
{
    if (picture.width < 2 || picture.height < 2)
        return FullSize(picture, mosaic);
    if (Is16Bit(picture))
        return {HalfPlanes(picture, mosaic), kFull16, 1, 2};
    return {HalfPlanes(picture, mosaic), 4 * kFull8, 4, 2};
}

View Halved(View view)
{
    if (view.Width() < 2 || view.Height() < 2)
        return view;
    for (Plane &plane : view.planes)
        plane = Shrunk(std::move(plane), 2);
    view.reduction *= 2;
    return view;
}

Window Around(const Picture &picture, int x, int y, int side)
{
    const auto begin = [side](int middle, int size) {
        return std::clamp(middle - side / 2, 0, std::max(size - side, 0)) & ~1;
    };
    Window window{begin(x, picture.width), begin(y, picture.height), 0, 0};
    window.width = std::min(side, picture.width - window.x);
    window.height = std::min(side, picture.height - window.y);
    return window;
}

Picture Cropped(const Picture &picture, const Window &window)
{
    const auto pixel = static_cast<size_t>(BytesPerPixel(picture.format));
    const auto at = [&](int x, int y) {
        return (static_cast<size_t>(y) * static_cast<size_t>(picture.width) +
                static_cast<size_t>(x)) *
               pixel;
    };
    Picture crop{window.width, window.height, picture.format, {}};
    const size_t rowBytes = static_cast<size_t>(window.width) * pixel;
    crop.bytes.resize(rowBytes * static_cast<size_t>(window.height));
    for (int y = 0; y < window.height; ++y)
        std::memcpy(&crop.bytes[static_cast<size_t>(y) * rowBytes],
                    &picture.bytes[at(window.x, window.y + y)], rowBytes);
    return crop;
}

} // namespace vsctool::serve
