#pragma once

#include "camera.h"

#include <nlohmann/json_fwd.hpp>

namespace vsctool {

/// A control of the open camera as commands show it, under its name and in its unit.
nlohmann::ordered_json AsJson(const NamedControl &control, const Camera &camera);
/// A line for each of them that was asked for, below the names of the columns; and the same as an
/// array.
nlohmann::ordered_json ShowTable(const Camera &camera, bool withMissing, Console &console);

} // namespace vsctool
