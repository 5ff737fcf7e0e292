#include "stretch.h"

#include <algorithm>
#include <cmath>

namespace vsctool {
namespace {

constexpr double kShadowsBelowSky = 2.8; // in units of the noise
constexpr double kSkyBrightness = 0.25;
constexpr double kSteps = 4096;    // a sky quieter than one step of the converter shows no noise
constexpr double kSteepest = 1e-4; // midtone beyond which a curve would be a jump

} // namespace

double MidtonesTransfer(double midtone, double value)
{
    if (value <= 0)
        return 0;
    if (value >= 1)
        return 1;
    return (midtone - 1) * value / ((2 * midtone - 1) * value - midtone);
}

std::vector<uint8_t> AutoStretch(const Plane &plane, double fullScale)
{
    const Background sky = BackgroundOf(plane);
    const double noise = std::max({sky.noise, fullScale / kSteps, 1.0});
    const double shadows = std::max(0.0, sky.level - kShadowsBelowSky * noise) / fullScale;
    const double range = 1 - shadows;
    const double skyAboveShadows = (sky.level / fullScale - shadows) / range;
    // The function is its own inverse in this sense: the midtone that brings a level to a wanted
    // brightness is the level transferred with that brightness as midtone.
    const double midtone =
        std::clamp(MidtonesTransfer(kSkyBrightness, skyAboveShadows), kSteepest, 1 - kSteepest);

    std::vector<uint8_t> curve(static_cast<size_t>(fullScale) + 1);
    for (size_t i = 0; i < curve.size(); ++i) {
        const double linear = (static_cast<double>(i) / fullScale - shadows) / range;
        curve[i] = static_cast<uint8_t>(std::lround(255 * MidtonesTransfer(midtone, linear)));
    }
    std::vector<uint8_t> bytes(plane.samples.size());
    std::transform(plane.samples.begin(), plane.samples.end(), bytes.begin(), [&](uint16_t sample) {
        return curve[std::min<size_t>(sample, curve.size() - 1)];
    });
    return bytes;
}

} // namespace vsctool
