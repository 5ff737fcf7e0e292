#include "models/python/s048.h"

#include "models/edition.h"

// S048: 640 x 480 PYTHON sensor, USB 3.0.
namespace vsccam {

namespace {

// The editions differ in pixel size and range of gain, too.
constexpr CameraModel S048(double pixelSizeUm, ControlRange gain)
{
    return {
        .sensorWidth = 640,
        .sensorHeight = 480,
        .pixelSizeUm = pixelSizeUm,
        .bayer = 0,
        .gain = gain,
        .exposureUs = {.min = 16, .max = 64'000, .initial = 10'000},
        .unverified = {StandIn::SequencerProgram, StandIn::RegisterAddresses, StandIn::LineLimits,
                       StandIn::FrameOffsets, StandIn::Bandwidth},
    };
}

constexpr CameraModel kMC = Edition(S048(3.75, {.min = 0, .max = 600, .initial = 200}),
                                    "KYR VSC048MC", 0x048A, Pixels::Colour);
constexpr CameraModel kMM =
    Edition(S048(4.8, {.min = 0, .max = 100, .initial = 50}), "KYR VSC048MM", 0x048B, Pixels::Mono);

} // namespace

CCameraS048MC::CCameraS048MC(unsigned long) : CCameraPython(kMC) {}
CCameraS048MM::CCameraS048MM(unsigned long) : CCameraPython(kMM) {}

} // namespace vsccam
