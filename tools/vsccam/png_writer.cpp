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

std::vector<uint8_t> Interleave(const Rgb &rgb, double fullScale)
{
    std::vector<uint8_t> bytes(rgb[0].samples.size() * rgb.size());
    for (size_t c = 0; c < rgb.size(); ++c) {
        const std::vector<uint8_t> channel = AutoStretch(rgb.at(c), fullScale);
        for (size_t i = 0; i < channel.size(); ++i)
            bytes[i * rgb.size() + c] = channel[i];
    }
    return bytes;
}

} // namespace

void WritePreview(const std::filesystem::path &path, const Picture &picture,
                  std::optional<Mosaic> mosaic)
{
    const double fullScale = picture.format == PixelFormat::kRaw16 ? 0xFFFF : 0xFF;
    const int factor = (picture.width + kWidest - 1) / kWidest;
    if (mosaic || picture.format == PixelFormat::kRgb24) {
        Rgb rgb = mosaic ? Demosaic(SamplesOf(picture), *mosaic) : SplitRgb24(picture);
        for (Plane &channel : rgb)
            channel = Shrunk(std::move(channel), factor);
        WritePng(path, rgb[0].width, rgb[0].height, true, Interleave(rgb, fullScale));
    } else {
        const Plane plane = Shrunk(SamplesOf(picture), factor);
        WritePng(path, plane.width, plane.height, false, AutoStretch(plane, fullScale));
    }
}

} // namespace vsctool
