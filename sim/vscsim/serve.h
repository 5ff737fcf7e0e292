#pragma once

#include "vscsim/bus_device.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vscsim {

struct ServeOptions {
    std::string address = "127.0.0.1";
    uint16_t port = 3240;
    double awaySeconds = 1; // an unplugged camera
};

/// Offers cameras over USB/IP until SIGINT, SIGTERM or SIGHUP, and tells on standard error what
/// becomes of them.
/// @throws std::runtime_error  when it cannot
void Serve(const std::vector<BusDevice> &devices, const ServeOptions &options);

} // namespace vscsim
