#pragma once

#include "models/edition.h"
#include "models/hardware_bin/s2800.h"
#include "models/python/s048.h"
#include "models/sony/large_format.h"
#include "models/sony/s372.h"
#include "models/sony/s420.h"
#include "models/sony/s430.h"
#include "models/sony/s440.h"
#include "models/sony/s450.h"
#include "models/sony/s470.h"
#include "models/usb2/s047.h"
#include "models/usb2/s052.h"
#include "models/usb2/s056.h"
#include "models/usb2/s340.h"
#include "models/usb2/s350.h"

#include <array>
#include <cstddef>
#include <iterator>
#include <utility>

namespace vsccam {

template <class... S> struct SensorList {
};

/// Every sensor of the family.
using Sensors = SensorList<S047, S048, S052, S056, S065, S083, S2800, S340Mono, S340Colour,
                           S340OnUsb3, S350, S372, S385, S420, S430, S440, S450, S460, S470>;

/// A value for each product, by the products' places; `of.operator()<S, Row>()` makes that of a row
/// of a sensor. It does not compile when two products have one place, or a place has none.
template <class Value, class Of, class... S> consteval auto ByPlace(SensorList<S...>, Of of)
{
    constexpr size_t kCount = (std::size(S::kProducts) + ...);
    std::array<Value, kCount> values{};
    std::array<bool, kCount> taken{};
    const auto put = [&](size_t place, Value value) {
        if (taken.at(place))
            throw "two products with one place";
        taken.at(place) = true;
        values.at(place) = value;
    };
    const auto putRows = [&]<class One, size_t... Row>(std::index_sequence<Row...>) {
        (put(One::kProducts[Row].place, of.template operator()<One, Row>()), ...);
    };
    (putRows.template operator()<S>(std::make_index_sequence<std::size(S::kProducts)>()), ...);
    return values;
}

} // namespace vsccam
