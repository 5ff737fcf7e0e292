#pragma once

#include "camera_types.h"

namespace vscindi {

/// The largest region within the one that is asked for that the camera can deliver; of a region
/// that is too small, the smallest. With a binning that divides no side of the sensor, the last
/// columns and rows are left out.
/// @param asked  in pixels of the sensor
/// @return in binned pixels
Region FitRegion(const CameraFacts &camera, const Region &asked, int bin);

/// Phase of the mosaic in frames; nothing when they have none.
std::optional<vsctool::Mosaic> MosaicIn(const CameraFacts &camera, const Framing &framing,
                                        bool flipX, bool flipY, bool binsWithoutColour);

/// Binned pixels as pixels of the sensor.
Region OnSensor(const Region &binned, int bin);

} // namespace vscindi
