#include "camera.h"
#include "commands/command.h"
#include "confirm.h"
#include "failure.h"
#include "identity.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>

namespace vsctool {
namespace {

struct SetOptions {
    _VSC_ID id{};
    bool yes = false;
};

void Show(Context &context, const Camera &camera, const _VSC_ID &id)
{
    context.console.Say(InHex(id));
    context.console.Emit({{"model", camera.Entry().model}, {"id", InHex(id)}});
}

void RequireFlash(const Camera &camera)
{
    if (!isUSB3Camera())
        throw Failure(Exit::kNotSupported,
                      camera.Entry().model + " has no flash memory, thus no identifier");
}

void GetId(Context &context)
{
    const Camera camera(context.camera);
    RequireFlash(camera);
    const auto id = IdOfCamera();
    if (!id) {
        camera.CheckPresence();
        throw Failure(Exit::kFailure,
                      fmt::format("{} has no identifier yet; give it one with 'vsccam id set'",
                                  camera.Entry().model));
    }
    Show(context, camera, *id);
}

void SetId(const SetOptions &options, Context &context)
{
    const Camera camera(context.camera);
    RequireFlash(camera);
    if (!options.yes)
        Confirm(fmt::format("Replace the identifier in the flash of {}?", camera.Entry().model));
    _VSC_ID written{};
    // The library looks at the first half only when it has written.
    const bool ok = SetID(options.id) && GetID(&written) &&
                    std::equal(std::begin(written.id), std::end(written.id), options.id.id);
    if (!ok) {
        camera.CheckPresence();
        throw Failure(Exit::kFailure, fmt::format("the flash of {} does not take the identifier; "
                                                  "plug the camera in again and retry",
                                                  camera.Entry().model));
    }
    Show(context, camera, written);
}

} // namespace

void AddIdCommand(CLI::App &app, Command &chosen)
{
    CLI::App *id = app.add_subcommand("id", "Read or write the identifier in a camera's flash");
    id->footer("vsccam id get");
    id->add_subcommand("get", "Show it")->callback([&chosen] { chosen = GetId; });
    CLI::App *set = id->add_subcommand("set", "Write it");
    set->footer("vsccam id set 0102030405060708");
    const auto options = std::make_shared<SetOptions>();
    AddParsed(*set, "id", options->id, ParseId, "HEX", "Eight bytes: 16 hexadecimal digits")
        ->required();
    set->add_flag("--yes", options->yes, "Do not ask");
    set->callback(
        [&chosen, options] { chosen = [options](Context &context) { SetId(*options, context); }; });
}

} // namespace vsctool
