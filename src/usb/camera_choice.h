#pragma once

#include "usb/port_path.h"

#include <cstdint>
#include <vector>

namespace vsccam {

/// The cameras that a program may use: all, unless its user named some.
struct CameraChoice {
    /// By its port, or else all that have a product ID.
    struct Entry {
        PortPath path;
        uint16_t productId = 0;
    };

    bool restricts = false;
    std::vector<Entry> named = {};

    bool Allows(const PortPath &path, uint16_t productId) const;
};

} // namespace vsccam
