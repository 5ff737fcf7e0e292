#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace vsctool {

/// A dark frame as the library subtracts it: 8 bits per pixel of the whole sensor, top row first.
struct DarkFrame {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;
};

/// Throws Failure when the file cannot be written.
void WriteDark(const std::filesystem::path &path, const DarkFrame &dark);

/// Reads what the library would. Throws Failure, with the reason, when it would read nothing.
DarkFrame ReadDark(const std::filesystem::path &path);

} // namespace vsctool
