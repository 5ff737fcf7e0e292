#pragma once

#include "fits_writer.h"

#include <filesystem>
#include <vector>

namespace vsctool {

/// Writes a picture as it was delivered, but RGB24 as red, green, blue; the keys become lines of
/// the description. Throws Failure, also when this program was built without the library for it; a
/// file appears complete or not at all.
void WriteTiff(const std::filesystem::path &path, const Picture &picture,
               const std::vector<FitsKey> &keys);

} // namespace vsctool
