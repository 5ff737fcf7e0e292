#pragma once

#include "camera.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <optional>
#include <string>

namespace vsctool {

/// What is set before pictures are taken: the options that all commands have which take some.
struct CameraSettings {
    std::optional<Microseconds> exposure;
    std::optional<int> gain;
    std::optional<int> offset;
    Framing framing;
    bool flipX = false;
    bool flipY = false;
    std::string dark;
    std::optional<int> coolTo;
    std::optional<double> waitWithin;
    bool noWarming = false;
};

/// @param exposureHelp  what is exposed without the option
/// The format that `settings` has already is the usual one.
void AddSettings(CLI::App &app, CameraSettings &settings, const std::string &exposureHelp);

/// Throws Failure for settings that contradict each other.
void CheckSettings(const CameraSettings &settings);

/// Sets the open camera, and waits for the cold. Throws Failure.
/// @param usual  exposure when none was asked for
/// @return the exposure that was set
Microseconds Prepare(Camera &camera, const CameraSettings &settings, Microseconds usual,
                     Console &console);

/// Does `work`; a sensor that it cooled is warmed afterwards, unless the settings say otherwise or
/// the camera is kept open.
void WorkAtTemperature(Camera &camera, const CameraSettings &settings, Console &console,
                       const std::function<void()> &work);

} // namespace vsctool
