#include "hot_pixels.h"

#include "api/session.h"
#include "confirm.h"
#include "core/flash_access.h"
#include "core/hot_pixel_record.h"
#include "dark_bmp.h"
#include "failure.h"
#include "stop_signals.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using nlohmann::ordered_json;
using vsccam::CCameraBase;
using vsccam::FlashAccess;

using Pixels = std::vector<uint32_t>; // numbers on the sensor, row by row, in ascending order

struct SaveOptions {
    std::string dark;
    bool yes = false;
};

/// A camera whose flash has room for a table. Throws Failure for others.
class Bench {
  public:
    explicit Bench(const CameraChoice &choice)
        : m_camera(choice), m_inside(*vsccam::CurrentCamera())
    {
        if (!m_inside.model.usb3Camera)
            throw Failure(Exit::kNotSupported,
                          fmt::format("{} has no flash memory for hot pixels", Name()));
    }

    const std::string &Name() const { return m_camera.Entry().model; }

    /// The table in the flash; nothing when there is none that can be read.
    std::optional<Pixels> Stored();
    /// What the library finds bright in a dark frame. Throws Failure when that is no table.
    Pixels BrightIn(const std::string &file);
    /// Throws Failure when they are not there afterwards.
    void Save(const Pixels &pixels, const std::optional<Pixels> &before);
    void Erase();

  private:
    Camera m_camera;
    CCameraBase &m_inside;
};

std::optional<Pixels> Bench::Stored()
{
    if (m_inside.LoadHPCTable())
        return m_inside.delivery.corrections.hotPixels.Pixels();
    m_camera.CheckPresence();
    return std::nullopt;
}

Pixels Bench::BrightIn(const std::string &file)
{
    Framing whole; // the mean that pixels are compared with is that of the frame's region
    whole.format = PixelFormat::kRaw8;
    m_camera.SetFraming(whole);
    if (!EnableDarkSubtract(file.c_str()))
        throw Failure(Exit::kFile,
                      fmt::format("{} is no dark frame of this camera, whose sensor has {} x {} "
                                  "pixels",
                                  file, getMaxWidth(), getMaxHeight()));
    const std::vector<uint8_t> bitmap = m_inside.delivery.corrections.dark.BrightBitmap();
    const Pixels bright = vsccam::FlaggedPixels(bitmap);
    const std::vector<uint8_t> record = vsccam::Compress(bitmap);
    if (record.size() > vsccam::kLongestHotPixelRecord ||
        vsccam::Uncompress(record, bitmap.size()) != bitmap) // cut short
        throw Failure(Exit::kFile, fmt::format("{} has {} bright pixels, more than the flash has "
                                               "room for; make it with the cap on",
                                               file, bright.size()));
    return bright;
}

void Bench::Save(const Pixels &pixels, const std::optional<Pixels> &before)
{
    if (m_inside.SaveHPCTable())
        return;
    // A table of some lengths is stored, but reported as not saved: what is there decides.
    const std::optional<Pixels> stored = Stored();
    if (stored == pixels)
        return;
    if (stored && stored == before)
        throw Failure(Exit::kFailure, fmt::format("the flash of {} does not take the hot pixels; "
                                                  "those of before are unchanged; try once more",
                                                  Name()));
    Erase(); // half a table would be taken for a whole one
    throw Failure(Exit::kFailure, fmt::format("the flash of {} does not take the hot pixels and "
                                              "holds none now; try once more",
                                              Name()));
}

void Bench::Erase()
{
    // A table without its beginning is none.
    if (FlashAccess(m_inside).Erase(vsccam::kHotPixelAddress / FlashAccess::kSector))
        return;
    m_camera.CheckPresence();
    throw Failure(Exit::kFailure, fmt::format("the flash of {} cannot be erased; plug the camera "
                                              "in again and retry",
                                              Name()));
}

