#pragma once

#include "serve/video_feed.h"

#include <string>

namespace vsctool::serve {

/// What is known of the camera at a moment; for all threads to look at.
struct Snapshot {
    std::string model;
    bool simulated = false;
    bool present = true;
    bool video = false;
    FeedFigures feed;
};

} // namespace vsctool::serve
