#include "program.h"

#include "failure.h"
#include "simulate.h"
#include "stop_signals.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>

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
    app.add_option("--camera", o.camera,
                   "INDEX, MODEL, usb:1-2.3 or id:HEX (default: the first usable camera)");
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

[[noreturn]] void ThrowNoCommand(const CLI::App &app, const std::string &name)
{
    std::string names;
    for (const CLI::App *command : app.get_subcommands({}))
        names.append(names.empty() ? "" : ", ").append(command->get_name());
    throw Failure(Exit::kUsage, fmt::format("no command '{}'; there are {}", name, names));
}

/// "help" and "help COMMAND"
void AddHelp(CLI::App &app)
{
    CLI::App *help = app.add_subcommand("help", "Show this text, or that of a command");
    const auto name = std::make_shared<std::string>();
    help->add_option("command", *name, "Command to tell about");
    help->callback([&app, name] {
        const auto isIt = [&](const CLI::App *one) { return one->check_name(*name); };
        const auto found = app.get_subcommands(isIt);
        if (found.empty() && !name->empty())
            ThrowNoCommand(app, *name);
        const CLI::App &told = found.empty() ? app : *found.front();
        const std::string line = found.empty() ? app.get_name() : app.get_name() + ' ' + *name;
        std::cout << app.get_formatter()->make_help(&told, line, CLI::AppFormatMode::Normal);
        throw CLI::Success();
    });
}

void AddCommands(CLI::App &app, const Program &program, Command &chosen)
{
    app.allow_config_extras(CLI::config_extras_mode::error); // and so for the commands
    program.addCommands(app, chosen);
    for (CLI::App *command : app.get_subcommands({}))
        if (!command->get_prefix_command()) // what follows a prefix is not its own
            command->fallthrough();         // global options may follow the command
    AddHelp(app);
    app.require_subcommand(0, 1);
    app.allow_extras(); // what is no command is told by a sentence of ours
}

/// Throws Failure unless there is one command, which exists.
void RequireCommand(const CLI::App &app)
{
    const std::vector<std::string> extras = app.remaining(true);
    if (!extras.empty() && !extras.front().starts_with('-') && app.get_subcommands().empty())
        ThrowNoCommand(app, extras.front());
    if (!extras.empty())
        throw Failure(Exit::kUsage, fmt::format("'{}' is not understood; see '{} {}--help'",
                                                extras.front(), app.get_name(),
                                                app.get_subcommands().empty()
                                                    ? ""
                                                    : app.get_subcommands()[0]->get_name() + " "));
    if (app.get_subcommands().empty())
        throw Failure(Exit::kUsage,
                      fmt::format("a command is missing; '{} help' names them", app.get_name()));
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
    std::vector<std::string> words(argv + 1, argv + argc);
    const std::vector<Setting> settings =
        program.takeSettings ? program.takeSettings(words) : std::vector<Setting>();
    std::reverse(words.begin(), words.end()); // the form that the parser takes
    try {
        app.parse(words);
        RequireCommand(app);
    } catch (const CLI::ConfigError &error) {
        const std::string text = error.what(); // ends with the name
        throw Failure(Exit::kUsage, fmt::format("the configuration file: there is no option '{}'",
                                                text.substr(text.rfind(' ') + 1)));
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
        Context context{console, {global.camera, settings}, global.timeout, IsSimulated()};
        command(context);
    } catch (const Failure &failure) {
        console.Error(failure.what());
        return failure.Code();
    }
    return static_cast<int>(Exit::kOk);
}

} // namespace

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
