#pragma once

#include "picture.h"
#include "units.h"

#include <cstdint>
#include <string>

namespace vsctool::serve {

/// The numbers by which a client and this server know a request and its answer.
struct Transaction {
    uint32_t client = 0;
    uint32_t server = 0;
};

inline constexpr const char *kImageBytesType = "application/imagebytes";

/// A part of a picture as Alpaca's binary form has it: a header of 44 bytes, then column by column,
/// each from its top, the samples of each pixel; colours are red, green, blue.
std::string ImageBytesOf(const Picture &picture, const Region &part, Transaction transaction);

/// An error in the same form.
std::string ImageBytesError(int number, const std::string &message, Transaction transaction);

/// The same picture as nested JSON arrays, which takes long to make, to send and to read.
/// @return the members "Type", "Rank" and "Value", without the braces around them
std::string ImageJsonOf(const Picture &picture, const Region &part);

} // namespace vsctool::serve
