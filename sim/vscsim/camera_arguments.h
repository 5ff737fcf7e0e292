#pragma once

#include "vscsim/bus_device.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vscsim {

/// What the command line says of the cameras, whichever way they are offered.
struct CameraArguments {
    std::vector<std::string> cameras = {"VSC470MC"};
    std::string scene = "sky";
    std::string faults;
    std::optional<uint64_t> seed;
    std::string speed = "1";
    int firmware = CameraOptions().firmwareVersion;
};

/// What a user needs to know to write them.
extern const char *const kCameraHelp;

/// @param arguments  outlive the command
void AddOptions(CLI::App &command, CameraArguments &arguments);

/// Whether cameras leave the bus by their fault plan.
/// @throws CLI::ValidationError
bool CamerasLeave(const CameraArguments &arguments);

/// @throws CLI::ValidationError, std::runtime_error
std::vector<BusDevice> DevicesOf(const CameraArguments &arguments);

} // namespace vscsim
