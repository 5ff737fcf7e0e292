#include "completion.h"

#include "commands/command.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <vector>

namespace vsctool {
namespace {

// Shells ask the program for each word: what it offers cannot differ from what it understands. It
// takes milliseconds.
struct Script {
    const char *shell;
    const char *text;
};
constexpr Script kScripts[] = {
    {"bash", R"---(_vsccam()
{
    mapfile -t COMPREPLY < <("${COMP_WORDS[0]}" completion words -- \
        "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
    if [[ ${COMPREPLY[0]} == *= ]]; then compopt -o nospace; fi
}
complete -o bashdefault -o default -F _vsccam vsccam
)---"},
    {"zsh", R"---(#compdef vsccam
_vsccam()
{
    local -a found
    found=(${(f)"$("${words[1]}" completion words -- "${(@)words[2,CURRENT]}" 2>/dev/null)"})
    local -a ends=()
    if [[ $found[1] == *= ]]; then ends=(-S ''); fi
    if (( $#found )); then compadd "${ends[@]}" -a found; else _files; fi
}
if [[ $funcstack[1] == _vsccam ]]; then _vsccam "$@"; else compdef _vsccam vsccam; fi
)---"},
    {"fish", R"---(function __vsccam_words
    set -l all (commandline -opc) (commandline -ct)
    $all[1] completion words -- $all[2..] 2>/dev/null
end
complete -c vsccam -f -n 'count (__vsccam_words) >/dev/null' -a '(__vsccam_words)'
)---"},
};

struct CompletionOptions {
    std::string shell;
    std::vector<std::string> words;
};

void Complete(const CompletionOptions &options, Context &context)
{
    for (const Script &script : kScripts)
        if (options.shell == script.shell)
            return context.console.Print(script.text);
    for (const std::string &word : Completions(context.program, options.words))
        context.console.Print(word);
}

} // namespace

void AddCompletionCommand(CLI::App &app, Command &chosen)
{
    CLI::App *completion =
        app.add_subcommand("completion", "Print what makes a shell complete words of this program");
    const auto options = std::make_shared<CompletionOptions>();
    completion
        ->add_option("shell", options->shell,
                     "The shell; or 'words' for what may follow the words behind '--'")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish", "words"}));
    completion->add_option("words", options->words, "Of a command line; the last one is begun");
    completion->footer("source <(vsccam completion bash)");
    completion->callback([&chosen, options] {
        chosen = [options](Context &context) { Complete(*options, context); };
    });
}

} // namespace vsctool
