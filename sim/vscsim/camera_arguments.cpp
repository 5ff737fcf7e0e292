#include "vscsim/camera_arguments.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace vscsim {
namespace {

constexpr double kNight = 1.0 / 4000; // of the sky at dusk
constexpr double kDriftPerS = 0.05;   // pixels

template <class Number> Number ParseNumber(std::string_view text, std::string_view what)
{
    Number number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || !std::isfinite(static_cast<double>(number)))
        throw CLI::ValidationError("--camera", fmt::format("no {}: {}", what, text));
    return number;
}

/// A file that could not be written would be missed only after the run.
std::string WritableFile(const std::string &name)
{
    const bool isNew = !std::filesystem::exists(name);
    const bool writable = std::ofstream(name, std::ios::app).is_open();
    if (!writable)
        throw std::runtime_error(
            fmt::format("cannot write {}: {}", name, std::generic_category().message(errno)));
    if (isNew) // a flash without a file is empty, not of no length
        std::filesystem::remove(name);
    return name;
}

/// What is particular about a camera. A name that ends with = is followed by a value.
struct Trait {
    std::string_view name;
    void (*apply)(CameraOptions &options, const std::string &value);
};
constexpr Trait kTraits[] = {
    {"usb2", [](CameraOptions &o, const std::string &) { o.link = LinkSpeed::High; }},
    {"unreadable", [](CameraOptions &o, const std::string &) { o.readableDescriptor = false; }},
    {"firmware=",
     [](CameraOptions &o, const std::string &value) {
         o.firmwareVersion = ParseNumber<uint8_t>(value, "firmware version");
     }},
    {"capped", [](CameraOptions &o, const std::string &) { o.capped = true; }},
    {"flawless",
     [](CameraOptions &o, const std::string &) {
         o.flawless = true;
         o.seeing = o.driftPerS = 0;
     }},
    {"ambient=",
     [](CameraOptions &o, const std::string &value) {
         o.ambientC = ParseNumber<double>(value, "temperature");
     }},
    {"flash=",
     [](CameraOptions &o, const std::string &value) { o.flashFile = WritableFile(value); }},
    {"requests=",
     [](CameraOptions &o, const std::string &value) { o.requestFile = WritableFile(value); }},
    {"glow=",
     [](CameraOptions &o, const std::string &value) {
         o.glow.fill(kNight * ParseNumber<double>(value, "glow"));
     }},
    {"seeing=", [](CameraOptions &o,
                   const std::string &value) { o.seeing = ParseNumber<double>(value, "factor"); }},
    {"drift=", [](CameraOptions &o,
                  const std::string &value) { o.driftPerS = ParseNumber<double>(value, "speed"); }},
    {"made=",
     [](CameraOptions &o, const std::string &value) {
         o.framesMadeBeforehand = ParseNumber<uint8_t>(value, "number of frames");
     }},
};

void ApplyTrait(CameraOptions &options, const std::string &text, const std::string &camera)
{
    const std::string name = text.substr(0, text.find('=') + 1); // none without a value
    const auto *const trait = std::ranges::find(kTraits, name.empty() ? text : name, &Trait::name);
    if (trait == std::end(kTraits))
        throw CLI::ValidationError("--camera", fmt::format("\"{}\" in {}", text, camera));
    trait->apply(options, text.substr(name.size()));
}

/// Reads MODEL and what follows it, see kCameraHelp.
BusDevice ParseCamera(const std::string &text, int firmware)
{
    std::istringstream parts(text);
    std::string part;
    std::getline(parts, part, ':');
    BusDevice device{.model = FindModel(part)};
    if (!device.model)
        throw CLI::ValidationError("--camera", fmt::format("no model {}; see vscsim list", part));
    device.options.glow.fill(kNight);
    device.options.seeing = 1;
    device.options.driftPerS = kDriftPerS;
    device.options.firmwareVersion = static_cast<uint8_t>(firmware);
    while (std::getline(parts, part, ':'))
        ApplyTrait(device.options, part, text);
    return device;
}

double ParseSpeed(const std::string &text)
{
    double speed = 0; // the camera's word for max
    const char *const end = text.data() + text.size();
    const bool number = std::from_chars(text.data(), end, speed).ptr == end;
    if (text != "max" && !(number && speed > 0))
        throw CLI::ValidationError("--speed", "neither a positive factor nor max: " + text);
    return speed;
}

Scene SceneNamed(const std::string &name)
{
    if (name == "pattern")
        return Scene::Pattern;
    return name == "moon" ? Scene::Moon : Scene::Sky;
}

FaultPlan ParseFaults(const std::string &text)
{
    std::string error;
    auto plan = ParseFaultPlan(text, &error);
    if (!plan)
        throw CLI::ValidationError("--fault", error);
    return *plan;
}

