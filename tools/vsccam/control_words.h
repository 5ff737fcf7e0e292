#pragma once

#include "camera.h"

#include <nlohmann/json_fwd.hpp>

#include <optional>

namespace vsctool {

/// A control under its name and in its unit.
nlohmann::ordered_json AsJson(const NamedControl &control, const ControlState &state,
                              std::optional<int> byDefault);
/// Shows the controls of the open camera under their names and in their units, a line for each, and
/// with `withMissing` for each that it lacks. @return the same as an array
nlohmann::ordered_json ShowTable(const Camera &camera, bool withMissing, Console &console);

} // namespace vsctool
