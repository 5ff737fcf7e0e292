#pragma once

#include "core/camera_model.h"
#include "core/frame_geometry.h"
#include "image/exposure_setting.h"
#include "image/image_type.h"

#include <cstdint>

namespace vsccam {

/// Limits of what automatic exposure and gain may set, and what they aim at.
struct AutoLimits {
    int maxGain = 50;
    int maxExposureS = 30;
    int targetBrightness = 100;
};

/// What is set of a camera, and what the sensor makes of it. Values of one moment belong together.
struct Settings {
    explicit Settings(const CameraModel &model);
    Settings() = default;

    int width = 0; // of the frames that hosts get
    int height = 0;
    int bin = 1;
    IMAGE_TYPE imageType = kByteImage;
    bool rawOutput = false;
    bool output16Bits = false;
    bool hardwareBin = false;
    bool highSpeed = false;
    int startX = 0; // unbinned pixels of the sensor
    int startY = 0;

    uint32_t exposureUs = 0;
    bool exposureAuto = false;
    int gain = 0;
    bool gainAuto = false;
    int brightness = 0;
    int red = 0;
    int blue = 0;
    bool whiteBalanceAuto = false;
    int bandwidth = 0; // in the units of the control
    bool bandwidthAuto = false;
    AutoLimits autoLimits;

    bool flipH = false;
    bool flipV = false;
    bool monoBin = false;
    bool timeMark = false;

    bool usb3Host = false;
    uint32_t exposureLines = 0; // as the sensor has it, in periods of its lines
    int frameTimeUs = 0;
    bool longExposure = false; // the host times it

    bool ExposureOrGainAuto() const { return exposureAuto || gainAuto; }
};

/// The frames that a camera sends, before software binning.
struct Readout {
    Size size;
    bool is16 = false;
    int softwareBin = 1; // what is left to be binned

    size_t RowBytes() const { return static_cast<size_t>(size.width) * (is16 ? 2 : 1); }
    int Bytes() const { return static_cast<int>(RowBytes() * static_cast<size_t>(size.height)); }
};

Readout ReadoutOf(const CameraModel &model, const Settings &settings);

} // namespace vsccam
