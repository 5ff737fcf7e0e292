#pragma once

#include "models/edition.h"
#include "models/sony/sony_driver.h"

namespace vsccam {

/// What the files of the Sony sensors derive from.
struct SonyFamily : Sensor {
    template <Housing H> using Driver = SonyDriver<BaseOf<H>>;
};

} // namespace vsccam
