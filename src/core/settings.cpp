#include "core/settings.h"

namespace vsccam {

namespace {

int SoftwareBin(const CameraModel &model, const Settings &settings)
{
    if (!settings.hardwareBin)
        return settings.bin;
    return settings.bin == 4 && model.hardwareBin4IsHalf ? 2 : 1;
}

} // namespace

Settings::Settings(const CameraModel &model)
    : width(model.sensorWidth), height(model.sensorHeight),
      exposureUs(static_cast<uint32_t>(model.exposureUs.initial)), gain(model.gain.initial),
      brightness(model.brightness.initial), red(model.whiteBalance.red),
      blue(model.whiteBalance.blue), bandwidth(model.bandwidth.initial)
{
}

Readout ReadoutOf(const CameraModel &model, const Settings &settings)
{
    const int factor = SoftwareBin(model, settings);
    return {{settings.width * factor, settings.height * factor}, settings.output16Bits, factor};
}

} // namespace vsccam
