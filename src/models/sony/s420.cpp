#include "models/sony/s420.h"

#include "models/edition.h"
#include "models/sony/neutral_power_up.h"

// S420: 1936 x 1216 Sony sensor, USB 3.0. Rate codes, frame offsets, shortest lines (69 clocks
// carry the whole bandwidth of a USB 3.0 host, 12 bits take twice the time) and start-up list are
// derived, not verified on hardware.
namespace vsccam {

namespace {

using enum Pixels;
using enum Housing;

// One clock for all read-outs.
constexpr SonySensor kSensor = {
    .common = {.budget = {.usb2Host = 43'272, .usb3Host = 390'000},
               .lowestClockKHz = 13'920,
               .initialLine = {.clockKHz = 37'125, .length = 1440}},
    .normal = {.kHz = 13'920, .rateCode = 0x01, .shortestLine = 138},
    .highSpeed = {.kHz = 13'920, .rateCode = 0x00, .shortestLine = 69},
    .hardwareBin = {},
    .powerUp = kNeutralPowerUp,
};

constexpr CameraModel kS420 = {
    .sensorWidth = 1936,
    .sensorHeight = 1216,
    .pixelSizeUm = 5.86,
    .bayer = 0,
    .bins = {1, 2},
    .electronsPerAdu = 7.92F,
    .gainOffset = {10, 27, 240, 90},
    .gain = {.min = 0, .max = 400, .initial = 200},
    .exposureUs = {.min = 32, .max = 300'000'000, .initial = 10'000},
    .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::LineLimits,
                   StandIn::FrameOffsets},
};

constexpr CameraModel S420(const char *name, uint16_t productId, Pixels pixels,
                           Housing housing = Uncooled)
{
    CameraModel model = Edition(kS420, name, productId, pixels, housing);
    if (housing == Cooled)
        model.exposureUs.max = 2'000'000'000;
    if (pixels == Colour)
        model.whiteBalance = {.red = 60, .blue = 99};
    return model;
}

constexpr CameraModel kMM = S420("KYR VSC420MM", 0x420B, Mono);
constexpr CameraModel kMC = S420("KYR VSC420MC", 0x420A, Colour);
constexpr CameraModel kMM_C = S420("KYR VSC420MM-Cool", 0x420D, Mono, Cooled);
constexpr CameraModel kMC_C = S420("KYR VSC420MC-Cool", 0x420C, Colour, Cooled);

} // namespace

CCameraS420MM::CCameraS420MM(unsigned long) : SonyDriver(kMM, kSensor) {}
CCameraS420MC::CCameraS420MC(unsigned long) : SonyDriver(kMC, kSensor) {}
CCameraS420MM_C::CCameraS420MM_C(unsigned long) : SonyDriver(kMM_C, kSensor) {}
CCameraS420MC_C::CCameraS420MC_C(unsigned long) : SonyDriver(kMC_C, kSensor) {}

} // namespace vsccam
