#include "camera.h"
#include "commands/command.h"
#include "cooling.h"
#include "dark_bmp.h"
#include "failure.h"
#include "frame_stack.h"
#include "statistics.h"
#include "stop_signals.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>
#include <utility>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using nlohmann::ordered_json;

constexpr int kLinearGamma = 50;
constexpr int kMostFrames = 255;
static_assert(kMostFrames <= MeanStack::kMostFrames);
// Boards with 1 GB have to make dark frames of the largest sensors too, beside all else.
constexpr size_t kMostMedianBytes = size_t{320} << 20;
// The library patches pixels that are so much above the mean from their neighbours.
constexpr int kBrightOverMean = 30;

struct MakeOptions {
    std::optional<Microseconds> exposure;
    int count = 5;
    std::optional<int> gain;
    std::optional<int> offset;
    std::optional<int> coolTo;
    std::optional<double> waitWithin;
    bool mean = false;
    std::string file;
    bool overwrite = false;
};

int BrightPixels(const DarkFrame &dark, double mean)
{
    return static_cast<int>(
        std::count_if(dark.pixels.begin(), dark.pixels.end(), [mean](int sample) {
            return sample > static_cast<int>(mean) + kBrightOverMean;
        }));
}

void Report(const std::filesystem::path &file, const DarkFrame &dark, Console &console)
{
    const Levels levels = LevelsOf({dark.width, dark.height, PixelFormat::kRaw8, dark.pixels});
    const int bright = BrightPixels(dark, levels.mean);
    console.Say(fmt::format("{}  {} x {}  min {} mean {:.1f} max {}  {} bright pixels",
                            file.string(), dark.width, dark.height, levels.min, levels.mean,
                            levels.max, bright));
    console.Emit({{"file", file.string()},
                  {"width", dark.width},
                  {"height", dark.height},
                  {"min", levels.min},
                  {"mean", levels.mean},
                  {"max", levels.max},
                  {"bright_pixels", bright}});
}

/// A second, or as long as the open camera can.
Microseconds ExposureOf(const MakeOptions &options)
{
    const Microseconds longest(getMax(CONTROL_EXPOSURE));
    return options.exposure.value_or(std::min<Microseconds>(1s, longest));
}

/// Whole sensor, one byte a pixel, as the sensor sends it.
void SetUp(const MakeOptions &options, Camera &camera, Context &context)
{
    Framing framing;
    framing.format = PixelFormat::kRaw8;
    camera.SetFraming(framing);
    SetMisc(false, false);
    Set("gamma", kLinearGamma);
    if (options.gain)
        Set("gain", *options.gain);
    if (options.offset)
        Set("offset", *options.offset);
    if (options.coolTo)
        CoolTo(camera, *options.coolTo, options.waitWithin, context.console);
    camera.SetExposure(ExposureOf(options), context.console);
}

/// Refused before the frames are taken, which may be a long time.
std::filesystem::path FileOf(const MakeOptions &options)
{
    std::filesystem::path file =
        options.file.empty() ? fmt::format("dark_{}_gain{}.bmp", FormatTime(ExposureOf(options)),
                                           getValue(CONTROL_GAIN, nullptr))
                             : options.file;
    std::error_code unreachable; // shows when the file is created
    if (!options.overwrite && std::filesystem::exists(file, unreachable))
        throw Failure(Exit::kFile, fmt::format("{} exists; choose another name or add --overwrite",
                                               file.string()));
    return file;
}

/// Refuses medians of more frames than there is memory for.
std::unique_ptr<FrameStack> StackFor(const MakeOptions &options)
{
    if (options.mean)
        return std::make_unique<MeanStack>();
    const auto count = static_cast<size_t>(options.count);
    const size_t pixels = static_cast<size_t>(getMaxWidth()) * static_cast<size_t>(getMaxHeight());
    const size_t mostKept = kMostMedianBytes / pixels;
    if (MedianStack::KeptOf(count) > mostKept)
        throw Failure(Exit::kUsage,
                      fmt::format("medians of this sensor are made of {} frames at most; take "
                                  "fewer, or add --mean",
                                  2 * mostKept - 1));
    return std::make_unique<MedianStack>(count);
}

