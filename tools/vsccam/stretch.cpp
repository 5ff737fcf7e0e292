#include "stretch.h"

#include <algorithm>
#include <cmath>

namespace vsctool {
namespace {

constexpr double kShadowsBelowSky = 2.8; // in units of the noise
constexpr double kSkyBrightness = 0.25;
constexpr double kSteps = 4096; // a sky quieter than one step of the converter shows no noise
constexpr double kFlattest = 1 - 1e-4; // midtone beyond which a curve would be a jump

} // namespace

double MidtonesTransfer(double midtone, double value)
{
    if (value <= 0)
        return 0;
    if (value >= 1)
        return 1;
    return (midtone - 1) * value / ((2 * midtone - 1) * value - midtone);
}

Stretch AutoStretch(const Background &sky, double fullScale, double step)
{
    const double noise = std::max({sky.noise, fullScale / kSteps, step});
    const double skyAboveBlack = kShadowsBelowSky * noise;
    const double black = std::max(0.0, sky.level - skyAboveBlack) / fullScale;
    // The function is its own inverse in this sense: the midtone that brings a level to a wanted
    // brightness is the level transferred with that brightness as midtone. A sky too dark to lie
    // that far above black stays darker.
    const double midtone =
        MidtonesTransfer(kSkyBrightness, skyAboveBlack / fullScale / (1 - black));
    return {black, std::min(midtone, kFlattest), 1};
}

Curve CurveOf(const Stretch &stretch, size_t fullScale)
{
    Curve curve(fullScale + 1, 255);
    size_t from = 0;
    for (int byte = 0; byte < 255 && from < curve.size(); ++byte) {
        // The inverse of a transfer is the one with the opposite midtone. It tells from where on a
        // sample is nearer to the next byte.
        const double end = MidtonesTransfer(1 - stretch.midtone, (byte + 0.5) / 255);
        const double sample = (stretch.black + end * (stretch.white - stretch.black)) *
                              static_cast<double>(fullScale);
        const size_t to = std::min(curve.size(), static_cast<size_t>(std::ceil(sample)));
        std::fill(curve.begin() + static_cast<long>(from), curve.begin() + static_cast<long>(to),
                  static_cast<uint8_t>(byte));
        from = to;
    }
    return curve;
}

std::vector<uint8_t> Stretched(std::span<const Plane> planes, std::span<const Curve> curves)
{
    std::vector<uint8_t> bytes(planes.size() * planes[0].samples.size());
    for (size_t c = 0; c < planes.size(); ++c) {
        const uint8_t *curve = curves[c].data();
        uint8_t *byte = &bytes[c];
        for (const uint16_t sample : planes[c].samples) {
            *byte = curve[sample];
            byte += planes.size();
        }
    }
    return bytes;
}

} // namespace vsctool
