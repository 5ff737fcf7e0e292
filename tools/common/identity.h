#pragma once

#include <vsccam.h>

#include <optional>
#include <string>

namespace vsctool {

/// "0102030405060708"
std::string InHex(const _VSC_ID &id);

/// The same backwards. Throws Failure.
_VSC_ID ParseId(const std::string &text);

/// What the flash of the open camera holds. Cameras with a USB 2.0 controller have none.
std::optional<_VSC_ID> IdOfCamera();

} // namespace vsctool
