#pragma once

#include "core/camera_model.h"

#include <cstdint>

/// The newer control interface: a camera lists its controls and describes each of them.
namespace vsccam {

enum VSC_CONTROL_TYPE : int {
    kControlGain = 0,
    kControlExposure,
    kControlGamma,
    kControlRed,
    kControlBlue,
    kControlBrightness,
    kControlBandwidth,
    kControlOverClock,
    kControlTemperature, // tenths of a degree
    kControlFlip,
    kControlAutoMaxGain,
    kControlAutoMaxExposure, // seconds
    kControlAutoBrightness,
    kControlHardwareBin,
    kControlHighSpeed,
    kControlCoolerPower,
    kControlTargetTemp, // degrees
    kControlCoolerOn,
    kControlMonoBin,
    kControlFanOn,
};
inline constexpr int kControlTypes = kControlFanOn + 1;

/// Results of SetControlValue.
inline constexpr int kControlSet = 0;
inline constexpr int kControlNotSettable = 3;
inline constexpr int kControlRefused = 16;

/// What hosts are told of a control; flags are 0 or 1.
struct _VSC_CONTROL_CAPS { // NOLINT(bugprone-reserved-identifier): the interface's name
    char name[64];
    char description[128];
    int32_t maximum;
    int32_t minimum;
    int32_t initial;
    int32_t autoSupported;
    int32_t writable;
    VSC_CONTROL_TYPE type;
};

/// What hosts are told of a camera; flags are 0 or 1.
struct _VSC_CAMERA_INFO { // NOLINT(bugprone-reserved-identifier): the interface's name
    char name[64];
    int32_t reserved; // not written
    int32_t maxHeight;
    int32_t maxWidth;
    int32_t colour;
    int32_t bayer;
    int32_t bins[16];      // ends with 0 unless full
    int32_t imageTypes[8]; // as hosts number them; ends with -1
    double pixelSizeUm;
    int32_t mechanicalShutter;
    int32_t guidePort;
    int32_t cooled;
    int32_t usb3Host;
    int32_t usb3Camera;
    float electronsPerAdu;
};

/// What is known of each control of a model, also of those that it does not offer.
ControlRange RangeOf(const CameraModel &model, VSC_CONTROL_TYPE type);
bool HasAuto(const CameraModel &model, VSC_CONTROL_TYPE type);
bool Offers(const CameraModel &model, VSC_CONTROL_TYPE type);

} // namespace vsccam
