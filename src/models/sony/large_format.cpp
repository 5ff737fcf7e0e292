#include "models/sony/large_format.h"

#include "models/edition.h"
#include "models/sony/neutral_power_up.h"

// S065, S083, S385: the large Sony sensors, USB 3.0, cooled, colour, one clock for all read-outs.
// Rate codes, frame offsets, start-up list, the initial line of the S083, and shortest lines are
// derived, not verified on hardware: the fast one carries the whole bandwidth of a USB 3.0 host,
// 12 bits take about twice the time.
namespace vsccam {

namespace {

constexpr int kClockKHz = 20'250;

/// What the large sensors differ in.
struct LargeFormat {
    int width, height; // pixels
    double pixelSizeUm;
    float electronsPerAdu;
    std::array<int, 4> gainOffset;
    int usb3Budget;
    int line, fastLine; // clocks
};

constexpr LargeFormat kS065 = {7380, 4928, 5.97, 1.0F, {10, 21, 300, 50}, 333'333, 858, 447};
constexpr LargeFormat kS083 = {4944, 3284, 4.78, 2.82F, {8, 20, 300, 65}, 325'643, 612, 306};
constexpr LargeFormat kS385 = {6036, 4032, 5.97, 1.0F, {10, 21, 300, 50}, 333'333, 706, 365};

constexpr SonySensor SensorOf(const LargeFormat &format)
{
    return {
        .common = {.budget = {.usb2Host = 43'272, .usb3Host = format.usb3Budget},
                   .lowestClockKHz = kClockKHz,
                   .initialLine = {.clockKHz = kClockKHz, .length = format.line},
                   .startXStepAtBin3 = 6,
                   .thermistor = true},
        .normal = {.kHz = kClockKHz, .rateCode = 0x01, .shortestLine = format.line},
        .highSpeed = {.kHz = kClockKHz, .rateCode = 0x00, .shortestLine = format.fastLine},
        .hardwareBin = {},
        .powerUp = kNeutralPowerUp,
    };
}

constexpr CameraModel ModelOf(const LargeFormat &format, const char *name, uint16_t productId)
{
    const CameraModel sensor = {
        .sensorWidth = format.width,
        .sensorHeight = format.height,
        .pixelSizeUm = format.pixelSizeUm,
        .bayer = 0,
        .bins = {1, 2, 3, 4},
        .electronsPerAdu = format.electronsPerAdu,
        .adcBits = 14,
        .gainOffset = format.gainOffset,
        .gain = {.min = 0, .max = 600, .initial = 200},
        .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
        .brightness = {.min = 0, .max = 1024, .initial = 5},
        .whiteBalance = {.red = 60, .blue = 99},
        .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::LineLimits,
                       StandIn::FrameOffsets},
    };
    return Edition(sensor, name, productId, Pixels::Colour, Housing::Cooled);
}

constexpr SonySensor kS065Sensor = SensorOf(kS065);
constexpr SonySensor kS083Sensor = SensorOf(kS083);
constexpr SonySensor kS385Sensor = SensorOf(kS385);
constexpr CameraModel kS065Model = ModelOf(kS065, "KYR VSC065MC-Cool", 0x065A);
constexpr CameraModel kS083Model = ModelOf(kS083, "KYR VSC083MC-Cool", 0x083A);
constexpr CameraModel kS385Model = ModelOf(kS385, "KYR VSC385MC-Cool", 0x385A);

} // namespace

CCameraS065MC::CCameraS065MC(unsigned long) : SonyDriver(kS065Model, kS065Sensor) {}
CCameraS083MC::CCameraS083MC(unsigned long) : SonyDriver(kS083Model, kS083Sensor) {}
CCameraS385MC::CCameraS385MC(unsigned long) : SonyDriver(kS385Model, kS385Sensor) {}

} // namespace vsccam
