#include "models/sony/s450.h"

#include "models/sony/neutral_power_up.h"

// S450: 1304 x 976 Sony sensor, USB 3.0, colour only. The rate codes and frame offsets are those of
// the S470, the start-up list is neutral: derived, not verified on hardware.
namespace vsccam {

constinit const SonySensor kS450Sensor = {
    .common = {.budget = {.usb2Host = 43'272, .usb3Host = 190'906},
               .lowestClockKHz = 9'281,
               .initialLine = {.clockKHz = 9'281, .length = 292}},
    .normal = {.kHz = 18'562, .rateCode = 0x01, .shortestLine = 292},
    .highSpeed = {.kHz = 37'124, .rateCode = 0x00, .shortestLine = 249},
    .hardwareBin = {.kHz = 9'281, .rateCode = 0x00, .shortestLine = 145},
    .other = {.kHz = 0, .rateCode = 0x02, .shortestLine = 292},
    .powerUp = kNeutralPowerUp,
};

namespace {

constexpr CameraModel Edition(const char *name, uint16_t productId, bool cooled)
{
    return {
        .name = name,
        .productId = productId,
        .sensorWidth = 1304,
        .sensorHeight = 976,
        .pixelSizeUm = 3.75,
        .colour = true,
        .bayer = 0,
        .cooled = cooled,
        .bins = {1, 2},
        .electronsPerAdu = 4.688F,
        .gainOffset = {10, 20, 300, 140},
        .gain = {.min = 0, .max = 600, .initial = 200},
        .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
        .hasBrightness = true,
        .hasTemperature = true,
        .hasHardwareBin = true,
        .hasHighSpeed = true,
        .hasAutoBandwidth = true,
    };
}

constexpr CameraModel kColour = Edition("KYR VSC450MC", 0x450A, false);
constexpr CameraModel kColourCool = Edition("KYR VSC450MC-Cool", 0x450B, true);

} // namespace

CCameraS450MC::CCameraS450MC(unsigned long) : SonyDriver(kColour, kS450Sensor) {}
CCameraS450MC_C::CCameraS450MC_C(unsigned long) : SonyDriver(kColourCool, kS450Sensor) {}

} // namespace vsccam
