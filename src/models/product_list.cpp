#include "catalogue/product_list.h"

#include "models/sensors.h"

#include <algorithm>

namespace vsccam {

namespace {

constexpr auto kProducts = ByPlace<Product>(Sensors{}, []<class S, size_t Index> {
    constexpr const Product &row = S::kProducts[Index];
    constexpr CameraModel model = EditionOf<S>(row.pixels, row.housing);
    Product product = row;
    product.primaryId = model.productId;
    product.sensorWidth = model.sensorWidth;
    product.sensorHeight = model.sensorHeight;
    product.usb3Camera = model.usb3Camera;
    product.adcBits = model.adcBits;
    return product;
});

} // namespace

std::span<const Product> Products()
{
    return kProducts;
}

const Product *FindProduct(uint32_t productId)
{
    const auto found = std::ranges::find(kProducts, productId, &Product::productId);
    return found == kProducts.end() ? nullptr : &*found;
}

bool SameGroup(uint32_t productId, uint32_t other)
{
    const Product *a = FindProduct(productId);
    const Product *b = FindProduct(other);
    return a && b && a->primaryId == b->primaryId;
}

} // namespace vsccam
