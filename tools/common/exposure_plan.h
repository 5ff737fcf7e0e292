#pragma once

#include "units.h"

#include <string>

namespace vsctool {

/// How an exposure comes about.
struct ExposurePlan {
    Microseconds planned{};
    bool byHost =
        false; // the library opens and closes it, in whole steps; else the sensor times it
    Microseconds slept{};     // by the library,
    Microseconds step{};      // in steps of so much
    Microseconds switching{}; // that the exposure takes besides
};

/// What the library makes of an exposure that is set. The header tells the steps of each family.
/// @param usb3Port  whether the camera is at one
ExposurePlan PlanExposure(const std::string &model, bool usb3Port, Microseconds set);

/// The same of an exposure of which is known who times it: near the limit of some cameras that
/// depends on the length of their lines.
ExposurePlan PlanExposure(const std::string &model, Microseconds set, bool byHost);

} // namespace vsctool
