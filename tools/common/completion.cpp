#include "completion.h"

#include "controls.h"
#include "help.h"

#include <algorithm>
#include <iterator>
#include <sstream>

namespace vsctool {
namespace {

/// Where the words before the last one have led.
struct Place {
    const CLI::App *command;
    const CLI::Option *awaiting = nullptr; // its value
    bool afterEquals = false;              // where the shell makes a word of the sign
};

const CLI::Option *FindOption(const CLI::App &command, const std::string &name)
{
    for (const CLI::Option *option : command.get_options())
        if (option->check_name(name))
            return option;
    return command.get_parent() ? FindOption(*command.get_parent(), name) : nullptr;
}

void Follow(Place &place, const CLI::App &program, const std::string &word)
{
    place.afterEquals = word == "=";
    if (place.afterEquals)
        return;
    if (place.awaiting) {
        place.awaiting = nullptr;
    } else if (word == "--") { // another command follows the settings
        place.command = &program;
    } else if (word.starts_with('-')) {
        const CLI::Option *option = FindOption(*place.command, word);
        if (option && option->get_items_expected_max() > 0)
            place.awaiting = option;
    } else {
        for (const CLI::App *below : place.command->get_subcommands({}))
            if (below->check_name(word))
                place.command = below;
    }
}

/// "TEXT:{auto,never}" names them.
std::vector<std::string> ChoicesOf(const CLI::Option &option)
{
    const std::string type = option.get_type_name();
    const size_t begin = type.find('{');
    if (begin == std::string::npos)
        return {};
    std::istringstream list(type.substr(begin + 1, type.find('}') - begin - 1));
    std::vector<std::string> choices;
    for (std::string choice; std::getline(list, choice, ',');)
        choices.push_back(choice);
    return choices;
}

/// Of what can be read, or be set.
std::vector<std::string> ControlWords(bool forSetting)
{
    std::vector<std::string> words;
    for (const NamedControl &control : AllControls())
        if (!forSetting || control.writable)
            words.push_back(std::string(control.word) + (forSetting ? "=" : ""));
    return words;
}

std::vector<std::string> AllAt(const Place &place, const CLI::App &program, bool options)
{
    if (place.awaiting)
        return ChoicesOf(*place.awaiting);
    if (place.afterEquals) // the value of a control
        return {};
    if (options)
        return OptionNames(*place.command);
    if (place.command->get_name() == "help")
        return CommandNames(program);
    if (place.command->get_name() == "get" || place.command->get_name() == "set")
        return ControlWords(place.command->get_name() == "set");
    std::vector<std::string> all = CommandNames(*place.command);
    for (const CLI::Option *option : place.command->get_options())
        if (option->get_positional())
            std::ranges::move(ChoicesOf(*option), std::back_inserter(all));
    return all;
}

/// "--type=d": the option, and what of its value is there.
std::vector<std::string> ChoicesBehindEquals(const CLI::App &command, const std::string &begun)
{
    const std::string name = begun.substr(0, begun.find('='));
    const CLI::Option *option = FindOption(command, name);
    std::vector<std::string> choices = option ? ChoicesOf(*option) : std::vector<std::string>();
    for (std::string &choice : choices)
        choice.insert(0, name + '=');
    return choices;
}

} // namespace

std::vector<std::string> Completions(const CLI::App &program, const std::vector<std::string> &words)
{
    if (words.empty())
        return {};
    Place place{&program};
    std::for_each(words.begin(), std::prev(words.end()),
                  [&](const std::string &word) { Follow(place, program, word); });
    std::string begun = words.back();
    if (begun == "=") { // nothing is behind it yet
        place.afterEquals = true;
        begun.clear();
    }
    const bool isOption = begun.starts_with('-') && !place.awaiting;
    std::vector<std::string> found = isOption && begun.find('=') != std::string::npos
                                         ? ChoicesBehindEquals(*place.command, begun)
                                         : AllAt(place, program, isOption);
    std::erase_if(found, [&](const std::string &one) { return !one.starts_with(begun); });
    return found;
}

} // namespace vsctool
