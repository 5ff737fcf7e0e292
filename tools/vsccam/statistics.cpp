#include "statistics.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace vsctool {
namespace {

constexpr double kDetectionInNoise = 8; // height of a star's peak above the sky
constexpr int kApertureRadius = 12;
constexpr size_t kStarsMeasured = 20;
constexpr int kLeastLitNeighbours = 3; // a hot pixel stands alone

bool IsPeak(const Plane &plane, int x, int y)
{
    const int value = plane.Row(y)[x];
    for (int v = y - 1; v <= y + 1; ++v) {
        for (int u = x - 1; u <= x + 1; ++u) {
            const bool before = v < y || (v == y && u < x); // of equals, the first is the peak
            const int other = plane.Row(v)[u];
            if (other > value || (before && other == value))
                return false;
        }
    }
    return true;
}

int LitNeighbours(const Plane &plane, const StarPeak &peak, double level)
{
    int lit = -1; // the peak itself
    for (int v = peak.y - 1; v <= peak.y + 1; ++v)
        lit += static_cast<int>(std::count_if(plane.Row(v) + peak.x - 1, plane.Row(v) + peak.x + 2,
                                              [&](int sample) { return sample > level; }));
    return lit;
}

/// Calls visit(dx, dy, flux above the sky) for every pixel of the aperture that is surely lit.
template <class Visit>
void ForAperture(const Plane &plane, const Background &sky, const StarPeak &star, Visit visit)
{
    for (int dy = -kApertureRadius; dy <= kApertureRadius; ++dy) {
        for (int dx = -kApertureRadius; dx <= kApertureRadius; ++dx) {
            const double flux = plane.Row(star.y + dy)[star.x + dx] - sky.level;
            if (dx * dx + dy * dy <= kApertureRadius * kApertureRadius && flux > 2 * sky.noise)
                visit(dx, dy, flux);
        }
    }
}

template <class Sample> Levels LevelsOf(const uint8_t *bytes, size_t count, int saturation)
{
    Sample min = std::numeric_limits<Sample>::max();
    Sample max = 0;
    uint64_t sum = 0;
    size_t saturated = 0;
    for (size_t i = 0; i < count; ++i) {
        Sample sample = 0;
        std::memcpy(&sample, bytes + i * sizeof sample, sizeof sample);
        min = std::min(min, sample);
        max = std::max(max, sample);
        sum += sample;
        saturated += sample >= saturation;
    }
    const auto total = static_cast<double>(count);
    return {min, max, static_cast<double>(sum) / total,
            100 * static_cast<double>(saturated) / total};
}

} // namespace

Levels LevelsOf(const Picture &picture)
{
    const int saturation = SaturationOf(picture.format);
    if (picture.format == PixelFormat::kRaw16)
        return LevelsOf<uint16_t>(picture.bytes.data(), picture.Pixels(), saturation);
    return LevelsOf<uint8_t>(picture.bytes.data(), picture.bytes.size(), saturation);
}

std::vector<StarPeak> FindStars(const Plane &plane, const Background &sky, int saturation)
{
    const int threshold =
        static_cast<int>(sky.level + std::max(kDetectionInNoise * sky.noise, 1.0));
    std::vector<StarPeak> peaks;
    for (int y = kApertureRadius; y < plane.height - kApertureRadius; ++y) {
        for (int x = kApertureRadius; x < plane.width - kApertureRadius; ++x) {
            const int value = plane.Row(y)[x];
            if (value <= threshold || value >= saturation || !IsPeak(plane, x, y))
                continue;
            const StarPeak peak{x, y, value};
            if (LitNeighbours(plane, peak, sky.level + (value - sky.level) / 8) >=
                kLeastLitNeighbours)
                peaks.push_back(peak);
        }
    }
    const size_t kept = std::min(peaks.size(), kStarsMeasured);
    std::partial_sort(peaks.begin(), peaks.begin() + static_cast<long>(kept), peaks.end(),
                      [](const StarPeak &a, const StarPeak &b) { return a.value > b.value; });
    peaks.resize(kept);
    return peaks;
}

double HalfFluxDiameter(const Plane &plane, const Background &sky, const StarPeak &star)
{
    // Twice the flux-weighted mean distance from the centre is what focusing programs call HFD.
    double flux = 0;
    double momentX = 0;
    double momentY = 0;
    ForAperture(plane, sky, star, [&](int dx, int dy, double f) {
        flux += f;
        momentX += f * dx;
        momentY += f * dy;
    });
    double distance = 0;
    ForAperture(plane, sky, star, [&](int dx, int dy, double f) {
        distance += f * std::hypot(dx - momentX / flux, dy - momentY / flux);
    });
    return 2 * distance / flux;
}

std::optional<Sharpness> SharpnessOf(const Plane &luminance, int saturation)
{
    const Background sky = BackgroundOf(HistogramOf(luminance));
    std::vector<double> diameters;
    for (const StarPeak &star : FindStars(luminance, sky, saturation))
        diameters.push_back(HalfFluxDiameter(luminance, sky, star));
    if (diameters.empty())
        return std::nullopt;
    const auto middle = diameters.begin() + static_cast<long>(diameters.size() / 2);
    std::nth_element(diameters.begin(), middle, diameters.end());
    return Sharpness{*middle, static_cast<int>(diameters.size())};
}

} // namespace vsctool
