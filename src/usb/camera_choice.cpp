#include "usb/camera_choice.h"

#include <algorithm>

namespace vsccam {

bool CameraChoice::Allows(const PortPath &path, uint16_t productId) const
{
    return !restricts || std::ranges::any_of(named, [&](const Entry &entry) {
        return entry.path.depth > 0 ? entry.path == path : entry.productId == productId;
    });
}

} // namespace vsccam
