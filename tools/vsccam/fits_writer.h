#pragma once

#include "fits_key.h"
#include "picture.h"

#include <filesystem>
#include <string>
#include <vector>

namespace vsctool {

/// Key of the user, "NAME=VALUE": the type follows from the value. Throws Failure for names and
/// values that a header cannot hold, and for keys that describe the file itself.
FitsKey ParseFitsKey(const std::string &text);

/// Throws Failure when a header cannot hold a text.
void CheckFitsText(const std::string &text);

/// Writes a picture: 16-bit samples unsigned, RGB24 as a cube of red, green and blue. Throws
/// Failure; a file appears complete or not at all.
void WriteFits(const std::filesystem::path &path, const Picture &picture,
               const std::vector<FitsKey> &keys);

/// The same file in memory.
std::string FitsBytesOf(const Picture &picture, const std::vector<FitsKey> &keys);

} // namespace vsctool
