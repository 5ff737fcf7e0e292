#pragma once

#include "models/usb2/neutral_power_up.h"
#include "models/usb2/usb2_family.h"

// S340: 1280 x 960, USB 2.0, and editions with the controller and FPGA of the USB 3.0 cameras. What
// a USB 3.0 host carries is derived, not verified on hardware.
namespace vsccam {

namespace s340 {

inline constexpr auto kPowerUp = NeutralUsb2PowerUp<118>(1280, 960);

constexpr Usb2Traits Traits(FirmwareFile firmware)
{
    return {
        .powerUp = kPowerUp,
        .frameBlock = 1024,
        .firmware = firmware,
        .lastOldFirmware = 2,
    };
}

inline constexpr CameraModel kModel = {
    .sensorWidth = 1280,
    .sensorHeight = 960,
    .pixelSizeUm = 3.75,
    .bayer = 2,
    .usb3Camera = false,
    .highByteFirst = true,
    .bins = {1, 2},
    .electronsPerAdu = 3.712F,
    .gainOffset = {2, 5, 48, 9},
    .gain = {.min = 0, .max = 100, .initial = 50},
    .exposureUs = {.min = 64, .max = 2'000'000'000, .initial = 33'000},
    .brightness = {.min = 0, .max = 20, .initial = 0},
    .hasBrightness = false,
    .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::Firmware},
};

} // namespace s340

struct S340Mono : Fx2Family {
    static constexpr Usb2Traits kTraits = s340::Traits({"s340mm.fx2", 4238});
    static constexpr CameraModel kModel = s340::kModel;
    static constexpr Product kProducts[] = {
        {1, 0x340A, "KYR VSC340MM", Mono},
    };
};

struct S340Colour : Fx2Family {
    static constexpr Usb2Traits kTraits = s340::Traits({"s340mc.fx2", 4265});
    static constexpr CameraModel kModel = s340::kModel;
    static constexpr Product kProducts[] = {
        {2, 0x340B, "KYR VSC340MC", Colour},
    };
};

struct S340OnUsb3 : Fx3Family {
    static constexpr Usb2Traits kTraits = {
        .powerUp = s340::kPowerUp,
        .frameBlock = 1024,
        .megabytesPerS = {.usb2Host = 42, .usb3Host = 360},
    };
    static constexpr CameraModel kModel = s340::kModel;
    static constexpr void Adapt(CameraModel &model)
    {
        model.usb3Camera = true;
        model.electronsPerAdu = 3.52F;
        model.exposureUs.initial = 14'000;
        model.unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::Bandwidth,
                            StandIn::FpgaSetUp};
    }
    static constexpr Product kProducts[] = {
        {9, 0x340D, "KYR VSC340MM-S", Mono},
        {10, 0x340E, "KYR VSC340MC-S", Colour},
    };
};

using CCameraS340MM = CameraOf<S340Mono, Pixels::Mono>;
using CCameraS340MC = CameraOf<S340Colour, Pixels::Colour>;
using CCameraS340MM_S = CameraOf<S340OnUsb3, Pixels::Mono>;
using CCameraS340MC_S = CameraOf<S340OnUsb3, Pixels::Colour>;

} // namespace vsccam
