#include "framing.h"

#include <algorithm>
#include <numeric>

namespace vscindi {
namespace {

constexpr int kWidthStep = 8;
constexpr int kHeightStep = 2;
constexpr int kBlock = 1024; // pixels of the sensor

/// Some cameras send whole blocks only.
bool SendsBlocks(const std::string &model)
{
    return model.find("VSC340") != std::string::npos || model.find("VSC052") != std::string::npos;
}

int HeightStep(const CameraFacts &camera, int width, int bin)
{
    if (!SendsBlocks(camera.model))
        return kHeightStep;
    return std::lcm(kHeightStep, kBlock / std::gcd(kBlock, width * bin * bin));
}

/// @param most  that there are on the sensor
int Fit(int asked, int most, int step)
{
    return std::max(std::min(asked, most) / step, 1) * step;
}

} // namespace

Region FitRegion(const CameraFacts &camera, const Region &asked, int bin)
{
    Region region;
    region.width = Fit(asked.width / bin, camera.maxWidth / bin, kWidthStep);
    region.height =
        Fit(asked.height / bin, camera.maxHeight / bin, HeightStep(camera, region.width, bin));
    region.x = std::clamp(asked.x / bin, 0, camera.maxWidth / bin - region.width);
    region.y = std::clamp(asked.y / bin, 0, camera.maxHeight / bin - region.height);
    return region;
}

std::optional<vsctool::Mosaic> MosaicIn(const CameraFacts &camera, const Framing &framing,
                                        bool flipX, bool flipY, bool binsWithoutColour)
{
    const bool isRaw =
        framing.format == PixelFormat::kRaw8 || framing.format == PixelFormat::kRaw16;
    if (!camera.colour || !isRaw || (framing.bin > 1 && binsWithoutColour))
        return std::nullopt;
    return vsctool::MosaicOf(camera.bayerCode, flipX, flipY);
}

Region OnSensor(const Region &binned, int bin)
{
    return {binned.width * bin, binned.height * bin, binned.x * bin, binned.y * bin};
}

} // namespace vscindi
