#include "camera_controls.h"

#include "api/session.h"
#include "core/controls.h"

#include <nlohmann/json.hpp>

namespace vsctool {
namespace {

using nlohmann::ordered_json;

/// What the camera itself lists, by the library's newer interface, which no exported function
/// reaches: with the names and the ranges that it gives.
void ShowControls(Context &context)
{
    const Camera camera(context.camera);
    vsccam::CCameraBase &inside = *vsccam::CurrentCamera();
    ordered_json all = ordered_json::array();
    vsccam::_VSC_CONTROL_CAPS caps{};
    for (int i = 0; inside.GetControlCaps(i, &caps); ++i) {
        int32_t value = 0;
        int32_t automatic = 0;
        (void)inside.GetControlValue(caps.type, &value, &automatic); // it is in the list
        context.console.Say(fmt::format("{:<20} {:>10}  {:>6} to {:<10} {:<9} {}", caps.name, value,
                                        caps.minimum, caps.maximum,
                                        caps.writable ? "" : "read only", caps.description));
        all.push_back({{"name", caps.name},
                       {"value", value},
                       {"min", caps.minimum},
                       {"max", caps.maximum},
                       {"initial", caps.initial},
                       {"auto", automatic != 0},
                       {"has_auto", caps.autoSupported != 0},
                       {"read_only", caps.writable == 0}});
    }
    context.console.Emit({{"model", camera.Entry().model}, {"controls", all}});
}

} // namespace

void AddControlsCommand(CLI::App &app, Command &chosen)
{
    CLI::App *controls =
        app.add_subcommand("controls", "Show the controls as the camera itself lists them");
    controls->footer("vscservice controls --json");
    controls->callback([&chosen] { chosen = ShowControls; });
}

} // namespace vsctool
