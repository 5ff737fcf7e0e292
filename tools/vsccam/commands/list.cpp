#include "commands/command.h"
#include "failure.h"
#include "product_list.h"
#include "stop_signals.h"
#include "usb_devices.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace vsctool {
namespace {

using namespace std::chrono_literals;
using nlohmann::ordered_json;

constexpr auto kWatchInterval = 500ms;

struct ListOptions {
    bool models = false;
    bool watch = false;
    int require = 0;
};

const char *PixelWord(const vsccam::Product &product)
{
    return product.pixels == vsccam::Pixels::Colour ? "colour" : "mono";
}

const char *HousingWord(const vsccam::Product &product)
{
    return product.housing == vsccam::Housing::Cooled ? "cooled" : "-";
}

/// A plain one where the library does not know the model.
vsccam::Product ProductOf(const CameraEntry &camera)
{
    return camera.Product() ? *camera.Product() : vsccam::Product{};
}

std::string InWords(const CameraEntry &camera)
{
    const UsbDevice usb = camera.usb.value_or(UsbDevice{});
    const vsccam::Product product = ProductOf(camera);
    return fmt::format("{:>3}  {:<20} {:04x}  {:<9} {:>5}  {:<6} {:<6}  {}", camera.index,
                       camera.model, usb.product, usb.port, usb.speedMbit, PixelWord(product),
                       HousingWord(product), camera.Usable());
}

ordered_json AsJson(const CameraEntry &camera)
{
    const vsccam::Product product = ProductOf(camera);
    ordered_json json = {{"index", camera.index},
                         {"model", camera.model},
                         {"colour", product.pixels == vsccam::Pixels::Colour},
                         {"cooled", product.housing == vsccam::Housing::Cooled},
                         {"usable", camera.Usable() == "yes"},
                         {"reason", camera.Usable() == "yes" ? "" : camera.Usable()}};
    if (camera.usb) {
        json["product"] = fmt::format("{:04x}", camera.usb->product);
        json["port"] = camera.usb->port;
        json["mbit_per_s"] = std::strtod(camera.usb->speedMbit.c_str(), nullptr);
    }
    return json;
}

void Show(Console &console, const std::vector<CameraEntry> &cameras)
{
    ordered_json all = ordered_json::array();
    if (!cameras.empty())
        console.Say("  #  model                PID   port       Mbit  sensor cooler  usable");
    for (const CameraEntry &camera : cameras) {
        console.Say(InWords(camera));
        all.push_back(AsJson(camera));
    }
    console.Emit({{"cameras", all}});
}

/// Tells of the cameras that are in `these` but not in `those`.
void ShowMissing(Console &console, const char *event, const std::vector<CameraEntry> &these,
                 const std::vector<CameraEntry> &those)
{
    for (const CameraEntry &camera : these) {
        const auto isIt = [&](const CameraEntry &other) { return camera.IsSamePlace(other); };
        if (std::any_of(those.begin(), those.end(), isIt))
            continue;
        console.Say(fmt::format("{:<9} {}", event, InWords(camera)));
        console.Emit({{"event", event}, {"camera", AsJson(camera)}});
    }
}

[[noreturn]] void WatchPlugs(Console &console, std::vector<CameraEntry> before)
{
    for (;;) {
        StopSignals::SleepFor(kWatchInterval);
        const std::vector<CameraEntry> now = ListCameras();
        ShowMissing(console, "unplugged", before, now);
        ShowMissing(console, "plugged", now, before);
        before = now;
    }
}

/// Every product that the library knows, whether one is plugged in or not.
void ShowModels(Console &console)
{
    ordered_json all = ordered_json::array();
    console.Say("model                PID   sensor cooler  opens");
    for (const vsccam::Product &product : vsccam::Products()) {
        const std::string id = fmt::format("{:04x}", product.productId);
        console.Say(fmt::format("{:<20} {}  {:<6} {:<6}  {}", product.name, id, PixelWord(product),
                                HousingWord(product), product.IsVariant() ? "no" : "yes"));
        all.push_back({{"model", product.name},
                       {"product", id},
                       {"colour", product.pixels == vsccam::Pixels::Colour},
                       {"cooled", product.housing == vsccam::Housing::Cooled},
                       {"opens", !product.IsVariant()}});
    }
    console.Emit({{"models", all}});
}

void List(const ListOptions &options, Context &context)
{
    if (options.models)
        return ShowModels(context.console);
    const std::vector<CameraEntry> cameras = ListCameras();
    Show(context.console, cameras);
    if (static_cast<int>(cameras.size()) < options.require)
        throw Failure(Exit::kNoCamera, fmt::format("{} of {} cameras found; check plugs and power",
                                                   cameras.size(), options.require));
    if (options.watch)
        WatchPlugs(context.console, cameras);
    if (cameras.empty())
        context.console.Note("no camera found; to try without one: vsccam --sim VSC470MC list");
}

} // namespace

void AddListCommand(CLI::App &app, Command &chosen)
{
    CLI::App *list = app.add_subcommand("list", "List the cameras and whether they can be used");
    list->footer("vsccam list --require 2");
    const auto options = std::make_shared<ListOptions>();
    CLI::Option *models =
        list->add_flag("--models", options->models, "All models that there are, instead");
    list->add_flag("--watch", options->watch, "Stay, and show what is plugged and unplugged")
        ->excludes(models);
    list->add_option("--require", options->require,
                     "End with code 3 when there are fewer cameras, also before a --watch")
        ->check(CLI::Range(0, 1024)) // the most that the library lists
        ->excludes(models);
    list->callback(
        [&chosen, options] { chosen = [options](Context &context) { List(*options, context); }; });
}

} // namespace vsctool
