#include "control_words.h"

#include "units.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace vsctool {
namespace {

using nlohmann::ordered_json;

/// The unit of what is shown for programs; empty: it has none.
const char *UnitOf(const NamedControl &control)
{
    switch (control.unit) {
    case ControlUnit::kMicroseconds:
    case ControlUnit::kSeconds:
        return "s";
    case ControlUnit::kTenthCelsius:
    case ControlUnit::kCelsius:
        return "C";
    case ControlUnit::kPercent:
        return "%";
    case ControlUnit::kSwitch:
    case ControlUnit::kPlain:
        break;
    }
    return "";
}

/// A figure in that unit.
ordered_json Figure(const NamedControl &control, int value)
{
    switch (control.unit) {
    case ControlUnit::kMicroseconds:
        return Seconds(Microseconds(value));
    case ControlUnit::kTenthCelsius:
        return value / 10.0;
    case ControlUnit::kSwitch:
        return value != 0;
    case ControlUnit::kSeconds:
    case ControlUnit::kCelsius:
    case ControlUnit::kPercent:
    case ControlUnit::kPlain:
        break;
    }
    return value;
}

std::string InWords(const NamedControl &control, const ControlState &state,
                    std::optional<int> byDefault)
{
    if (!state.available)
        return fmt::format("{:<18} {:>9}", control.word, "-");
    const char *mode = state.automatic      ? "auto"
                       : !control.writable  ? "read only"
                       : state.hasAutomatic ? "manual"
                                            : "";
    const auto text = [&](int value) { return FormatValue(control, value); };
    return fmt::format("{:<18} {:>9}  {:>9} to {:<9} {:>9}  {}", control.word, text(state.value),
                       text(state.min), text(state.max), byDefault ? text(*byDefault) : "", mode);
}

} // namespace

ordered_json AsJson(const NamedControl &control, const ControlState &state,
                    std::optional<int> byDefault)
{
    ordered_json json = {{"name", control.word}, {"available", state.available}};
    if (!state.available)
        return json;
    json["value"] = Figure(control, state.value);
    json["min"] = Figure(control, state.min);
    json["max"] = Figure(control, state.max);
    if (byDefault)
        json["default"] = Figure(control, *byDefault);
    json["unit"] = UnitOf(control);
    json["auto"] = state.automatic;
    json["has_auto"] = state.hasAutomatic;
    json["read_only"] = !control.writable;
    return json;
}

ordered_json ShowTable(const Camera &camera, bool withMissing, Console &console)
{
    console.Say(fmt::format("{:<18} {:>9}  {:>9}    {:<9} {:>9}", "control", "value", "from", "to",
                            "default"));
    ordered_json all = ordered_json::array();
    for (const NamedControl &control : AllControls()) {
        const ControlState state = StateOf(control);
        if (!state.available && !withMissing)
            continue;
        console.Say(InWords(control, state, camera.DefaultOf(control)));
        all.push_back(AsJson(control, state, camera.DefaultOf(control)));
    }
    return all;
}

} // namespace vsctool
