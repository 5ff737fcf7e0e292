#include "vscsim/camera_arguments.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace vscsim {
namespace {

constexpr double kNight = 1.0 / 300; // of the sky at dusk
constexpr std::string_view kAmbient = "ambient=";
constexpr std::string_view kFirmware = "firmware=";
constexpr std::string_view kFlash = "flash=";
constexpr std::string_view kGlow = "glow=";
constexpr std::string_view kMade = "made=";
constexpr std::string_view kRequests = "requests=";

template <class Number> Number ParseNumber(std::string_view text, std::string_view what)
{
    Number number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
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

/// Reads MODEL and what follows it, see kCameraHelp.
BusDevice ParseCamera(const std::string &text, int firmware)
{
    std::istringstream parts(text);
    std::string part;
    std::getline(parts, part, ':');
    BusDevice device{.model = FindModel(part)};
    device.options.glow.fill(kNight);
    if (!device.model)
        throw CLI::ValidationError("--camera", fmt::format("no model {}; see vscsim list", part));
    device.options.firmwareVersion = static_cast<uint8_t>(firmware);
    while (std::getline(parts, part, ':')) {
        if (part == "usb2")
            device.options.link = LinkSpeed::High;
        else if (part == "unreadable")
            device.options.readableDescriptor = false;
        else if (part.starts_with(kFirmware))
            device.options.firmwareVersion =
                ParseNumber<uint8_t>(part.substr(kFirmware.size()), "firmware version");
        else if (part.starts_with(kAmbient))
            device.options.ambientC =
                ParseNumber<double>(part.substr(kAmbient.size()), "temperature");
        else if (part.starts_with(kGlow))
            device.options.glow.fill(kNight *
                                     ParseNumber<double>(part.substr(kGlow.size()), "glow"));
        else if (part.starts_with(kMade))
            device.options.framesMadeBeforehand =
                ParseNumber<uint8_t>(part.substr(kMade.size()), "number of frames");
        else if (part == "capped")
            device.options.capped = true;
        else if (part == "flawless")
            device.options.flawless = true;
        else if (part.starts_with(kFlash))
            device.options.flashFile = WritableFile(part.substr(kFlash.size()));
        else if (part.starts_with(kRequests))
            device.options.requestFile = WritableFile(part.substr(kRequests.size()));
        else
            throw CLI::ValidationError("--camera", fmt::format("\"{}\" in {}", part, text));
    }
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
  VSC470MC:flawless     no noise, dark current or hot pixels, to compare pictures with
  VSC470MM:ambient=5    the air around it has 5 degrees Celsius (20)
  VSC470MC:flash=FILE   its flash memory lies in a file and outlasts the run
  VSC470MC:requests=FILE  a file gets a line for each request that reaches the camera, and for
                        each frame, with how long it was exposed
  VSC470MC:glow=300     the sky is so much brighter than at night; 300 is dusk
  VSC470MC:made=16      16 frames are made and sent in turn, as making each takes the time of the
                        machine whose speed is to be measured
Faults, separated by commas: NAME[:REQUEST][@FIRST][xCOUNT][%PROBABILITY][=AMOUNT], or a JSON file.
  short-frame@5         frame 5 (counted from 0) lacks its last 512 bytes
  empty-frame@10x4      frames 10 to 13 are not sent
  refuse-request:b6@3   the fourth request 0xB6 is stalled
  bad-head%0.01         one frame in a hundred has a wrong mark
)";

void AddOptions(CLI::App &command, CameraArguments &arguments)
{
    command
        .add_option("--camera", arguments.cameras,
                    "Plugs a camera in (a VSC470MC); may be repeated")
        ->type_name("MODEL[:TRAIT]...")
        ->allow_extra_args(false);
    command.add_option("--scene", arguments.scene, "What the cameras see")
        ->type_name("sky|pattern")
        ->check(CLI::IsMember({"sky", "pattern"}).description(""))
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

std::vector<BusDevice> DevicesOf(const CameraArguments &arguments)
{
    const FaultPlan faults = ParseFaults(arguments.faults);
    const double speed = ParseSpeed(arguments.speed);
    std::vector<BusDevice> devices;
    for (const std::string &camera : arguments.cameras)
        devices.push_back(ParseCamera(camera, arguments.firmware));
    uint64_t seed = ChooseSeed(arguments, faults);
    for (BusDevice &device : devices) {
        device.options.scene = arguments.scene == "sky" ? Scene::Sky : Scene::Pattern;
        device.options.faults = faults;
        device.options.speed = speed;
        device.options.seed = seed++;
    }
    return devices;
}

} // namespace vscsim
