#include "commands/command.h"
#include "video/video_options.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using nlohmann::ordered_json;
using SteadyClock = std::chrono::steady_clock;

constexpr double kMiB = 1 << 20;

/// Where the frames of a measurement go.
class Nowhere : public FrameSink {
  public:
    void Put(const TimedFrame & /*frame*/) override {}
};

double InMs(Microseconds time)
{
    return static_cast<double>(time.count()) / 1000;
}

/// The most that can come over the link: what of its bits bulk transfers get in practice, and no
/// faster than the exposures follow each other.
struct Limits {
    double mibPerSecond = 0;
    double framesPerSecond = 0;

    Limits(const Camera &camera, Microseconds exposure)
    {
        constexpr double kSuperSpeed = 400e6; // bytes a second
        constexpr double kHighSpeed = 40e6;
        const std::string speed = camera.Entry().usb.value_or(UsbDevice{}).speedMbit;
        int mbit = isUSB3Host() ? 5000 : 480;
        std::from_chars(speed.data(), speed.data() + speed.size(), mbit);
        const double bytes = mbit >= 5000 ? kSuperSpeed : kHighSpeed;
        mibPerSecond = bytes / kMiB;
        framesPerSecond = std::min(bytes / BytesOnTheLink(), 1 / Seconds(std::max(exposure, 1us)));
    }

  private:
    /// Frames are binned and converted here, unless the sensor does it.
    static double BytesOnTheLink()
    {
        const bool sensorBins = getValue(CONTROL_HARDWARE_BIN, nullptr) != 0;
        const int bin = sensorBins ? 1 : getBin();
        const bool is16 = static_cast<PixelFormat>(getImgType()) == PixelFormat::kRaw16;
        return static_cast<double>(getWidth()) * getHeight() * bin * bin * (is16 ? 2 : 1);
    }
};

/// What was measured: second by second, and as a whole.
class Measurement {
  public:
    explicit Measurement(Console &console) : m_console(console) {}

    void Add(const VideoState &state)
    {
        m_gaps.insert(m_gaps.end(), state.gaps.begin(), state.gaps.end());
        for (const Microseconds gap : state.gaps)
            m_worstGap = std::max(m_worstGap, gap);
        const auto now = SteadyClock::now();
        if (now - m_begin < 1s)
            return;
        Tell(state, std::chrono::duration<double>(now - m_begin).count());
        m_begin = now;
        m_before = {state.frames, state.dropped};
        m_worstGap = {};
    }

    /// The gap that so many of a hundred do not exceed.
    double GapMs(double percent)
    {
        if (m_gaps.empty())
            return 0;
        const auto rank =
            static_cast<size_t>(std::ceil(static_cast<double>(m_gaps.size()) * percent / 100));
        const auto nth =
            m_gaps.begin() + static_cast<std::ptrdiff_t>(std::max<size_t>(rank, 1) - 1);
        std::ranges::nth_element(m_gaps, nth);
        return InMs(*nth);
    }

  private:
    void Tell(const VideoState &state, double seconds)
    {
        const double rate = static_cast<double>(state.frames - m_before.frames) / seconds;
        const double mib = rate * static_cast<double>(state.frameBytes) / kMiB;
        const int64_t dropped = state.dropped - m_before.dropped;
        m_console.Say(
            fmt::format("{:4} s  {:7.1f} frames/s  {:7.1f} MiB/s  {:5} dropped  worst gap "
                        "{:.1f} ms",
                        ++m_second, rate, mib, dropped, InMs(m_worstGap)));
        m_console.Emit({{"second", m_second},
                        {"frames_per_s", rate},
                        {"mib_per_s", mib},
                        {"dropped", dropped},
                        {"worst_gap_ms", InMs(m_worstGap)}});
    }

    struct Counts {
        int64_t frames = 0;
        int64_t dropped = 0;
    };

    Console &m_console;
    SteadyClock::time_point m_begin = SteadyClock::now();
    int m_second = 0;
    Counts m_before;
    Microseconds m_worstGap{};
    std::vector<Microseconds> m_gaps; // of all frames
};

void Tell(const VideoResult &result, Measurement &measurement, const Limits &limits,
          Context &context)
{
    Console &console = context.console;
    const double worstMs = InMs(result.state.worstGap);
    console.Say(InWords(result));
    ordered_json gaps = ordered_json::object();
    std::string words;
    for (const double percent : {50.0, 90.0, 99.0, 99.9}) {
        const double ms = measurement.GapMs(percent);
        words += fmt::format("{:g} %: {:.1f}  ", percent, ms);
        gaps[fmt::format("p{:g}", percent)] = ms;
    }
    console.Say(fmt::format("gaps in ms  {}longest: {:.1f}", words, worstMs));
    console.Say(fmt::format("at most {:.0f} MiB/s go over this link, {:.1f} frames/s of these",
                            limits.mibPerSecond, limits.framesPerSecond));
    ordered_json json = AsJson(result);
    json["gaps_ms"] = gaps;
    json["link_mib_per_s"] = limits.mibPerSecond;
    json["expected_frames_per_s"] = limits.framesPerSecond;
    if (context.simulated)
        json["simulated"] = true;
    console.Emit({{"total", json}});
}

void RunBench(Camera &camera, const VideoOptions &options, Context &context)
{
    const Microseconds exposure =
        Prepare(camera, options.settings, UsualVideoExposure(), context.console);
    Nowhere sink;
    VideoSession session(camera, context, options.plan, sink);
    Measurement measurement(context.console);
    const VideoResult result = session.Run(exposure, [&](const VideoState &state) {
        measurement.Add(state);
        return ""; // its lines are the results
    });
    Tell(result, measurement, Limits(camera, exposure), context);
    if (result.end)
        std::rethrow_exception(result.end);
}

void Bench(const VideoOptions &options, Context &context)
{
    CheckSettings(options.settings);
    Camera camera(context.camera);
    WorkAtTemperature(camera, options.settings, context.console,
                      [&] { RunBench(camera, options, context); });
}

} // namespace

void AddBenchCommand(CLI::App &app, Command &chosen)
{
    CLI::App *bench = app.add_subcommand("bench", "Measure how fast frames come, and how evenly");
    const auto options = std::make_shared<VideoOptions>();
    options->plan.limits.duration = 10s;
    options->plan.bufferMiB = 1; // nothing waits
    AddVideoOptions(*bench, *options);
    bench->get_option("--duration")->description("For how long (default 10s)");
    bench->footer("vsccam bench -e 1ms --duration 30s");
    bench->callback(
        [&chosen, options] { chosen = [options](Context &context) { Bench(*options, context); }; });
}

} // namespace vsctool
