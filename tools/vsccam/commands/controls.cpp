#include "camera.h"
#include "commands/command.h"
#include "control_words.h"
#include "failure.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>

namespace vsctool {
namespace {

using nlohmann::ordered_json;

void ShowControls(Context &context)
{
    const Camera camera(context.camera);
    const ordered_json all = ShowTable(camera, true, context.console);
    context.console.Emit({{"model", camera.Entry().model}, {"controls", all}});
}

/// Just the values, one per line, for scripts.
void Get(const std::vector<std::string> &names, Context &context)
{
    std::vector<const NamedControl *> controls; // all names are right before a camera is opened
    std::transform(names.begin(), names.end(), std::back_inserter(controls),
                   [](const std::string &name) { return &FindControl(name); });
    const Camera camera(context.camera);
    for (const NamedControl *control : controls) {
        const ControlState state = StateOf(*control);
        camera.CheckPresence(); // without it, what was known last would be shown as the value
        if (!state.available)
            throw Failure(Exit::kNotSupported,
                          fmt::format("{} has no {}", camera.Entry().model, control->word));
        context.console.Say(FormatValue(*control, state.value));
        context.console.Emit(AsJson(*control, state, camera.DefaultOf(*control)));
    }
}

bool IsSetting(const std::string &word)
{
    return word.find('=') != std::string::npos;
}

/// Reached only when no setting, or no command, follows the word. Where the camera stays open, the
/// settings do, too.
void SetAlone(const std::vector<std::string> &words, Context &context)
{
    if (!context.run && !words.empty() && std::ranges::all_of(words, IsSetting)) {
        std::ranges::transform(words, std::back_inserter(context.camera.settings), ParseSetting);
        (void)Camera(context.camera);
        return;
    }
    if (words.empty() || IsSetting(words.front()))
        throw Failure(Exit::kUsage, "settings end with the program: put a command behind them, as "
                                    "in 'set gain=200 -- capture'");
    throw Failure(Exit::kUsage, fmt::format("'{}' is no setting; write 'set gain=200 -- capture'",
                                            words.front()));
}

} // namespace

// Settings end with the program, so that they only make sense in front of another command. They
// are taken off before anything is parsed: what is left reads like any other command line.
std::vector<Setting> TakeSettings(std::vector<std::string> &words)
{
    if (!words.empty() && words.front() == "completion") // it asks for what follows "set"
        return {};
    const auto set = std::find(words.begin(), words.end(), "set");
    if (set == words.end() || (set != words.begin() && *std::prev(set) == "id"))
        return {};
    const auto end = std::find_if_not(std::next(set), words.end(), IsSetting);
    const auto command = end != words.end() && *end == "--" ? std::next(end) : end;
    if (end == std::next(set) || command == words.end())
        return {};
    std::vector<Setting> settings;
    std::transform(std::next(set), end, std::back_inserter(settings), ParseSetting);
    words.erase(set, command);
    return settings;
}

void AddControlsCommands(CLI::App &app, Command &chosen)
{
    CLI::App *controls =
        app.add_subcommand("controls", "Show all controls with their ranges and defaults");
    controls->footer("vsccam controls --json");
    controls->callback([&chosen] { chosen = ShowControls; });

    CLI::App *get = app.add_subcommand("get", "Show the values of some controls");
    get->footer("vsccam get gain exposure");
    const auto names = std::make_shared<std::vector<std::string>>();
    get->add_option("name", *names, "Controls, see 'vsccam controls'")->required();
    get->callback(
        [&chosen, names] { chosen = [names](Context &context) { Get(*names, context); }; });

    CLI::App *set = app.add_subcommand("set", "Set controls, then run the command behind '--'");
    set->footer("vsccam set gain=300 bandwidth=60 red=auto -- capture -e 2s");
    set->prefix_command();
    set->callback([&chosen, set] {
        chosen = [words = set->remaining()](Context &context) { SetAlone(words, context); };
    });
}

} // namespace vsctool
