#pragma once

#include "camera/camera.h"
#include "camera/sensor.h"

#include <memory>

namespace vscsim {

std::unique_ptr<Sensor> MakeSensor(const ModelFacts &model);

/// What the sky leaves in a sensor, for models of the family.
struct PixelFacts {
    double electronsPerStep = 0; // of 4096 steps, at the lowest gain
    double readNoiseElectrons = 1.5;
    double darkElectronsPerSecond = 0.4; // at 20 degrees Celsius
    double darkDoublesEveryC = 6.0;
};
const PixelFacts &PixelFactsOf(const ModelFacts &model);

} // namespace vscsim
