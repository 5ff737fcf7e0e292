#pragma once

#include "models/edition.h"

namespace vsccam {

/// One camera with a sensor of the USB 2.0 cameras: the sensor's data, and the controls that these
/// cameras have.
constexpr CameraModel Usb2Edition(const CameraModel &sensor, const char *name, uint16_t productId,
                                  Pixels pixels)
{
    CameraModel model = Edition(sensor, name, productId, pixels);
    model.usb3Camera = false;
    model.hasBrightness = false;
    return model;
}

} // namespace vsccam
