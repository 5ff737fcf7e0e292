#pragma once

#include "core/camera_base.h"

#include <cstdint>
#include <memory>
#include <span>

namespace vsccam {

/// One product ID of the family.
struct Product {
    uint16_t productId;
    const char *className; // of its driver; products of one class form a group
    const char *modelName;
    std::unique_ptr<CCameraBase> (*create)();
};

std::span<const Product> Products();

/// The product with this ID, nullptr when there is none.
const Product *FindProduct(uint32_t productId);

/// Whether both IDs are products of the same driver class.
bool SameGroup(uint32_t productId, uint32_t other);

} // namespace vsccam
