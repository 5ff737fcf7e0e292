#include "video/ser_header.h"

namespace vsctool {

SerHeader SerHeaderOf(const Camera &camera)
{
    const auto format = static_cast<PixelFormat>(getImgType());
    return {.colour = SerColourOf(format, camera.PictureMosaic()),
            .width = getWidth(),
            .height = getHeight(),
            .bits = format == PixelFormat::kRaw16 ? 16 : 8,
            .instrument = camera.Entry().model};
}

} // namespace vsctool
