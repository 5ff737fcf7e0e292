#pragma once

#include "picture.h"
#include "units.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace vsctool::serve {

/// A frame that came from the camera. Nobody changes it any more: any thread may look at it.
struct Frame {
    Picture picture;
    std::optional<Mosaic> mosaic; // of the picture as it lies here; nothing when it has none
    int bin = 1;
    uint64_t sequence = 0; // counts all frames since the server began, from 1
    UtcTime at;            // when it came
    Microseconds exposure{};
    int gain = 0;
    int64_t dropped = 0; // frames lost until then, since the server began
    std::optional<double> temperatureC;
    bool isExposure = false; // a single exposure, rather than of a video
};

using FramePtr = std::shared_ptr<const Frame>;

} // namespace vsctool::serve
