#include "camera.h"
#include "commands/command.h"
#include "control_words.h"
#include "host_memory.h"

#include <nlohmann/json.hpp>

#include <cstdint>

namespace vsctool {
namespace {

using nlohmann::ordered_json;

constexpr int64_t kMiB = 1 << 20;

std::vector<int> Bins()
{
    std::vector<int> bins;
    for (int bin = 1; bin <= 16; ++bin)
        if (isBinSupported(bin))
            bins.push_back(bin);
    return bins;
}

std::vector<std::string> Formats()
{
    std::vector<std::string> formats;
    for (int type = 0; type < static_cast<int>(std::size(kFormatNames)); ++type)
        if (isImgTypeSupported(type))
            formats.emplace_back(kFormatNames[type]);
    return formats;
}

/// What the camera tells, once for both ways of showing it.
ordered_json Collect(const Camera &camera)
{
    const int64_t pixels = static_cast<int64_t>(getMaxWidth()) * getMaxHeight();
    ordered_json info = {{"model", camera.Entry().model},
                         {"width", getMaxWidth()},
                         {"height", getMaxHeight()},
                         {"pixel_um", getPixelSize()},
                         {"colour", isColorCam() != 0},
                         {"cooled", isCoolerCam() != 0},
                         {"usb3_camera", isUSB3Camera() != 0},
                         {"usb3_port", isUSB3Host() != 0},
                         {"bins", Bins()},
                         {"formats", Formats()},
                         {"host_memory_mib", pixels * kHostBytesPerPixel / kMiB + 1},
                         {"usbfs_memory_mib", UsbfsMiB(pixels)}};
    if (isColorCam())
        info["bayer"] = BayerPattern(MosaicOf(getColorBayer(), false, false));
    if (getElectronsPerADU() > 0)
        info["electrons_per_adu"] = Decimal(getElectronsPerADU());
    if (!camera.NotVerified().empty())
        info["not_verified"] = camera.NotVerified();
    return info;
}

/// "name: value" for each entry.
void ShowInWords(Console &console, const ordered_json &info)
{
    for (const auto &[name, value] : info.items())
        console.Say(fmt::format("{:<18} {}", name,
                                value.is_string() ? value.get<std::string>() : value.dump()));
}

void Info(Context &context)
{
    const Camera camera(context.camera);
    ordered_json info = Collect(camera);
    ShowInWords(context.console, info);
    info["controls"] = ShowTable(camera, false, context.console);
    context.console.Emit(info);
}

} // namespace

void AddInfoCommand(CLI::App &app, Command &chosen)
{
    CLI::App *info = app.add_subcommand("info", "Show what a camera is and can");
    info->footer("vsccam --camera usb:1-2.3 info");
    info->callback([&chosen] { chosen = Info; });
}

} // namespace vsctool
