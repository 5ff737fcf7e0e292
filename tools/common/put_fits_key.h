#pragma once

#include "fits_key.h"

#include <fitsio.h>

namespace vsctool {

/// Writes a key into the header of an open file, over one of the same name.
/// @return cfitsio's status
inline int PutFitsKey(fitsfile *file, const FitsKey &key, int status)
{
    constexpr int kDigits = 12; // of a floating-point value
    const char *const name = key.name.c_str();
    const char *const comment = key.comment.c_str();
    if (const auto *flag = std::get_if<bool>(&key.value))
        return fits_update_key_log(file, name, *flag, comment, &status);
    if (const auto *number = std::get_if<int>(&key.value))
        return fits_update_key_lng(file, name, *number, comment, &status);
    if (const auto *real = std::get_if<double>(&key.value))
        return fits_update_key_dbl(file, name, *real, -kDigits, comment, &status);
    const auto &text = std::get<std::string>(key.value);
    return fits_update_key_str(file, name, text.c_str(), comment, &status);
}

} // namespace vsctool
