#include "png_writer.h"

#include "failure.h"
#include "stretch.h"
#include "temporary_file.h"

#include <fmt/format.h>
#include <png.h>

namespace vsctool {
namespace {

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
    if (!png_image_write_to_file(&image, temporary.Path().c_str(), 0, bytes.data(), 0, nullptr))
        throw Failure(Exit::kFile, fmt::format("cannot write {}: {}; check folder and disk space",
                                               path.string(), image.message));
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
    const bool colour = mosaic || picture.format == PixelFormat::kRgb24;
    const auto rgb = [&] {
        return mosaic ? Demosaic(SamplesOf(picture), *mosaic) : SplitRgb24(picture);
    };
    const std::vector<uint8_t> bytes =
        colour ? Interleave(rgb(), fullScale) : AutoStretch(SamplesOf(picture), fullScale);
    WritePng(path, picture.width, picture.height, colour, bytes);
}

} // namespace vsctool
