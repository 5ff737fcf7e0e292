#pragma once

#include "controls.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace vsctool {

/// A control as commands show it, under its name and in its unit.
std::string InWords(const NamedControl &control, const ControlState &state);
nlohmann::ordered_json AsJson(const NamedControl &control, const ControlState &state);

} // namespace vsctool
