#include "program.h"

#include "config_file.h"
#include "failure.h"
#include "help.h"
#include "nearest.h"
#include "simulate.h"
#include "stop_signals.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <sstream>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

/// Options that all commands take.
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
        ->type_name("MODEL")
        ->allow_extra_args(false);
    app.add_flag("--json", o.console.json, "Results as JSON, one object per line");
    app.add_flag("-q,--quiet", o.console.quiet, "Show nothing but errors (and JSON)");
    app.add_flag("-v,--verbose", o.console.verbose, "Show the library's messages");
    AddParsed(app, "--timeout", o.timeout, ParseTime, "TIME",
              "Longest wait for a frame that is exposed (default 20s)");
    app.add_flag_callback(
        "--no-progress", [&o] { o.console.progress = false; }, "No progress bar");
    app.add_option("--color", o.colour, "Colour on terminals")
        ->check(CLI::IsMember({"auto", "never"}));
    app.add_option("--log", o.console.logFile, "Append all messages to this file")
        ->type_name("FILE");
    app.set_version_flag("--version", program.name + " " + VSCCAM_VERSION);
    app.set_config("--config", "", "Read options from this file")
        ->type_name("FILE")
        ->check(CLI::Validator(WhyNoConfig, ""));
    app.config_formatter(std::make_shared<ConfigForm>());
}

/// "help" and "help COMMAND"
void AddHelp(CLI::App &app, Command &chosen)
{
    CLI::App *help = app.add_subcommand("help", "Show this text, or that of a command");
    const auto words = std::make_shared<std::vector<std::string>>();
    help->add_option("command", *words, "Command to tell about");
    help->footer(app.get_name() + " help list");
    help->callback([&app, &chosen, words] {
        chosen = [text = HelpOn(app, *words)](Context &context) { context.console.Print(text); };
    });
}

/// What is no command or option is told by sentences of ours.
void LeaveUnknownWords(CLI::App &app)
{
    for (CLI::App *command : app.get_subcommands({})) {
        if (!command->get_prefix_command()) // what follows a prefix is not its own
            command->fallthrough();         // global options may follow the command
        LeaveUnknownWords(*command);
    }
    if (!app.get_subcommands({}).empty())
        app.require_subcommand(0, 1);
}

void AddCommands(CLI::App &app, const Program &program, Command &chosen)
{
    app.allow_config_extras(CLI::config_extras_mode::error); // and so for the commands
    app.formatter(std::make_shared<HelpForm>());             // likewise
    program.addCommands(app, chosen);
    AddHelp(app, chosen);
    LeaveUnknownWords(app);
    app.allow_extras();
    app.footer(program.example);
}

/// The command that was named, or the part of one.
const CLI::App &Innermost(const CLI::App &app)
{
    return app.get_subcommands().empty() ? app : Innermost(*app.get_subcommands().front());
}

/// Throws Failure unless there is one command, which exists, with options that do.
void RequireCommand(const CLI::App &app)
{
    const CLI::App &command = Innermost(app);
    const std::string name = FullName(command);
    const bool isWhole = command.get_subcommands({}).empty();
    std::vector<std::string> extras = app.remaining(true);
    std::erase(extras, "--"); // which only parts the words
    if (command.get_prefix_command())
        return; // and looks at them itself
    if (extras.empty()) {
        if (!isWhole)
            throw Failure(Exit::kUsage,
                          fmt::format("a command is missing; '{} --help' names them", name));
        return;
    }
    const std::string &word = extras.front();
    if (word.starts_with("--")) {
        const std::string option = word.substr(0, word.find('='));
        const std::string nearest = Nearest(option, OptionNames(command));
        throw Failure(Exit::kUsage,
                      fmt::format("no option '{}'{}; '{} --help' names all", option,
                                  nearest.empty() ? "" : ", did you mean " + nearest + "?", name));
    }
    if (!isWhole && !word.starts_with('-'))
        throw Failure(Exit::kUsage, fmt::format("no command '{}'; {}", word,
                                                Suggest(word, CommandNames(command))));
    throw Failure(Exit::kUsage, fmt::format("'{}' is not understood; see '{} --help'", word, name));
}

