#include "models/usb2/s340.h"

#include "models/usb2/firmware_images.h"
#include "models/usb2/neutral_power_up.h"

// S340: 1280 x 960, USB 2.0, and editions with the controller and FPGA of the USB 3.0 cameras. What
// a USB 3.0 host carries is derived, not verified on hardware.
namespace vsccam {

namespace {

constexpr auto kPowerUp = NeutralUsb2PowerUp<118>(1280, 960);

constexpr Usb2Traits Traits(std::span<const uint8_t> firmware)
{
    return {
        .powerUp = kPowerUp,
        .frameBlock = 1024,
        .firmware = firmware,
        .lastOldFirmware = 2,
    };
}

constexpr Usb2Traits kMonoTraits = Traits(kFWCodeS340MM);
constexpr Usb2Traits kColourTraits = Traits(kFWCodeS340MC);
constexpr Usb2Traits kUsb3Traits = {
    .powerUp = kPowerUp,
    .frameBlock = 1024,
    .megabytesPerS = {.usb2Host = 42, .usb3Host = 360},
};

constexpr CameraModel Edition(const char *name, uint16_t productId, bool colour, bool usb3)
{
    return {
        .name = name,
        .productId = productId,
        .sensorWidth = 1280,
        .sensorHeight = 960,
        .pixelSizeUm = 3.75,
        .colour = colour,
        .bayer = colour ? 2 : 0,
        .usb3Camera = usb3,
        .highByteFirst = true,
        .bins = {1, 2},
        .electronsPerAdu = usb3 ? 3.52F : 3.712F,
        .gainOffset = {2, 5, 48, 9},
        .gain = {.min = 0, .max = 100, .initial = 50},
        .exposureUs = {.min = 64, .max = 2'000'000'000, .initial = usb3 ? 14'000 : 33'000},
        .brightness = {.min = 0, .max = 20, .initial = 0},
        .hasTemperature = true,
        .hasHighSpeed = true,
        .hasAutoBandwidth = true,
    };
}

constexpr CameraModel kMono = Edition("KYR VSC340MM", 0x340A, false, false);
constexpr CameraModel kColour = Edition("KYR VSC340MC", 0x340B, true, false);
constexpr CameraModel kMonoUsb3 = Edition("KYR VSC340MM-S", 0x340D, false, true);
constexpr CameraModel kColourUsb3 = Edition("KYR VSC340MC-S", 0x340E, true, true);

} // namespace

CCameraS340MM::CCameraS340MM(unsigned long) : Fx2Camera(kMono, kMonoTraits) {}
CCameraS340MC::CCameraS340MC(unsigned long) : Fx2Camera(kColour, kColourTraits) {}
CCameraS340MM_S::CCameraS340MM_S(unsigned long) : Fx3Edition(kMonoUsb3, kUsb3Traits) {}
CCameraS340MC_S::CCameraS340MC_S(unsigned long) : Fx3Edition(kColourUsb3, kUsb3Traits) {}

} // namespace vsccam
