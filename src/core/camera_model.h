#pragma once

#include "catalogue/control_list.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace vsccam {

struct WhiteBalanceRange {
    int min = 1;
    int max = 99;
    int red = 52;
    int blue = 95;
};

/// Parts of a model's data that are not known of it. What stands in for them is derived from other
/// models, or does nothing.
enum class StandIn : uint8_t {
    None,
    StartUpList,
    SequencerProgram,
    RegisterAddresses,
    ClockCodes,
    LineLimits,
    FrameOffsets,
    Bandwidth,
    FpgaSetUp,
    Firmware,
    Everything,
};

/// What a model is, apart from how its sensor is programmed: the data of one edition of a sensor.
struct CameraModel {
    const char *name = "";
    uint16_t productId = 0;
    int sensorWidth = 0; // pixels
    int sensorHeight = 0;
    double pixelSizeUm = 0;
    bool colour = false;
    int bayer = 0; // BayerPhase of colour models
    bool usb3Camera = true;
    bool cooled = false;
    bool highByteFirst = false;      // of 16-bit samples on the wire
    std::array<uint8_t, 16> bins{1}; // zero-terminated unless full
    float electronsPerAdu = 0;
    int adcBits = 12; // of the converter: the upper bits of 16-bit samples
    std::array<int, 4> gainOffset{-1, -1, -1, -1};

    ControlRange gain;
    ControlRange exposureUs;
    ControlRange gamma{1, 100, 50};
    ControlRange brightness{0, 240, 1};
    ControlRange bandwidth{40, 100, 40}; // per cent
    WhiteBalanceRange whiteBalance{};

    bool hasBrightness = true; // the control
    bool hasHardwareBin = false;
    // When hardware bins by 4, the sensor does 2 x 2 of it and software the rest.
    bool hardwareBin4IsHalf = false;

    // Parts that are not even known. Nothing of the library was run on hardware.
    std::array<StandIn, 6> unverified{StandIn::Everything};
};

/// Room for a frame of 16 bits per pixel.
constexpr size_t LargestFrameBytes(const CameraModel &model)
{
    return size_t{2} * static_cast<size_t>(model.sensorWidth) *
           static_cast<size_t>(model.sensorHeight);
}

/// Tells in one debug line what of the model's data was never verified.
void PrintUnverified(const CameraModel &model);

} // namespace vsccam