void Report(const Bench &bench, const Pixels &pixels, bool positions, Console &console)
{
    console.Say(fmt::format("{}  {} hot pixels", bench.Name(), pixels.size()));
    ordered_json result = {{"model", bench.Name()}, {"hot_pixels", pixels.size()}};
    const auto width = static_cast<uint32_t>(getMaxWidth());
    for (const uint32_t pixel : positions ? pixels : Pixels())
        console.Say(fmt::format("{} {}", pixel % width, pixel / width));
    if (positions) {
        result["positions"] = ordered_json::array();
        for (const uint32_t pixel : pixels)
            result["positions"].push_back({pixel % width, pixel / width});
    }
    console.Emit(result);
}

void Show(bool positions, Context &context)
{
    Bench bench(context.camera);
    const std::optional<Pixels> stored = bench.Stored();
    if (!stored)
        throw Failure(Exit::kFailure, fmt::format("the flash of {} holds no hot pixels; write them "
                                                  "with 'vscservice hotpixels save'",
                                                  bench.Name()));
    Report(bench, *stored, positions, context.console);
}

/// A dark frame that was taken while the camera corrected hot pixels does not show them.
void NoteLostPixels(const Pixels &before, const Pixels &after, Console &console)
{
    Pixels lost;
    std::ranges::set_difference(before, after, std::back_inserter(lost));
    if (!lost.empty())
        console.Note(fmt::format("{} of the {} hot pixels in the flash are not bright in the dark "
                                 "frame. Was it taken while the camera corrected them? Then "
                                 "'vscservice hotpixels erase' and take it anew",
                                 lost.size(), before.size()));
}

/// Signals stop the program before the flash is written or after it: half a table is none.
void StopIfAsked()
{
    StopSignals::SleepFor(0ms);
}

void Save(const SaveOptions &options, Context &context)
{
    (void)ReadDark(options.dark); // tells what is wrong with a file, which the library does not
    Bench bench(context.camera);
    const Pixels bright = bench.BrightIn(options.dark);
    const std::optional<Pixels> stored = bench.Stored();
    const Pixels before = stored.value_or(Pixels());
    NoteLostPixels(before, bright, context.console);
    if (!options.yes)
        Confirm(fmt::format("Replace the {} hot pixels in the flash of {} by {}?", before.size(),
                            bench.Name(), bright.size()));
    StopIfAsked();
    bench.Save(bright, stored);
    Report(bench, bright, false, context.console);
    StopIfAsked();
}

void Erase(bool yes, Context &context)
{
    Bench bench(context.camera);
    if (!yes)
        Confirm(fmt::format("Erase the hot pixels in the flash of {}?", bench.Name()));
    StopIfAsked();
    bench.Erase();
    Report(bench, {}, false, context.console);
    StopIfAsked();
}

} // namespace

void AddHotPixelsCommand(CLI::App &app, Command &chosen)
{
    CLI::App *command =
        app.add_subcommand("hotpixels", "The table of hot pixels in the flash of a camera");
    command->footer("vscservice hotpixels show --positions");
    constexpr const char *kDoNotAsk = "Do not ask";

    CLI::App *show = command->add_subcommand("show", "Show how many there are");
    const auto positions = std::make_shared<bool>();
    show->add_flag("--positions", *positions, "And where: columns and rows, from 0");
    show->callback([&chosen, positions] {
        chosen = [positions](Context &context) { Show(*positions, context); };
    });

    CLI::App *save = command->add_subcommand("save", "Write the bright pixels of a dark frame");
    save->footer("vscservice hotpixels save dark.bmp");
    const auto options = std::make_shared<SaveOptions>();
    save->add_option("dark", options->dark, "Made by 'vsccam dark make'")->required();
    save->add_flag("--yes", options->yes, kDoNotAsk);
    save->callback(
        [&chosen, options] { chosen = [options](Context &context) { Save(*options, context); }; });

    CLI::App *erase = command->add_subcommand("erase", "Forget them all");
    erase->footer("vscservice hotpixels erase");
    const auto yes = std::make_shared<bool>();
    erase->add_flag("--yes", *yes, kDoNotAsk);
    erase->callback([&chosen, yes] { chosen = [yes](Context &context) { Erase(*yes, context); }; });
}

} // namespace vsctool
