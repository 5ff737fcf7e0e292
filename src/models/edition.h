#pragma once

#include "catalogue/product_list.h"
#include "core/camera_model.h"

#include <algorithm>
#include <type_traits>

namespace vsccam {

class CCameraBase;
class CCameraCool;

/// A sensor is a struct of data that derives from its family's (which names the driver) and has
///  - kModel, what its editions have in common, and Adapt(model), if they differ in more than rows
///    tell;
///  - kTraits, what the driver has to know of it, if there is anything;
///  - kProducts, one row for each edition.
struct Sensor {
    using enum Pixels; // the words of the rows
    using enum Housing;
};

template <Housing H>
using BaseOf = std::conditional_t<H == Housing::Cooled, CCameraCool, CCameraBase>;

/// The row that names the class which drives a product of the sensor.
template <class S> constexpr const Product &PrimaryOf(Pixels pixels, Housing housing)
{
    return *std::ranges::find_if(S::kProducts, [&](const Product &row) {
        return row.pixels == pixels && row.housing == housing;
    });
}

/// One edition of a sensor: the sensor's data, and what its row says.
template <class S> consteval CameraModel EditionOf(Pixels pixels, Housing housing)
{
    const Product &row = PrimaryOf<S>(pixels, housing);
    CameraModel model = S::kModel;
    model.name = row.name;
    model.productId = row.productId;
    model.colour = pixels == Pixels::Colour;
    model.bayer = model.colour ? model.bayer : 0;
    model.cooled = housing == Housing::Cooled;
    if constexpr (requires { S::Adapt(model); })
        S::Adapt(model); // what else editions differ in
    return model;
}

/// The class of the cameras with a sensor: the driver of the family, with the sensor's data.
template <class S, Pixels P, Housing H = Housing::Uncooled>
class CameraOf : public S::template Driver<H> {
    using Driver = typename S::template Driver<H>;
    static constexpr CameraModel kModel = EditionOf<S>(P, H);

  public:
    explicit CameraOf(unsigned long) : Driver(kModel) {}
    explicit CameraOf(unsigned long) requires requires { S::kTraits; } : Driver(kModel, S::kTraits)
    {
    }
};

} // namespace vsccam
