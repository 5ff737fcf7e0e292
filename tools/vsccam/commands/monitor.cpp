#include "camera.h"
#include "commands/command.h"
#include "failure.h"
#include "stop_signals.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using nlohmann::ordered_json;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kWaitForFrame = 50ms; // signals are looked for in between

// Beginnings of what the library says when something goes wrong on the way of the frames.
constexpr std::string_view kTroubles[] = {"Xfer err",    "transfer error",   "submit Xfer",
                                          "nothing get", "no frame more",    "no usable frame",
                                          "bad frame",   "reconnect camera", "a setting was lost"};

bool IsTrouble(const LibraryLine &line)
{
    return std::ranges::any_of(
        kTroubles, [&](std::string_view trouble) { return line.text.starts_with(trouble); });
}

struct MonitorOptions {
    std::optional<Microseconds> exposure;
    Microseconds interval = 4s;
    std::optional<Microseconds> duration;
};

/// Watches video of the open camera. It goes on when the camera is lost, as the library does.
class VideoWatch {
  public:
    VideoWatch(const MonitorOptions &options, Context &context)
        : m_options(options), m_console(context.console), m_camera(context.camera)
    {
        m_camera.SetFraming({.bin = 1, .format = PixelFormat::kRaw8, .region = {}});
        if (options.exposure)
            m_camera.SetExposure(*options.exposure, m_console);
        m_frame.resize(static_cast<size_t>(getWidth()) * static_cast<size_t>(getHeight()));
    }

    void Run()
    {
        (void)LibraryLines::Take(); // of before
        startCapture();
        const auto end = m_options.duration ? SteadyClock::now() + *m_options.duration
                                            : SteadyClock::time_point::max();
        do {
            CountUntil(std::min(end, SteadyClock::now() + m_options.interval));
            Report();
        } while (SteadyClock::now() < end);
        stopCapture();
    }

  private:
    void CountUntil(SteadyClock::time_point end)
    {
        m_frames = 0;
        m_errors = 0;
        do {
            StopSignals::SleepFor(0ms);
            if (getImageData(m_frame.data(), static_cast<int>(m_frame.size()),
                             static_cast<int>(kWaitForFrame.count())))
                ++m_frames;
            CountErrors();
        } while (SteadyClock::now() < end);
    }

    /// Often, because only so many messages are kept.
    void CountErrors()
    {
        for (LibraryLine &line : LibraryLines::Take()) {
            if (!IsTrouble(line))
                continue;
            ++m_errors;
            m_lastError = std::move(line.text);
        }
    }

    void Report()
    {
        const auto now = std::chrono::system_clock::now();
        ordered_json line = {{"utc", FormatUtc(std::chrono::floor<Microseconds>(now))},
                             {"present", m_camera.IsPresent()},
                             {"frames", m_frames},
                             {"dropped", getDroppedFrames()}};
        line["errors"] = m_errors;
        if (m_errors > 0)
            line["last_error"] = m_lastError;
        if (isAvailable(CONTROL_TEMPERATURE))
            line["temperature_c"] = Decimal(getSensorTemp());
        if (isCoolerCam()) {
            line["target_c"] = getValue(CONTROL_TARGET_TEMP, nullptr);
            line["power_percent"] = getValue(CONTROL_COOLER_POWER, nullptr);
        }
        m_console.Stream(line);
    }

    const MonitorOptions &m_options;
    Console &m_console;
    Camera m_camera;
    std::vector<uint8_t> m_frame;
    int64_t m_frames = 0; // since the last report, as the next two
    int64_t m_errors = 0;
    std::string m_lastError; // when there are any
};

Microseconds ParseInterval(const std::string &text)
{
    const Microseconds time = ParseTime(text);
    if (time == 0us)
        throw Failure(Exit::kUsage, "--interval 0 leaves no time for frames; write 4s");
    return time;
}

} // namespace

void AddMonitorCommand(CLI::App &app, Command &chosen)
{
    CLI::App *monitor =
        app.add_subcommand("monitor", "Run video and show, as JSON lines, temperature, frames, "
                                      "frames dropped in all, and errors since the line before");
    const auto options = std::make_shared<MonitorOptions>();
    AddParsed(*monitor, "-e,--exposure", options->exposure, ParseTime, "TIME",
              "Exposure of each frame (default: what the camera begins with)");
    AddParsed(*monitor, "--interval", options->interval, ParseInterval, "TIME",
              "Time from line to line (default 4s)");
    AddParsed(*monitor, "--for", options->duration, ParseTime, "TIME",
              "End by itself after this time");
    monitor->footer("vsccam monitor -e 1s --interval 1min >night.jsonl");
    monitor->callback([&chosen, options] {
        chosen = [options](Context &context) { VideoWatch(*options, context).Run(); };
    });
}

} // namespace vsctool
