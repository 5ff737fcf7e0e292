#include "models/sony/s450.h"

#include "models/edition.h"
#include "models/sony/neutral_power_up.h"

// S450 and S460: two 1304 x 976 Sony sensors that are read out alike, USB 3.0, colour only. Rate
// codes and frame offsets are those of the S470, the start-up list is neutral, and that the S460
// shares the S450's shortest lines is a guess: derived, not verified on hardware.
namespace vsccam {

namespace {

using enum Pixels;
using enum Housing;

constexpr SonySensor kSensor = {
    .common = {.budget = {.usb2Host = 43'272, .usb3Host = 190'906},
               .lowestClockKHz = 9'281,
               .initialLine = {.clockKHz = 9'281, .length = 292}},
    .normal = {.kHz = 18'562, .rateCode = 0x01, .shortestLine = 292},
    .highSpeed = {.kHz = 37'124, .rateCode = 0x00, .shortestLine = 249},
    .hardwareBin = {.kHz = 9'281, .rateCode = 0x00, .shortestLine = 145},
    .powerUp = kNeutralPowerUp,
};

constexpr CameraModel kS460 = {
    .sensorWidth = 1304,
    .sensorHeight = 976,
    .pixelSizeUm = 3.75,
    .bayer = 0,
    .bins = {1, 2},
    .gain = {.min = 0, .max = 600, .initial = 200},
    .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
    .hasHardwareBin = true,
    .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::LineLimits,
                   StandIn::FrameOffsets},
};

// No such figures are known of the S460, nor its shortest lines.
constexpr CameraModel kS450 = [] {
    CameraModel sensor = kS460;
    sensor.electronsPerAdu = 4.688F;
    sensor.gainOffset = {10, 20, 300, 140};
    sensor.unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::FrameOffsets};
    return sensor;
}();

constexpr CameraModel kS450MC = Edition(kS450, "KYR VSC450MC", 0x450A, Colour);
constexpr CameraModel kS450MC_C = Edition(kS450, "KYR VSC450MC-Cool", 0x450B, Colour, Cooled);
constexpr CameraModel kS460MC = Edition(kS460, "KYR VSC460MC", 0x460A, Colour);

} // namespace

CCameraS450MC::CCameraS450MC(unsigned long) : SonyDriver(kS450MC, kSensor) {}
CCameraS450MC_C::CCameraS450MC_C(unsigned long) : SonyDriver(kS450MC_C, kSensor) {}
CCameraS460MC::CCameraS460MC(unsigned long) : SonyDriver(kS460MC, kSensor) {}

} // namespace vsccam
