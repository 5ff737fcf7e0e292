#include "models/sony/s440.h"

#include "models/edition.h"
#include "models/sony/neutral_power_up.h"

// S440: 1944 x 1224 Sony sensor, USB 3.0, colour only. Rate codes, frame offsets, shortest lines
// (139 of the fastest clocks carry the whole bandwidth of a USB 3.0 host) and start-up list are
// derived, not verified on hardware.
namespace vsccam {

namespace {

using enum Pixels;
using enum Housing;

// No read-out uses the slowest clock.
constexpr SonySensor kSensor = {
    .common = {.budget = {.usb2Host = 42'830, .usb3Host = 256'981},
               .lowestClockKHz = 4'640,
               .initialLine = {.clockKHz = 4'640, .length = 138}},
    .normal = {.kHz = 9'280, .rateCode = 0x01, .shortestLine = 139},
    .highSpeed = {.kHz = 18'560, .rateCode = 0x00, .shortestLine = 139},
    .hardwareBin = {},
    .powerUp = kNeutralPowerUp,
};

constexpr CameraModel kS440 = {
    .sensorWidth = 1944,
    .sensorHeight = 1224,
    .pixelSizeUm = 3.75,
    .bayer = 0,
    .bins = {1, 2},
    .electronsPerAdu = 5.584F,
    .gainOffset = {10, 26, 240, 75},
    .gain = {.min = 0, .max = 480, .initial = 200},
    .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
    .brightness = {.min = 0, .max = 500, .initial = 1},
    .whiteBalance = {.red = 50, .blue = 90},
    .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::LineLimits,
                   StandIn::FrameOffsets},
};

constexpr CameraModel kMC = Edition(kS440, "KYR VSC440MC", 0x440A, Colour);
constexpr CameraModel kMC_C = Edition(kS440, "KYR VSC440MC-Cool", 0x440B, Colour, Cooled);

} // namespace

CCameraS440MC::CCameraS440MC(unsigned long) : SonyDriver(kMC, kSensor) {}
CCameraS440MC_C::CCameraS440MC_C(unsigned long) : SonyDriver(kMC_C, kSensor) {}

} // namespace vsccam
