#pragma once

#include "camera_settings.h"
#include "video/video_session.h"

#include <nlohmann/json.hpp>

#include <string>

namespace vsctool {

/// What the commands that take video have in common.
struct VideoOptions {
    CameraSettings settings;
    VideoPlan plan;
};

/// Adds the settings and what ends a video.
void AddVideoOptions(CLI::App &app, VideoOptions &options);
void AddBufferOption(CLI::App &app, VideoPlan &plan);

/// Exposure of a video for which none was asked.
Microseconds UsualVideoExposure();

/// "300 frames  30.0 frames/s  61.2 MiB/s  0 dropped"
std::string InWords(const VideoState &state);

/// How a video went, in words ("300 frames in 10.0 s, ...") ...
std::string InWords(const VideoResult &result);
/// ... and for programs.
nlohmann::ordered_json AsJson(const VideoResult &result);

} // namespace vsctool
