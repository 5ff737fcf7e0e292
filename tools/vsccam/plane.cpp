#include "plane.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <numeric>

namespace vsctool {
namespace {

constexpr double kNormalNoisePerMad = 1.4826;
constexpr size_t kLevels = size_t{1} << 16;
using Histogram = std::vector<uint32_t>;

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

double MedianOf(const Histogram &histogram, size_t total)
{
    size_t below = 0;
    for (size_t level = 0; level < histogram.size(); ++level) {
        below += histogram[level];
        if (below * 2 >= total)
            return static_cast<double>(level);
    }
    return 0;
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

Background BackgroundOf(const Plane &plane)
{
    Histogram histogram(kLevels);
    for (const uint16_t sample : plane.samples)
        ++histogram[sample];
    const double median = MedianOf(histogram, plane.samples.size());
    Histogram deviations(kLevels);
    for (size_t level = 0; level < kLevels; ++level)
        deviations[static_cast<size_t>(std::abs(static_cast<long>(level) - std::lround(median)))] +=
            histogram[level];
    return {median, MedianOf(deviations, plane.samples.size()) * kNormalNoisePerMad};
}

} // namespace vsctool
