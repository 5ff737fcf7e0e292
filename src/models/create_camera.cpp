#include "models/create_camera.h"

#include "models/sensors.h"

namespace vsccam {

namespace {

template <class Camera> std::unique_ptr<CCameraBase> Create()
{
    return std::make_unique<Camera>(0UL);
}

using Creator = std::unique_ptr<CCameraBase> (*)();

constexpr auto kCreators = ByPlace<Creator>(Sensors{}, []<class S, size_t Index> {
    constexpr const Product &kProduct = S::kProducts[Index];
    return Create<CameraOf<S, kProduct.pixels, kProduct.housing>>;
});

} // namespace

std::unique_ptr<CCameraBase> CreateCamera(const Product &product)
{
    return kCreators.at(product.place)();
}

} // namespace vsccam