void TakeFrames(FrameStack &stack, const MakeOptions &options, Camera &camera, Context &context)
{
    for (int i = 1; i <= options.count; ++i) {
        ProgressBar bar(context.console.ShowsProgress(), ExposureOf(options),
                        fmt::format("frame {} of {} ", i, options.count));
        stack.Add(camera.Take(context.timeout, bar).picture.bytes);
        StopSignals::SleepFor(0ms); // where a signal ends the series of short exposures
    }
}

void Make(const MakeOptions &options, Camera &camera, Context &context)
{
    const std::unique_ptr<FrameStack> stack = StackFor(options);
    SetUp(options, camera, context);
    const std::filesystem::path file = FileOf(options);
    TakeFrames(*stack, options, camera, context);
    const DarkFrame dark = {getWidth(), getHeight(), stack->Result()};
    WriteDark(file, dark);
    if (!EnableDarkSubtract(file.c_str()))
        throw Failure(Exit::kFile, fmt::format("the library cannot read {}", file.string()));
    Report(file, dark, context.console);
}

void Make(const MakeOptions &options, Context &context)
{
    Camera camera(context.camera);
    const auto make = [&] { Make(options, camera, context); };
    if (options.coolTo && isCoolerCam() && !camera.IsKept())
        WorkThenWarm(context.console, make, [&] { WarmUp(camera, context.console); });
    else
        make();
}

void Show(const std::filesystem::path &file, Console &console)
{
    Report(file, ReadDark(file), console);
    console.Note("the library's own layout: a bitmap whose file header has 16 bytes instead of 14, "
                 "which picture viewers do not open");
}

void AddMake(CLI::App &dark, Command &chosen)
{
    CLI::App *make = dark.add_subcommand(
        "make", "Take dark frames, with the cap on, and write what --dark subtracts");
    make->footer("vsccam dark make -e 30s -n 9 --cool -10 --wait-temp 0.5 -o dark30.bmp");
    const auto options = std::make_shared<MakeOptions>();
    MakeOptions &o = *options;
    AddParsed(*make, "-e,--exposure", o.exposure, ParseTime, "TIME",
              "Exposure of the pictures that it is meant for (default 1s)");
    make->add_option("-n,--count", o.count,
                     "Number of frames (default 5); medians of the largest sensors take 17 at most")
        ->check(CLI::Range(1, kMostFrames));
    make->add_option("--gain", o.gain, "Gain, see 'vsccam info'");
    make->add_option("--offset", o.offset, "Black level, see 'vsccam info'");
    CLI::Option *cool = make->add_option("--cool", o.coolTo, "Cool the sensor to so many Celsius");
    make->add_option("--wait-temp", o.waitWithin, "Wait until so many Celsius from the target")
        ->needs(cool)
        ->check(CLI::NonNegativeNumber);
    make->add_flag("--mean", o.mean, "Means of the frames, not medians");
    make->add_option("-o,--output", o.file, "File name (default dark_EXPOSURE_gainGAIN.bmp)");
    make->add_flag("--overwrite", o.overwrite, "Replace a file that exists");
    make->callback(
        [&chosen, options] { chosen = [options](Context &context) { Make(*options, context); }; });
}

void AddInfo(CLI::App &dark, Command &chosen)
{
    CLI::App *info = dark.add_subcommand("info", "Show what is in a dark frame");
    const auto file = std::make_shared<std::string>();
    info->add_option("file", *file, "The file")->required();
    info->callback(
        [&chosen, file] { chosen = [file](Context &context) { Show(*file, context.console); }; });
}

} // namespace

void AddDarkCommand(CLI::App &app, Command &chosen)
{
    CLI::App *dark = app.add_subcommand("dark", "Make and look at dark frames");
    dark->footer("vsccam dark info dark.bmp");
    AddMake(*dark, chosen);
    AddInfo(*dark, chosen);
}

} // namespace vsctool
