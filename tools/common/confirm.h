#pragma once

#include <string>

namespace vsctool {

/// Asks before something is replaced for good; throws Failure unless the answer is yes. Only a
/// person at a terminal can be asked.
void Confirm(const std::string &question);

} // namespace vsctool
