#include "plane.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <numeric>

namespace vsctool {
namespace {

constexpr double kNormalNoisePerMad = 1.4826;
constexpr size_t kLevels = size_t{1} << 16;

enum Colour { kRed, kGreen, kBlue };

/// Colours of the 2 x 2 cell, row by row.
std::array<Colour, 4> CellOf(Mosaic phase)
{
    std::array<Colour, 4> cell = {kGreen, kGreen, kGreen, kGreen};
    const int red = phase.redRow * 2 + phase.redColumn;
    cell[red] = kRed;
    cell[3 - red] = kBlue;
    return cell;
}

} // namespace

Plane SamplesOf(const Picture &picture)
{
    Plane plane(picture.width, picture.height);
    if (picture.format == PixelFormat::kRaw16)
        std::memcpy(plane.samples.data(), picture.bytes.data(), picture.Pixels() * 2);
    else
        std::copy_n(picture.bytes.begin(), picture.Pixels(), plane.samples.begin());
    return plane;
}

Rgb SplitRgb24(const Picture &picture)
{
    const Plane empty(picture.width, picture.height);
    Rgb rgb = {empty, empty, empty};
    for (size_t i = 0; i < picture.Pixels(); ++i) {
        rgb[kBlue].samples[i] = picture.bytes[3 * i];
        rgb[kGreen].samples[i] = picture.bytes[3 * i + 1];
        rgb[kRed].samples[i] = picture.bytes[3 * i + 2];
    }
    return rgb;
}

Rgb Demosaic(const Plane &mosaic, Mosaic phase)
{
    const std::array<Colour, 4> cell = CellOf(phase);
    const auto colourAt = [&](int x, int y) { return cell[(y & 1) * 2 + (x & 1)]; };
    const Plane empty(mosaic.width, mosaic.height);
    Rgb rgb = {empty, empty, empty};
    for (int y = 0; y < mosaic.height; ++y) {
        for (int x = 0; x < mosaic.width; ++x) {
            std::array<unsigned, 3> sum{};
            std::array<unsigned, 3> count{};
            for (int v = std::max(y - 1, 0); v <= std::min(y + 1, mosaic.height - 1); ++v) {
                for (int u = std::max(x - 1, 0); u <= std::min(x + 1, mosaic.width - 1); ++u) {
                    sum[colourAt(u, v)] += mosaic.Row(v)[u];
                    ++count[colourAt(u, v)];
                }
            }
            for (size_t c = 0; c < rgb.size(); ++c)
                rgb[c].Row(y)[x] = static_cast<uint16_t>(count[c] ? sum[c] / count[c] : 0);
            rgb[colourAt(x, y)].Row(y)[x] = mosaic.Row(y)[x];
        }
    }
    return rgb;
}

std::vector<Plane> PlanesOf(const Picture &picture, std::optional<Mosaic> mosaic)
{
    if (!mosaic && picture.format != PixelFormat::kRgb24)
        return {SamplesOf(picture)};
    Rgb rgb = mosaic ? Demosaic(SamplesOf(picture), *mosaic) : SplitRgb24(picture);
    return {std::make_move_iterator(rgb.begin()), std::make_move_iterator(rgb.end())};
}

Plane Shrunk(Plane plane, int factor)
{
    if (factor <= 1)
        return plane;
    Plane shrunk(plane.width / factor, plane.height / factor);
    for (int y = 0; y < shrunk.height; ++y) {
        for (int x = 0; x < shrunk.width; ++x) {
            unsigned sum = 0;
            for (int v = 0; v < factor; ++v) {
                const uint16_t *block = plane.Row(y * factor + v) + x * factor;
                sum = std::accumulate(block, block + factor, sum);
            }
            shrunk.Row(y)[x] = static_cast<uint16_t>(sum / static_cast<unsigned>(factor * factor));
        }
    }
    return shrunk;
}

Plane Luminance(const Picture &picture, bool isMosaic)
{
    if (picture.format == PixelFormat::kRgb24) {
        Plane plane(picture.width, picture.height);
        for (size_t i = 0; i < picture.Pixels(); ++i) {
            const uint8_t *bgr = &picture.bytes[3 * i];
            plane.samples[i] = static_cast<uint16_t>((bgr[0] + 2 * bgr[1] + bgr[2]) / 4);
        }
        return plane;
    }
    Plane plane = SamplesOf(picture);
    if (!isMosaic)
        return plane;
    for (int y = 0; y + 1 < plane.height; ++y) {
        uint16_t *row = plane.Row(y);
        const uint16_t *next = plane.Row(y + 1);
        for (int x = 0; x + 1 < plane.width; ++x)
            row[x] = static_cast<uint16_t>((row[x] + row[x + 1] + next[x] + next[x + 1]) / 4);
    }
    return plane;
}

Histogram HistogramOf(const Plane &plane)
{
    Histogram histogram(kLevels);
    for (const uint16_t sample : plane.samples)
        ++histogram[sample];
    return histogram;
}

Background BackgroundOf(const Histogram &histogram)
{
    const uint64_t total = std::accumulate(histogram.begin(), histogram.end(), uint64_t{0});
    const auto isHalf = [total](uint64_t count) { return count * 2 >= total; };
    size_t median = 0;
    for (uint64_t below = histogram[0]; !isHalf(below); below += histogram[median])
        ++median;
    // The window around the median grows until half of the samples are within it.
    size_t deviation = 0;
    for (uint64_t within = histogram[median]; !isHalf(within);) {
        ++deviation;
        within += deviation <= median ? histogram[median - deviation] : 0;
        within += median + deviation < histogram.size() ? histogram[median + deviation] : 0;
    }
    return {static_cast<double>(median), static_cast<double>(deviation) * kNormalNoisePerMad};
}

} // namespace vsctool