bool IsRandom(const FaultPlan &plan)
{
    return std::ranges::any_of(plan, [](const FaultRule &rule) { return rule.probability < 1; });
}

/// Random faults differ from run to run, but can be repeated. Everything else is always the same.
uint64_t ChooseSeed(const CameraArguments &arguments, const FaultPlan &faults)
{
    if (!IsRandom(faults))
        return arguments.seed.value_or(1);
    const uint64_t seed = arguments.seed.value_or(std::random_device{}());
    fmt::print(stderr, "vscsim: seed {}\n", seed);
    return seed;
}

} // namespace

const char *const kCameraHelp = R"(
A camera is a model, followed by what is particular about it:
  VSC470MC              at a USB 3.0 port
  VSC470MC:usb2         at a USB 2.0 port
  VSC470MC:unreadable   its descriptor cannot be read (only of a camera for run)
  VSC340MM:firmware=1   it comes with firmware of that version (that of --firmware)
  VSC470MC:capped       no light reaches its sensor, for dark frames
  VSC470MC:flawless     no noise, dark current, hot pixels, seeing or drift, to compare pictures
                        with
  VSC470MM:ambient=5    the air around it has 5 degrees Celsius (20)
  VSC470MC:flash=FILE   its flash memory lies in a file and outlasts the run
  VSC470MC:requests=FILE  a file gets a line for each request that reaches the camera, and for
                        each frame and guide pulse, with how long it was exposed or on, and since
                        when, by the monotonic clock
  VSC470MC:glow=4000    the sky is so much brighter than at night; 4000 is dusk
  VSC470MC:seeing=3     the air is so much less steady than on average; 0 is steady
  VSC470MC:drift=0.5    the mount lets the picture drift by so many pixels a second (0.05)
  VSC470MC:made=16      16 frames are made and sent in turn, as making each takes the time of the
                        machine whose speed is to be measured
Faults, separated by commas: NAME[:REQUEST][@FIRST][xCOUNT][%PROBABILITY][=AMOUNT], or a JSON file.
  short-frame@5         frame 5 (counted from 0) lacks its last 512 bytes
  empty-frame@10x4      frames 10 to 13 are not sent
  refuse-request:b6@3   the fourth request 0xB6 is stalled
  bad-head%0.01         one frame in a hundred has a wrong mark
  replug@100=3000       before frame 100 it is unplugged, and plugged in again after 3 s (1 s)
  move@100=3000         the same, but into another port; unplug@100: it stays away
  replug@5s=3000        5 s after a program first used it; so do move, unplug and mute
)";

void AddOptions(CLI::App &command, CameraArguments &arguments)
{
    command
        .add_option("--camera", arguments.cameras,
                    "Plugs a camera in (a VSC470MC); may be repeated")
        ->type_name("MODEL[:TRAIT]...")
        ->allow_extra_args(false);
    command.add_option("--scene", arguments.scene, "What the cameras see")
        ->type_name("sky|moon|pattern")
        ->check(CLI::IsMember({"sky", "moon", "pattern"}).description(""))
        ->capture_default_str();
    command.add_option("--fault", arguments.faults, "What goes wrong, and when")->type_name("PLAN");
    command.add_option("--seed", arguments.seed, "Of the sky, of noise and of random faults");
    command
        .add_option("--speed", arguments.speed, "Times real time, or max: no waiting for frames")
        ->type_name("X|max")
        ->capture_default_str();
    command.add_option("--firmware", arguments.firmware, "Version that the cameras come with")
        ->type_name("VERSION")
        ->check(CLI::Range(0, 255).description(""))
        ->capture_default_str();
}

bool CamerasLeave(const CameraArguments &arguments)
{
    constexpr Fault kLeaving[] = {Fault::Unplug, Fault::Replug, Fault::Move, Fault::LostAtReset};
    return std::ranges::any_of(ParseFaults(arguments.faults), [&](const FaultRule &rule) {
        return std::ranges::find(kLeaving, rule.fault) != std::end(kLeaving);
    });
}

std::vector<BusDevice> DevicesOf(const CameraArguments &arguments)
{
    const FaultPlan faults = ParseFaults(arguments.faults);
    const double speed = ParseSpeed(arguments.speed);
    std::vector<BusDevice> devices;
    for (const std::string &camera : arguments.cameras)
        devices.push_back(ParseCamera(camera, arguments.firmware));
    uint64_t seed = ChooseSeed(arguments, faults);
    for (BusDevice &device : devices) {
        device.options.scene = SceneNamed(arguments.scene);
        device.options.faults = faults;
        device.options.speed = speed;
        device.options.seed = seed++;
    }
    return devices;
}

} // namespace vscsim
