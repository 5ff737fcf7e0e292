#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vsctool {

/// What the kernel tells in small files. Plain calls of the C library: the simulated bus answers
/// these.

/// First line of a file; empty when there is none.
std::string ReadLine(const std::string &path);

/// The number that a file begins with.
std::optional<int64_t> ReadNumber(const std::string &path, int base = 10);

/// What is in a folder, in order, but for hidden entries.
std::vector<std::string> NamesIn(const std::string &folder);

/// What a link points to; empty when there is none that may be read.
std::string LinkTarget(const std::string &path);

} // namespace vsctool
