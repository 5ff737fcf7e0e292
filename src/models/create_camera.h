#pragma once

#include "catalogue/product_list.h"
#include "core/camera_base.h"

#include <memory>

namespace vsccam {

std::unique_ptr<CCameraBase> CreateCamera(const Product &product);

} // namespace vsccam
