#include "models/usb2/s340.h"

#include "models/usb2/neutral_power_up.h"
#include "models/usb2/usb2_edition.h"

// S340: 1280 x 960, USB 2.0, and editions with the controller and FPGA of the USB 3.0 cameras. What
// a USB 3.0 host carries is derived, not verified on hardware.
namespace vsccam {

namespace {

constexpr auto kPowerUp = NeutralUsb2PowerUp<118>(1280, 960);

constexpr Usb2Traits Traits(FirmwareFile firmware)
{
    return {
        .powerUp = kPowerUp,
        .frameBlock = 1024,
        .firmware = firmware,
        .lastOldFirmware = 2,
    };
}

constexpr Usb2Traits kMonoTraits = Traits({"s340mm.fx2", 4238});
constexpr Usb2Traits kColourTraits = Traits({"s340mc.fx2", 4265});
constexpr Usb2Traits kUsb3Traits = {
    .powerUp = kPowerUp,
    .frameBlock = 1024,
    .megabytesPerS = {.usb2Host = 42, .usb3Host = 360},
};

constexpr CameraModel kSensor = {
    .sensorWidth = 1280,
    .sensorHeight = 960,
    .pixelSizeUm = 3.75,
    .bayer = 2,
    .highByteFirst = true,
    .bins = {1, 2},
    .electronsPerAdu = 3.712F,
    .gainOffset = {2, 5, 48, 9},
    .gain = {.min = 0, .max = 100, .initial = 50},
    .exposureUs = {.min = 64, .max = 2'000'000'000, .initial = 33'000},
    .brightness = {.min = 0, .max = 20, .initial = 0},
    .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::Firmware},
};

constexpr CameraModel OnUsb3(CameraModel model)
{
    model.usb3Camera = true;
    model.electronsPerAdu = 3.52F;
    model.exposureUs.initial = 14'000;
    model.unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::Bandwidth,
                        StandIn::FpgaSetUp};
    return model;
}

constexpr CameraModel kMono = Usb2Edition(kSensor, "KYR VSC340MM", 0x340A, Pixels::Mono);
constexpr CameraModel kColour = Usb2Edition(kSensor, "KYR VSC340MC", 0x340B, Pixels::Colour);
constexpr CameraModel kMonoUsb3 =
    OnUsb3(Usb2Edition(kSensor, "KYR VSC340MM-S", 0x340D, Pixels::Mono));
constexpr CameraModel kColourUsb3 =
    OnUsb3(Usb2Edition(kSensor, "KYR VSC340MC-S", 0x340E, Pixels::Colour));

} // namespace

CCameraS340MM::CCameraS340MM(unsigned long) : Fx2Camera(kMono, kMonoTraits) {}
CCameraS340MC::CCameraS340MC(unsigned long) : Fx2Camera(kColour, kColourTraits) {}
CCameraS340MM_S::CCameraS340MM_S(unsigned long) : Fx3Edition(kMonoUsb3, kUsb3Traits) {}
CCameraS340MC_S::CCameraS340MC_S(unsigned long) : Fx3Edition(kColourUsb3, kUsb3Traits) {}

} // namespace vsccam
