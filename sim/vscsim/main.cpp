#include "vscsim/camera_arguments.h"
#include "vscsim/child.h"
#include "vscsim/serve.h"
#include "vscsim/testbed.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace vscsim;

constexpr size_t kMebibyte = 1 << 20;

/// What the command line asks for.
struct RunOptions {
    CameraArguments cameras;
    size_t usbfsMemory = 16;
    std::vector<std::string> command;
};

constexpr const char *kRunExample = R"(Example:
  vscsim run --camera VSC470MC --camera VSC470MM:usb2 -- vsccam list)";

int Run(const RunOptions &options, char **arguments)
{
    if (CamerasLeave(options.cameras))
        PreloadOurselves(arguments);
    const std::vector<BusDevice> devices = DevicesOf(options.cameras);
    const size_t memory = options.usbfsMemory != 0 ? options.usbfsMemory * kMebibyte
                                                   : std::numeric_limits<size_t>::max();
    HoldSignals();
    const Testbed bus(devices, memory);
    if (!bus.Error().empty()) {
        fmt::print(stderr, "vscsim: {}\n", bus.Error());
        return EXIT_FAILURE;
    }
    return RunPreloaded(options.command);
}

struct ServeArguments {
    CameraArguments cameras;
    ServeOptions server;
};

constexpr const char *kServeExample = R"(Example, in two terminals:
  vscsim serve --camera VSC470MC
  sudo modprobe vhci-hcd && sudo usbip attach -r 127.0.0.1 -b 1-1
Detaching (usbip detach -p PORT) unplugs the camera; attached again, it is as after power-on.)";

void AddServe(CLI::App &command, ServeArguments &arguments)
{
    AddOptions(command, arguments.cameras);
    command
        .add_option("--bind", arguments.server.address,
                    "Address to listen on; whoever reaches it can attach the cameras")
        ->type_name("ADDRESS")
        ->capture_default_str();
    command.add_option("--port", arguments.server.port, "TCP port to listen on, 0 for a free one")
        ->type_name("N")
        ->capture_default_str();
    command
        .add_option("--away", arguments.server.awaySeconds,
                    "How long a camera that the plan unplugs stays away, unless it tells")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 1e9).description(""))
        ->capture_default_str();
    command.footer(std::string(kCameraHelp) + kServeExample);
}

int List(bool asJson)
{
    nlohmann::ordered_json json = nlohmann::ordered_json::array();
    for (const ModelFacts &model : AllModels())
        if (asJson)
            json.push_back({{"name", model.name},
                            {"vendorId", VendorId()},
                            {"productId", model.productId},
                            {"width", model.sensorWidth},
                            {"height", model.sensorHeight},
                            {"colour", model.Colour()},
                            {"cooled", model.cooled},
                            {"superSpeed", model.controller == ControllerKind::Fx3}});
        else
            fmt::print("{:04x}:{:04x}  {:<16} {:4} x {:<4} {}{}{}\n", VendorId(), model.productId,
                       model.name, model.sensorWidth, model.sensorHeight,
                       model.Colour() ? "colour" : "mono", model.cooled ? ", cooled" : "",
                       model.controller == ControllerKind::Fx2 ? ", USB 2.0" : "");
    if (asJson)
        fmt::print("{}\n", json.dump(2));
    return EXIT_SUCCESS;
}

int Main(int argc, char **argv)
{
    CLI::App app("Simulated VSC cameras for unmodified programs");
    app.require_subcommand(1);

    bool asJson = false;
    CLI::App *const list = app.add_subcommand("list", "Names the models");
    list->add_flag("--json", asJson, "as JSON");

    RunOptions options;
    CLI::App *const run = app.add_subcommand("run", "Runs a program on a bus of simulated cameras");
    AddOptions(*run, options.cameras);
    run->add_option("--usbfs-memory", options.usbfsMemory,
                    "Limit of the kernel for transfers in flight, 0 for none")
        ->type_name("MIB")
        ->capture_default_str();
    run->add_option("program", options.command, "The program and its arguments, after --")
        ->required();
    run->footer(std::string(kCameraHelp) + kRunExample);

    ServeArguments served;
    CLI::App *const serve =
        app.add_subcommand("serve", "Offers simulated cameras to kernels, over USB/IP");
    AddServe(*serve, served);

    try {
        app.parse(argc, argv);
        if (*serve)
            Serve(DevicesOf(served.cameras), served.server);
        else
            return *list ? List(asJson) : Run(options, argv);
        return EXIT_SUCCESS;
    } catch (const CLI::ParseError &error) {
        constexpr int kUsage = 2;
        return app.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : kUsage;
    }
}

} // namespace

// GLib and umockdev synchronise in ways that ThreadSanitizer cannot see; it shall judge this
// program, not them.
extern "C" __attribute__((used, visibility("default"))) const char *
__tsan_default_options() // NOLINT(bugprone-reserved-identifier): the runtime's own name
{
    return "ignore_noninstrumented_modules=1";
}

int main(int argc, char **argv)
try {
    return Main(argc, argv);
} catch (const std::exception &error) {
    std::fprintf(stderr, "vscsim: %s\n", error.what());
    return EXIT_FAILURE;
}