/// The command line of the program, and what is read from it.
struct CommandLine {
    CommandLine(const Program &program, GlobalOptions defaults)
        : app(fmt::format("{0}: {1}. '{0} COMMAND --help' tells more.", program.name,
                          program.purpose),
              program.name),
          global(std::move(defaults))
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
        CommandLine(program, {}).app.parse_from_stream(text);
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
    if (config->count() > 0 && WhyNoConfig(config->results().front()).empty())
        TellWrongLine(config->results().front(),
                      [&program](std::istream &text) { ParseConfig(program, text); });
}

/// Reads the words behind the program's name. @return what is to be shown instead of running a
/// command, if anything. Throws Failure.
std::string Parse(const Program &program, CommandLine &line, std::vector<std::string> words)
{
    std::reverse(words.begin(), words.end()); // the form that the parser takes
    try {
        line.app.parse(words);
        RequireCommand(line.app);
    } catch (const CLI::CallForHelp &) {
        const CLI::App &told = Innermost(line.app);
        return told.get_formatter()->make_help(&told, FullName(told), CLI::AppFormatMode::Normal);
    } catch (const CLI::Success &version) {
        std::ostringstream text;
        line.app.exit(version, text);
        return text.str();
    } catch (const CLI::ParseError &error) {
        BlameConfig(program, line.app);
        throw Failure(Exit::kUsage, fmt::format("{}; see '{} --help'", error.what(),
                                                FullName(Innermost(line.app))));
    } catch (const Failure &) {
        BlameConfig(program, line.app);
        throw;
    }
    return "";
}

/// The settings in front of the command, which are taken off the words.
std::vector<Setting> TakeSettings(const Program &program, std::vector<std::string> &words)
{
    return program.takeSettings ? program.takeSettings(words) : std::vector<Setting>();
}

/// A further command line of a program that keeps its camera open.
class FurtherLine {
  public:
    FurtherLine(const Program &program, const GlobalOptions &global, Console &console)
        : m_program(program), m_global(global), m_console(console)
    {
    }

    void Run(std::vector<std::string> words) const
    {
        CommandLine line(m_program, m_global);
        const std::vector<Setting> settings = TakeSettings(m_program, words);
        const std::string text = Parse(m_program, line, words);
        RequireSameStart(line);
        const ConsoleChange change(m_console, line.global.console);
        if (!text.empty())
            return m_console.Print(text);
        Context context{.console = m_console,
                        .camera = {line.global.camera, settings},
                        .timeout = line.global.timeout,
                        .simulated = IsSimulated(),
                        .program = line.app};
        line.command(context);
    }

  private:
    /// Throws Failure for options that come too late.
    void RequireSameStart(const CommandLine &line) const
    {
        const GlobalOptions &now = line.global;
        if (now.camera != m_global.camera || now.simulated != m_global.simulated ||
            now.console.logFile != m_global.console.logFile ||
            now.console.verbose != m_global.console.verbose ||
            line.app.get_config_ptr()->count() > 0)
            throw Failure(Exit::kUsage,
                          "--camera, --sim, -v, --log and --config hold for all lines: "
                          "give them when the program is started");
    }

    const Program &m_program;
    const GlobalOptions &m_global;
    Console &m_console;
};

int Run(const Program &program, int argc, char **argv)
{
    CommandLine line(program, {});
    std::vector<std::string> words(argv + 1, argv + argc);
    const std::vector<Setting> settings = TakeSettings(program, words);
    if (const std::string text = Parse(program, line, words); !text.empty()) {
        std::fputs(text.c_str(), stdout);
        return static_cast<int>(Exit::kOk);
    }
    GlobalOptions &global = line.global;
    if (!global.simulated.empty() && !IsSimulated())
        RunSimulated(global.simulated, {argv + 1, argv + argc});

    StopSignals::Block();
    global.console.colour = global.colour == "auto";
    Console console(global.console);
    const FurtherLine further(program, global, console);
    try {
        Context context{.console = console,
                        .camera = {global.camera, settings},
                        .timeout = global.timeout,
                        .simulated = IsSimulated(),
                        .program = line.app,
                        .run = [&](const std::vector<std::string> &more) { further.Run(more); }};
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
