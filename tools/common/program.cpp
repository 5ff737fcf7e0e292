#include "program.h"

#include "failure.h"
#include "simulate.h"
#include "stop_signals.h"

#include <cstdio>
#include <exception>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

struct GlobalOptions {
    ConsoleOptions console;
    std::string camera;
    std::vector<std::string> simulated;
    Microseconds timeout = 20s;
    std::string colour = "auto";
};

void AddGlobalOptions(CLI::App &app, const Program &program, GlobalOptions &o)
{
    app.add_option("--camera", o.camera, "Index or model (default: the first usable camera)");
    app.add_option("--sim", o.simulated, "Use a simulated camera of this model; may be repeated")
        ->allow_extra_args(false);
    app.add_flag("--json", o.console.json, "Results as JSON, one object per line");
    app.add_flag("-q,--quiet", o.console.quiet, "Show nothing but errors (and JSON)");
    app.add_flag("-v,--verbose", o.console.verbose, "Show the library's messages");
    AddParsed(app, "--timeout", o.timeout, ParseTime, "TIME",
              "Longest wait for a frame that is exposed");
    app.add_flag("!--no-progress", o.console.progress, "No progress bar");
    app.add_option("--color", o.colour, "Colour on terminals")
        ->check(CLI::IsMember({"auto", "never"}));
    app.add_option("--log", o.console.logFile, "Append all messages to this file");
    app.set_version_flag("--version", program.name + " " + VSCCAM_VERSION);
    app.set_config("--config", "", "Read options from this file");
}

int Run(const Program &program, int argc, char **argv)
{
    CLI::App app(
        fmt::format("{0}: {1}. '{0} COMMAND --help' tells more.", program.name, program.purpose),
        program.name);
    GlobalOptions global;
    Command command;
    AddGlobalOptions(app, program, global);
    AddCommands(app, program, command);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        const bool isHelp = app.exit(error) == 0;
        return static_cast<int>(isHelp ? Exit::kOk : Exit::kUsage);
    }
    if (!global.simulated.empty() && !IsSimulated())
        RunSimulated(global.simulated, {argv + 1, argv + argc});

    StopSignals::Block();
    global.console.colour = global.colour == "auto";
    Console console(global.console);
    try {
        Context context{console, {global.camera, {}}, global.timeout, IsSimulated()};
        command(context);
    } catch (const Failure &failure) {
        console.Error(failure.what());
        return failure.Code();
    }
    return static_cast<int>(Exit::kOk);
}

} // namespace

void AddCommands(CLI::App &app, const Program &program, Command &chosen)
{
    program.addCommands(app, chosen);
    for (CLI::App *command : app.get_subcommands({}))
        if (!command->get_prefix_command()) // what follows a prefix is not its own
            command->fallthrough();         // global options may follow the command
    CLI::App *help = app.add_subcommand("help", "Show this text");
    help->callback([] { throw CLI::CallForAllHelp(); });
    app.require_subcommand(1);
}

int RunProgram(const Program &program, int argc, char **argv)
{
    // What reaches this place failed before there was a console.
    try {
        return Run(program, argc, argv);
    } catch (const Failure &failure) {
        std::fprintf(stderr, "error: %s\n", failure.what());
        return failure.Code();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "error: %s\n", error.what());
        return static_cast<int>(Exit::kFailure);
    }
}

} // namespace vsctool
