#pragma once

#include <cstdint>

namespace vsccam {

/// Where a device hangs: it stays there over unplugging and plugging in. A port that carries two
/// speeds is one of two buses, and thus two paths.
struct PortPath {
    uint8_t bus = 0;
    int depth = 0; // of the hubs; 0 when the system does not tell
    uint8_t ports[7] = {};

    friend bool operator==(const PortPath &, const PortPath &) = default;
};

} // namespace vsccam
