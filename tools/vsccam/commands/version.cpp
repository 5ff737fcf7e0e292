#include "commands/command.h"

#include <nlohmann/json.hpp>
#include <vsccam.h>

namespace vsctool {
namespace {

void ShowVersion(Context &context)
{
    context.console.Say(fmt::format("vsccam {}, library {}", VSCCAM_VERSION, getSDKVersion()));
    context.console.Emit({{"tool", VSCCAM_VERSION}, {"library", getSDKVersion()}});
}

} // namespace

void AddVersionCommand(CLI::App &app, Command &chosen)
{
    CLI::App *version = app.add_subcommand("version", "Show the versions of tool and library");
    version->footer("vsccam version --json");
    version->callback([&chosen] { chosen = ShowVersion; });
}

} // namespace vsctool
