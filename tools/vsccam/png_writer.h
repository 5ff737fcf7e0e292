#pragma once

#include "plane.h"

#include <filesystem>
#include <optional>

namespace vsctool {

/// Writes the picture as one would want to look at it: demosaiced when it is a mosaic, stretched,
/// 8 bits, at most 2048 pixels wide. Throws Failure.
void WritePreview(const std::filesystem::path &path, const Picture &picture,
                  std::optional<Mosaic> mosaic);

} // namespace vsctool
