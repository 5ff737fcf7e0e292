#include "camera.h"
#include "camera_settings.h"
#include "commands/command.h"
#include "failure.h"
#include "fits_header.h"
#include "hook.h"
#include "name_pattern.h"
#include "png_writer.h"
#include "statistics.h"
#include "stop_signals.h"
#include "tiff_writer.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>
#include <system_error>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using nlohmann::ordered_json;

constexpr Microseconds kShortestWithProgress = 1s;

struct CaptureOptions {
    CameraSettings settings;
    int count = 1;
    Microseconds interval{};
    std::string type = "light";
    std::string object;
    std::string hook;
    std::vector<std::string> fitsKeys;
    std::string name = "{type}_{seq:05}.fit";
    bool overwrite = false;
    bool png = false;
    bool noPng = false;
};

std::filesystem::path PreviewOf(std::filesystem::path file)
{
    return file.replace_extension(".png");
}

/// A picture that lies on disk.
struct SavedPicture {
    std::filesystem::path fits;
    std::filesystem::path png; // empty: none
    PictureFacts facts;
    Levels levels;
    std::optional<Sharpness> sharpness;
};

std::string InWords(const SavedPicture &saved)
{
    std::string line = fmt::format("{}  {}  {:.6g} s", saved.fits.string(),
                                   FormatUtc(saved.facts.start), Seconds(saved.facts.planned));
    if (saved.facts.temperatureC)
        line += fmt::format("  {:.1f} C", *saved.facts.temperatureC);
    line += fmt::format("  min {} mean {:.1f} max {}  saturated {:.3f} %", saved.levels.min,
                        saved.levels.mean, saved.levels.max, saved.levels.saturatedPercent);
    if (saved.sharpness)
        line += fmt::format("  HFD {:.2f} px ({} stars)", saved.sharpness->hfdPx,
                            saved.sharpness->stars);
    return line;
}

ordered_json AsJson(const SavedPicture &saved)
{
    ordered_json json = {{"file", saved.fits.string()},
                         {"utc", FormatUtc(saved.facts.start)},
                         {"exposure_s", Seconds(saved.facts.planned)},
                         {"min", saved.levels.min},
                         {"mean", saved.levels.mean},
                         {"max", saved.levels.max},
                         {"saturated_percent", saved.levels.saturatedPercent}};
    if (saved.facts.measured)
        json["measured_s"] = Seconds(*saved.facts.measured);
    if (!saved.png.empty())
        json["preview"] = saved.png.string();
    if (saved.facts.temperatureC)
        json["temperature_c"] = *saved.facts.temperatureC;
    if (saved.sharpness) {
        json["hfd_px"] = saved.sharpness->hfdPx;
        json["stars"] = saved.sharpness->stars;
    }
    if (saved.facts.simulated)
        json["simulated"] = true;
    return json;
}

/// One run of the command: the open camera and the names of its files.
class Series {
  public:
    Series(const CaptureOptions &options, Context &context);
    void Run();

  private:
    void TakeAll();
    Microseconds UsualExposure() const;
    bool WritesPreview() const;
    bool IsTaken(const std::filesystem::path &file) const;
    std::filesystem::path NextFile();
    Exposure Expose();
    SavedPicture Save(const std::filesystem::path &file, const Exposure &exposure);
    bool SavePreview(const std::filesystem::path &file, const Exposure &exposure,
                     const PictureFacts &facts);
    void Report(const SavedPicture &saved);
    void WaitForNext(UtcTime start) const;

    const CaptureOptions &m_options;
    Context &m_context;
    NamePattern m_name;
    std::vector<FitsKey> m_userKeys;
    Camera m_camera; // after all that can be wrong with the options alone
    Microseconds m_exposure{};
    int m_sequence = 1;
    int m_previewsLost = 0;
};

std::vector<FitsKey> ParseKeys(const std::vector<std::string> &texts)
{
    std::vector<FitsKey> keys;
    std::transform(texts.begin(), texts.end(), std::back_inserter(keys), ParseFitsKey);
    return keys;
}

Series::Series(const CaptureOptions &options, Context &context)
    : m_options(options), m_context(context), m_name(options.name, options.count > 1),
      m_userKeys(ParseKeys(options.fitsKeys)), m_camera(context.camera)
{
}

Microseconds Series::UsualExposure() const
{
    if (m_options.type == "bias")
        return Microseconds(getMin(CONTROL_EXPOSURE));
    return std::min<Microseconds>(1s, Microseconds(getMax(CONTROL_EXPOSURE)));
}

bool Series::WritesPreview() const
{
    return m_options.png || (m_options.count == 1 && !m_options.noPng);
}

bool Series::IsTaken(const std::filesystem::path &file) const
{
    std::error_code unreachable; // shows when the file is created
    return std::filesystem::exists(file, unreachable) ||
           (WritesPreview() && std::filesystem::exists(PreviewOf(file), unreachable));
}

/// Numbered names go on after the files that are there; no picture is ever replaced unasked.
std::filesystem::path Series::NextFile()
{
    for (;; ++m_sequence) {
        const NameFields fields = {
            .sequence = m_sequence,
            .object = m_options.object,
            .type = m_options.type,
            .model = m_camera.Entry().model,
            .format = FormatName(m_options.settings.framing.format),
            .exposure = m_exposure,
            .gain = getValue(CONTROL_GAIN, nullptr),
            .offset = getValue(CONTROL_BRIGHTNESS, nullptr),
            .bin = m_options.settings.framing.bin,
            .start = std::chrono::floor<Microseconds>(std::chrono::system_clock::now())};
        std::filesystem::path file = m_name.Expand(fields);
        if (m_options.overwrite || !IsTaken(file)) {
            ++m_sequence;
            return file;
        }
        if (!m_name.IsNumbered())
            throw Failure(Exit::kFile,
                          fmt::format("{}{} exists; choose another name, put "
                                      "{{seq:05}} into it, or add --overwrite",
                                      file.string(), WritesPreview() ? " or its preview" : ""));
    }
}

