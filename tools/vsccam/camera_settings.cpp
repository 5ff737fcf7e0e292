#include "camera_settings.h"

#include "cooling.h"
#include "dark_bmp.h"
#include "failure.h"
#include "program.h"

#include <fmt/format.h>

#include <algorithm>

namespace vsctool {
namespace {

PixelFormat ParseFormat(const std::string &text)
{
    const auto *found = std::find(std::begin(kFormatNames), std::end(kFormatNames), text);
    if (found == std::end(kFormatNames))
        throw Failure(Exit::kUsage, fmt::format("'{}' is no format; there are raw8, raw16, rgb24 "
                                                "and y8",
                                                text));
    return static_cast<PixelFormat>(found - std::begin(kFormatNames));
}

void SubtractDark(const std::string &file)
{
    if (EnableDarkSubtract(file.c_str()))
        return;
    (void)ReadDark(file); // tells what else is wrong
    throw Failure(Exit::kFile,
                  fmt::format("{} is no dark frame of this camera: an 8-bit BMP of the full "
                              "sensor size",
                              file));
}

void SetRegion(Camera &camera, const Framing &framing, Console &console)
{
    camera.SetFraming(framing);
    if (const auto &asked = framing.region;
        asked && (getStartX() != asked->x || getStartY() != asked->y))
        console.Note(fmt::format("region is {}x{}+{}+{} on this camera", getWidth(), getHeight(),
                                 getStartX(), getStartY()));
}

} // namespace

void AddSettings(CLI::App &app, CameraSettings &settings, const std::string &exposureHelp)
{
    CameraSettings &s = settings;
    AddParsed(app, "-e,--exposure", s.exposure, ParseTime, "TIME",
              fmt::format("Exposure: 250us, 20ms, 1.5s, 2min (default {})", exposureHelp));
    app.add_option("--gain", s.gain, "Gain, see 'vsccam info'");
    app.add_option("--offset", s.offset, "Black level, see 'vsccam info'");
    app.add_option("--bin", s.framing.bin, "Binning");
    AddParsed(app, "--roi", s.framing.region, ParseRegion, "WxH+X+Y", "Region in binned pixels");
    AddParsed(app, "--format", s.framing.format, ParseFormat, "FORMAT",
              fmt::format("raw8, raw16, rgb24 or y8 (default {})", FormatName(s.framing.format)));
    app.add_flag("--flip-x", s.flipX, "Mirror left to right");
    app.add_flag("--flip-y", s.flipY, "Mirror top to bottom");
    app.add_option("--dark", s.dark, "Dark frame to subtract: BMP, 8-bit formats only")
        ->check(CLI::ExistingFile);
    CLI::Option *cool = app.add_option(
        "--cool", s.coolTo, "Cool the sensor to so many Celsius; at the end it is warmed in steps");
    app.add_flag("--no-warming", s.noWarming, "End the cooling at once")->needs(cool);
    app.add_option("--wait-temp", s.waitWithin, "Wait until so many Celsius from the target")
        ->needs(cool)
        ->check(CLI::Range(0.0, 100.0));
}

void CheckSettings(const CameraSettings &settings)
{
    if (!settings.dark.empty() && settings.framing.format == PixelFormat::kRaw16)
        throw Failure(Exit::kUsage,
                      "a dark frame is subtracted from 8-bit pictures only; add --format raw8");
}

Microseconds Prepare(Camera &camera, const CameraSettings &settings, Microseconds usual,
                     Console &console)
{
    SetRegion(camera, settings.framing, console);
    SetMisc(settings.flipX, settings.flipY);
    if (settings.gain)
        Set("gain", *settings.gain);
    if (settings.offset)
        Set("offset", *settings.offset);
    if (!settings.dark.empty())
        SubtractDark(settings.dark);
    if (settings.coolTo)
        CoolTo(camera, *settings.coolTo, settings.waitWithin, console);
    const Microseconds exposure = settings.exposure.value_or(usual);
    camera.SetExposure(exposure, console);
    return exposure;
}

void WorkAtTemperature(Camera &camera, const CameraSettings &settings, Console &console,
                       const std::function<void()> &work)
{
    if (settings.coolTo && isCoolerCam() && !settings.noWarming && !camera.IsKept())
        WorkThenWarm(console, work, [&] { WarmUp(camera, console); });
    else
        work();
}

} // namespace vsctool
