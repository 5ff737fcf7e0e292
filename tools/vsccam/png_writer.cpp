#include "png_writer.h"

#include "stretch.h"
#include "temporary_file.h"

#include <png.h>

#include <cerrno>
#include <utility>

namespace vsctool {
namespace {

constexpr int kWidest = 2048; // more shows nothing on a screen, and takes seconds to write

void WritePng(const std::filesystem::path &path, int width, int height, bool colour,
              const std::vector<uint8_t> &bytes)
{
    TemporaryFile temporary(path);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = colour ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    image.flags = PNG_IMAGE_FLAG_FAST; // noise hardly compresses, and small boards wait for it
    errno = 0;
    if (!png_image_write_to_file(&image, temporary.Path().c_str(), 0, bytes.data(), 0, nullptr))
        throw CannotWrite(path, image.message);
    temporary.Commit();
}

} // namespace

void WritePreview(const std::filesystem::path &path, const Picture &picture,
                  std::optional<Mosaic> mosaic)
{
    const int fullScale = picture.format == PixelFormat::kRaw16 ? 0xFFFF : 0xFF;
    const int factor = (picture.width + kWidest - 1) / kWidest;
    std::vector<Plane> planes = PlanesOf(picture, mosaic);
    std::vector<Curve> curves;
    for (Plane &plane : planes) {
        plane = Shrunk(std::move(plane), factor);
        const Background sky = BackgroundOf(HistogramOf(plane));
        curves.push_back(CurveOf(AutoStretch(sky, fullScale, 1), static_cast<size_t>(fullScale)));
    }
    WritePng(path, planes[0].width, planes[0].height, planes.size() > 1, Stretched(planes, curves));
}

} // namespace vsctool
