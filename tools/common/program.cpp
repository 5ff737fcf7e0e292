#include "program.h"

#include "config_file.h"
#include "failure.h"
#include "simulate.h"
#include "stop_signals.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>

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
    app.config_formatter(std::make_shared<ConfigForm>());
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

/// The command line of the program, and what is read from it.
struct CommandLine {
    explicit CommandLine(const Program &program)
        : app(fmt::format("{0}: {1}. '{0} COMMAND --help' tells more.", program.name,
                          program.purpose),
              program.name)
    {
        AddGlobalOptions(app, program, global);
        AddCommands(app, program, command);
    }

    CLI::App app;
    GlobalOptions global;
    Command command;
};

/// Parses what stands in a configuration file. Throws like the parser, but in words.
void ParseConfig(const Program &program, std::istream &text)
{
    try {
        CommandLine(program).app.parse_from_stream(text);
    } catch (const CLI::ConfigError &error) {
        const std::string words = error.what(); // ends with the name, and that of a head with ".++"
        const std::string name = words.substr(words.rfind(' ') + 1);
        throw Failure(Exit::kUsage,
                      fmt::format("there is no option '{}'", name.substr(0, name.find(".++"))));
    }
}

/// Throws Failure when it was a line of the configuration file that could not be parsed.
void BlameConfig(const Program &program, const CLI::App &app)
{
    const CLI::Option *const config = app.get_config_ptr();
    if (config->count() > 0)
        TellWrongLine(config->as<std::string>(),
                      [&program](std::istream &text) { ParseConfig(program, text); });
}

/// Reads the words behind the program's name. @return how the program ends, if it does
std::optional<Exit> Parse(const Program &program, CommandLine &line, std::vector<std::string> words)
{
    std::reverse(words.begin(), words.end()); // the form that the parser takes
    try {
        line.app.parse(words);
        RequireCommand(line.app);
    } catch (const CLI::Success &help) {
        line.app.exit(help);
        return Exit::kOk;
    } catch (const CLI::ParseError &error) {
        BlameConfig(program, line.app);
        line.app.exit(error);
        return Exit::kUsage;
    } catch (const Failure &) {
        BlameConfig(program, line.app);
        throw;
    }
    return std::nullopt;
}

int Run(const Program &program, int argc, char **argv)
{
    CommandLine line(program);
    std::vector<std::string> words(argv + 1, argv + argc);
    const std::vector<Setting> settings =
        program.takeSettings ? program.takeSettings(words) : std::vector<Setting>();
    if (const auto end = Parse(program, line, words))
        return static_cast<int>(*end);
    GlobalOptions &global = line.global;
    if (!global.simulated.empty() && !IsSimulated())
        RunSimulated(global.simulated, {argv + 1, argv + argc});

    StopSignals::Block();
    global.console.colour = global.colour == "auto";
    Console console(global.console);
    try {
        Context context{console, {global.camera, settings}, global.timeout, IsSimulated()};
        line.command(context);
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
