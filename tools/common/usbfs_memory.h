#pragma once

#include "library_lines.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vsctool {

/// Memory of the kernel for transfers that are under way, of all programs together.

/// The limit: 0 for none, nothing when the kernel does not tell.
std::optional<int64_t> UsbfsLimitMiB();

/// The command that raises it.
std::string RaiseUsbfsLimit(int64_t neededMiB);

/// Need, limit and remedy in a sentence, when the library says that it was refused memory; else
/// nothing.
std::string UsbfsAdvice(const std::vector<LibraryLine> &lines);

} // namespace vsctool
