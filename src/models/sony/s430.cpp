#include "models/sony/s430.h"

#include "models/edition.h"
#include "models/sony/neutral_power_up.h"

// S430: 3096 x 2080 Sony sensor, USB 3.0. Rate codes, frame offsets, shortest lines (216 clocks
// carry the whole bandwidth of a USB 3.0 host, 12 bits take about twice the time) and start-up list
// are derived, not verified on hardware.
namespace vsccam {

namespace {

using enum Pixels;
using enum Housing;

// One clock for all read-outs; none uses the slow one.
constexpr SonySensor kSensor = {
    .common = {.budget = {.usb2Host = 43'000, .usb3Host = 385'000},
               .lowestClockKHz = 6'750,
               .initialLine = {.clockKHz = 6'750, .length = 420}},
    .normal = {.kHz = 27'000, .rateCode = 0x01, .shortestLine = 420},
    .highSpeed = {.kHz = 27'000, .rateCode = 0x00, .shortestLine = 216},
    .hardwareBin = {},
    .powerUp = kNeutralPowerUp,
};

constexpr CameraModel kS430 = {
    .sensorWidth = 3096,
    .sensorHeight = 2080,
    .pixelSizeUm = 2.4,
    .bayer = 0,
    .bins = {1, 2, 3, 4},
    .electronsPerAdu = 0.916F,
    .adcBits = 14,
    .gainOffset = {25, 25, 270, 340},
    .gain = {.min = 0, .max = 510, .initial = 210},
    .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
    .brightness = {.min = 0, .max = 600, .initial = 10},
    .whiteBalance = {.red = 70, .blue = 90},
    .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::LineLimits,
                   StandIn::FrameOffsets},
};

constexpr CameraModel kMM = Edition(kS430, "KYR VSC430MM", 0x430C, Mono);
constexpr CameraModel kMC = Edition(kS430, "KYR VSC430MC", 0x430A, Colour);
constexpr CameraModel kMM_C = Edition(kS430, "KYR VSC430MM-Cool", 0x430D, Mono, Cooled);
constexpr CameraModel kMC_C = Edition(kS430, "KYR VSC430MC-Cool", 0x430B, Colour, Cooled);

} // namespace

CCameraS430MM::CCameraS430MM(unsigned long) : SonyDriver(kMM, kSensor) {}
CCameraS430MC::CCameraS430MC(unsigned long) : SonyDriver(kMC, kSensor) {}
CCameraS430MM_C::CCameraS430MM_C(unsigned long) : SonyDriver(kMM_C, kSensor) {}
CCameraS430MC_C::CCameraS430MC_C(unsigned long) : SonyDriver(kMC_C, kSensor) {}

} // namespace vsccam