Exposure Series::Expose()
{
    const bool visible = m_context.console.ShowsProgress() && m_exposure > kShortestWithProgress;
    ProgressBar bar(visible, m_exposure);
    return m_camera.Take(m_context.timeout, bar);
}

SavedPicture Series::Save(const std::filesystem::path &file, const Exposure &exposure)
{
    SavedPicture saved;
    saved.fits = file;
    saved.facts = FactsOf(m_camera, exposure);
    saved.facts.type = m_options.type;
    saved.facts.object = m_options.object;
    saved.facts.simulated = m_context.simulated;

    std::vector<FitsKey> keys = HeaderOf(saved.facts);
    if (!m_options.settings.dark.empty()) // or it might be subtracted twice
        keys.push_back({"DARKSUB", true, "a dark frame was subtracted"});
    keys.insert(keys.end(), m_userKeys.begin(), m_userKeys.end());
    (IsTiffName(file) ? WriteTiff : WriteFits)(file, exposure.picture, keys);
    if (WritesPreview() && SavePreview(PreviewOf(file), exposure, saved.facts))
        saved.png = PreviewOf(file);
    saved.levels = LevelsOf(exposure.picture);
    saved.sharpness = SharpnessOf(Luminance(exposure.picture, saved.facts.mosaic.has_value()),
                                  SaturationOf(exposure.picture.format));
    return saved;
}

/// The picture itself is safe by now: a series goes on without previews.
bool Series::SavePreview(const std::filesystem::path &file, const Exposure &exposure,
                         const PictureFacts &facts)
{
    try {
        WritePreview(file, exposure.picture, facts.mosaic);
        return true;
    } catch (const Failure &failure) {
        m_context.console.Note(failure.what());
        ++m_previewsLost;
        return false;
    }
}

void Series::Report(const SavedPicture &saved)
{
    m_context.console.Say(InWords(saved));
    m_context.console.Emit(AsJson(saved));
    if (m_options.hook.empty())
        return;
    if (const int status = RunHook(m_options.hook, saved.fits); status != 0)
        m_context.console.Note(
            fmt::format("the hook failed with {} for {}", status, saved.fits.string()));
}

void Series::WaitForNext(UtcTime start) const
{
    const auto wait = start + m_options.interval - std::chrono::system_clock::now();
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(wait);
    // Also with nothing to wait for, this is where a signal ends the series. A clock that was set
    // back meanwhile does not stretch the pause.
    const auto longest = std::chrono::ceil<std::chrono::milliseconds>(m_options.interval);
    StopSignals::SleepFor(std::clamp(ms, 0ms, longest));
}

void Series::Run()
{
    WorkAtTemperature(m_camera, m_options.settings, m_context.console, [this] { TakeAll(); });
    if (m_previewsLost > 0)
        throw Failure(Exit::kFile, fmt::format("{} of {} previews were not written; the pictures "
                                               "are complete",
                                               m_previewsLost, m_options.count));
}

void Series::TakeAll()
{
    m_exposure = Prepare(m_camera, m_options.settings, UsualExposure(), m_context.console);
    for (int taken = 1;; ++taken) {
        const std::filesystem::path file = NextFile();
        const Exposure exposure = Expose();
        Report(Save(file, exposure));
        if (taken == m_options.count)
            return;
        WaitForNext(exposure.start);
    }
}

std::string ParseObject(const std::string &text)
{
    CheckFitsText(text);
    return text;
}

std::vector<std::string> TypeNames()
{
    std::vector<std::string> names;
    for (const PictureType &type : kPictureTypes)
        names.emplace_back(type.name);
    return names;
}

void AddOptions(CLI::App &app, CaptureOptions &o)
{
    AddSettings(app, o.settings, "1s; of a bias frame, the shortest");
    app.add_option("-n,--count", o.count, "Number of pictures")->check(CLI::Range(1, 1'000'000));
    AddParsed(app, "--interval", o.interval, ParseTime, "TIME", "Time from start to start");
    app.add_option("--type", o.type, "Kind of picture")->check(CLI::IsMember(TypeNames()));
    AddParsed(app, "--object", o.object, ParseObject, "NAME", "What is in the picture");
    app.add_option("--hook", o.hook, "Shell command after each file, which is \"$1\"");
    app.add_option("--fits-key", o.fitsKeys, "Further header entry NAME=VALUE; may be repeated")
        ->allow_extra_args(false);
    app.add_option("-o,--output", o.name,
                   std::string("File name, in .fit or .tif; may contain ") + NamePattern::Help());
    app.add_flag("--overwrite", o.overwrite, "Replace files that exist");
    app.add_flag("--png", o.png, "Write a stretched preview too (default for a single picture)");
    app.add_flag("--no-png", o.noPng, "Write no preview")->excludes("--png");
}

void Capture(const CaptureOptions &options, Context &context)
{
    CheckSettings(options.settings);
    Series(options, context).Run();
}

} // namespace

void AddCaptureCommand(CLI::App &app, Command &chosen)
{
    CLI::App *capture =
        app.add_subcommand("capture", "Take pictures and write them as FITS or TIFF files");
    capture->footer("vsccam capture -e 60s -n 20 --gain 200 --cool -10 --wait-temp 0.5 "
                    "-o 'm42_{seq:05}.fit'");
    const auto options = std::make_shared<CaptureOptions>();
    AddOptions(*capture, *options);
    capture->callback([&chosen, options] {
        chosen = [options](Context &context) { Capture(*options, context); };
    });
}

} // namespace vsctool
