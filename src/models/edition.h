#pragma once

#include "core/camera_model.h"

namespace vsccam {

// What the cameras with one sensor differ in, beside name and product ID.
enum class Pixels { Mono, Colour };
enum class Housing { Uncooled, Cooled };

/// One camera with a sensor: the sensor's data, and the controls that USB 3.0 cameras have.
constexpr CameraModel Edition(CameraModel sensor, const char *name, uint16_t productId,
                              Pixels pixels, Housing housing = Housing::Uncooled)
{
    sensor.name = name;
    sensor.productId = productId;
    sensor.colour = pixels == Pixels::Colour;
    sensor.bayer = sensor.colour ? sensor.bayer : 0;
    sensor.cooled = housing == Housing::Cooled;
    sensor.hasBrightness = true;
    sensor.hasTemperature = true;
    sensor.hasHighSpeed = true;
    sensor.hasAutoBandwidth = true;
    return sensor;
}

} // namespace vsccam
