#pragma once

#include "library_lines.h"

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace vsctool {

/// How many frames of a video were dropped, by the reason.
using DropAccount = std::vector<std::pair<std::string, int64_t>>;

/// The account that the library prints when a video ends; empty when it is not among the lines.
/// Frames that nobody took in the end are not in it, as nobody wanted them.
DropAccount DropAccountIn(std::span<const LibraryLine> lines);

int64_t SumOf(const DropAccount &account);

} // namespace vsctool
