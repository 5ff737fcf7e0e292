#pragma once

#include "camera/camera.h"
#include "camera/sensor.h"

#include <memory>

namespace vscsim {

std::unique_ptr<Sensor> MakeSensor(const ModelFacts &model);

/// What the sky leaves in a sensor.
struct PixelFacts {
    double electronsPerStep = 4; // of 4096 steps, at the lowest gain; a guess where nobody measured
    double readNoiseElectrons = 1.5;
    double darkElectronsPerSecond = 0.05; // at 20 degrees Celsius
    double darkDoublesEveryC = 6.0;
};
const PixelFacts &PixelFactsOf(const ModelFacts &model);

} // namespace vscsim
