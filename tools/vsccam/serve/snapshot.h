#pragma once

#include "controls.h"
#include "serve/cooling_plan.h"
#include "serve/recording.h"
#include "serve/series.h"
#include "serve/video_feed.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace vsctool::serve {

/// How frames are to look.
struct PictureForm {
    Framing framing;
    bool flipX = false;
    bool flipY = false;
};

enum class Mode { kIdle, kVideo, kExposing, kWaiting, kLost };

/// A control that the camera has.
struct ControlNews {
    const NamedControl *control = nullptr;
    ControlState state;
    std::optional<int> byDefault;
};

struct RecordingNews {
    std::string file;
    bool running = false;
    RecordingState state;
    std::string failure; // why it ended, if it failed
};

struct CoolingNews {
    double celsius = 0;
    int targetC = 0;
    int powerPerCent = 0;
    bool on = false;
    bool onRamp = false;
    bool warming = false;
};

/// What is known of the camera at a moment; for all threads to look at.
struct Snapshot {
    uint64_t revision = 0; // counts snapshots
    Mode mode = Mode::kIdle;
    bool present = true;
    int reconnects = 0;
    PictureForm form; // of the video
    Region region;    // that is in force
    std::vector<ControlNews> controls;
    std::optional<double> celsius;
    FeedFigures feed;
    std::optional<SeriesState> series;      // that runs, or was the last one
    std::string seriesFailure;              // why that one ended early, if it did
    std::optional<RecordingNews> recording; // likewise
    std::optional<CoolingNews> cooling;     // of cooled models
};

} // namespace vsctool::serve
