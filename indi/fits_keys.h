#pragma once

#include "fits_key.h"

#include <fitsio.h>

#include <vector>

namespace vscindi {

/// Writes keys into the header of an open file, over those that the base class has written.
/// @param hasMosaic  otherwise what it wrote of a mosaic goes
void PutKeys(fitsfile *file, const std::vector<vsctool::FitsKey> &keys, bool hasMosaic);

} // namespace vscindi
