#pragma once

#include <cstdint>

namespace vsccam {

/// The port that a device is plugged into: unplugging and plugging in do not change it. A port that
/// carries two speeds belongs to two buses, and thus has two paths.
struct PortPath {
    uint8_t bus = 0;
    int depth = 0; // how many of the ports count; 0 when the system does not tell
    uint8_t ports[7] = {};

    friend bool operator==(const PortPath &, const PortPath &) = default;
};

} // namespace vsccam
