#include "help.h"

#include "failure.h"
#include "nearest.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace vsctool {
namespace {

constexpr size_t kWidest = 96; // columns of a line of exit codes

bool IsProgram(const CLI::App &app)
{
    return app.get_parent() == nullptr;
}

const CLI::App &ProgramOf(const CLI::App &command)
{
    return IsProgram(command) ? command : ProgramOf(*command.get_parent());
}

std::string ExitCodes()
{
    std::string text = "Exit codes:\n ";
    size_t column = 1;
    const auto put = [&](const std::string &entry) {
        if (column + entry.size() > kWidest) {
            text += "\n ";
            column = 1;
        }
        text += entry;
        column += entry.size();
    };
    for (const ExitWords &exit : kExitWords)
        put(fmt::format(" {} {},", static_cast<int>(exit.code), exit.words));
    put(fmt::format(" {} + N ended by signal N", static_cast<int>(Exit::kSignal)));
    return text + '\n';
}

} // namespace

std::string HelpForm::make_footer(const CLI::App *app) const
{
    std::string text;
    if (!IsProgram(*app)) {
        const CLI::App &program = ProgramOf(*app);
        const auto isForAll = [&](const CLI::Option *option) {
            return option->nonpositional() && option != program.get_help_ptr() &&
                   option->get_name() != "--version";
        };
        text += make_group("Options for all commands", false, program.get_options(isForAll));
        text.erase(0, 1); // the line before it is empty already
    }
    text += (text.empty() ? "" : "\n") + ExitCodes();
    if (!app->get_footer().empty())
        text += fmt::format("\nExample:\n  {}\n", app->get_footer());
    return text;
}

std::string FullName(const CLI::App &command)
{
    return IsProgram(command) ? command.get_name()
                              : FullName(*command.get_parent()) + ' ' + command.get_name();
}

std::vector<std::string> CommandNames(const CLI::App &parent)
{
    std::vector<std::string> names;
    for (const CLI::App *command : parent.get_subcommands({}))
        names.push_back(command->get_name());
    return names;
}

std::vector<std::string> OptionNames(const CLI::App &command)
{
    std::vector<std::string> names;
    for (const CLI::Option *option : command.get_options())
        for (const std::string &name : option->get_lnames())
            names.push_back("--" + name);
    if (!IsProgram(command))
        std::ranges::copy(OptionNames(*command.get_parent()), std::back_inserter(names));
    return names;
}

std::string HelpOn(const CLI::App &program, const std::vector<std::string> &words)
{
    const CLI::App *told = &program;
    for (const std::string &word : words) {
        const CLI::App *const parent = told;
        const auto named =
            parent->get_subcommands([&](const CLI::App *one) { return one->check_name(word); });
        if (named.empty())
            throw Failure(Exit::kUsage, fmt::format("no command '{}'; {}", word,
                                                    Suggest(word, CommandNames(*parent))));
        told = named.front();
    }
    return told->get_formatter()->make_help(told, FullName(*told), CLI::AppFormatMode::Normal);
}

} // namespace vsctool
