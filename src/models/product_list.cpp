#include "catalogue/product_list.h"

#include "models/sensors.h"

#include <algorithm>

namespace vsccam {

namespace {

constexpr auto kProducts = ByPlace<Product>(Sensors{}, []<class S, size_t Index> {
    Product product = S::kProducts[Index];
    product.primaryId = PrimaryOf<S>(product.pixels, product.housing).productId;
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
