#pragma once

#include <string>
#include <variant>

namespace vsctool {

/// One line of a FITS header. A key that appears twice keeps the later value.
struct FitsKey {
    std::string name;
    std::variant<bool, int, double, std::string> value;
    std::string comment;
};

} // namespace vsctool
