#include "video/video_options.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

constexpr auto kMostBufferMiB = static_cast<int64_t>(SIZE_MAX >> 22); // that can be addressed

double Rounded(double value)
{
    return std::round(value * 1000) / 1000;
}

} // namespace

void AddVideoOptions(CLI::App &app, VideoOptions &options)
{
    options.settings.framing.format = PixelFormat::kRaw8;
    AddSettings(app, options.settings, "20ms");
    AddParsed(app, "--duration", options.plan.limits.duration, ParseTime, "TIME",
              "End after this time, from the first frame on");
}

void AddBufferOption(CLI::App &app, VideoPlan &plan)
{
    app.add_option("--buffer", plan.bufferMiB,
                   "Memory for frames that wait to be written; when it is full, frames that come "
                   "are dropped until there is room. Three frames are the least")
        ->type_name("MIB")
        ->check(CLI::Range(int64_t{1}, kMostBufferMiB).description(""))
        ->capture_default_str();
}

Microseconds UsualVideoExposure()
{
    return std::min<Microseconds>(20ms, Microseconds(getMax(CONTROL_EXPOSURE)));
}

std::string InWords(const VideoState &state)
{
    return fmt::format("{} frames  {:.1f} frames/s  {:.1f} MiB/s  {} dropped", state.frames,
                       state.FramesPerSecond(), state.MiBPerSecond(), state.dropped);
}

std::string InWords(const VideoResult &result)
{
    std::string reasons;
    for (const auto &[reason, count] : result.dropped)
        if (count > 0)
            reasons += fmt::format("{}{}: {}", reasons.empty() ? " (" : ", ", reason, count);
    return fmt::format("{} frames in {:.1f} s  {:.1f} frames/s  {:.1f} MiB/s  {} dropped{}{}",
                       result.state.frames, Seconds(result.state.elapsed),
                       result.state.FramesPerSecond(), result.state.MiBPerSecond(),
                       result.state.dropped, reasons, reasons.empty() ? "" : ")");
}

nlohmann::ordered_json AsJson(const VideoResult &result)
{
    const VideoState &state = result.state;
    nlohmann::ordered_json reasons = nlohmann::ordered_json::object();
    for (const auto &[reason, count] : result.dropped) {
        std::string key = reason;
        std::ranges::replace(key, ' ', '_');
        reasons[key] = count;
    }
    return {{"frames", state.frames},
            {"duration_s", Seconds(state.elapsed)},
            {"frames_per_s", Rounded(state.FramesPerSecond())},
            {"mib_per_s", Rounded(state.MiBPerSecond())},
            {"dropped", state.dropped},
            {"dropped_by", reasons},
            {"worst_gap_ms", static_cast<double>(state.worstGap.count()) / 1000}};
}

} // namespace vsctool
