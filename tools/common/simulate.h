#pragma once

#include <string>
#include <vector>

namespace vsctool {

/// Whether this process sees simulated cameras: everything made from them says so.
bool IsSimulated();

/// Replaces this process by the same command on a bus of simulated cameras. Throws Failure when the
/// simulator is not installed.
[[noreturn]] void RunSimulated(const std::vector<std::string> &models,
                               const std::vector<std::string> &arguments);

} // namespace vsctool
