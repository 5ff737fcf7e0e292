#pragma once

#include "core/frame_geometry.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <vector>

/// Files of dark frames: bitmaps of 8 bits per pixel, rows from the top.
namespace vsccam {

/// How reading a dark frame ended, in the numbers of LoadBMPFromFile.
enum class DarkFileResult { kUnusable = 0, kRead = 1, kNotFound = 6, kOtherSize = 7 };

/// Reads the image of a file that is as large as the sensor; `image` is left alone unless it was
/// read as a whole.
DarkFileResult ReadDarkFile(std::FILE *file, Size sensor, std::vector<uint8_t> *image);

/// Writes a file. @return whether all of it was written
bool CreateBMP(const char *path, Size size, std::span<const uint8_t> image);

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

/// Opens a regular file for reading. Null for anything else, such as a pipe that nobody may ever
/// write to.
File OpenRegularFile(const char *path);

} // namespace vsccam
