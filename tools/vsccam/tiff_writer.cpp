#include "tiff_writer.h"

#include "failure.h"

#include <fmt/format.h>

#ifdef VSCCAM_HAS_TIFF
#include "temporary_file.h"

#include <tiffio.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <type_traits>
#endif

namespace vsctool {

#ifdef VSCCAM_HAS_TIFF
namespace {

struct CloseTiff {
    void operator()(TIFF *file) const { TIFFClose(file); }
};

constexpr uint32_t kRowsPerStrip = 64; // readers hold a strip in memory

std::string InWords(const FitsKey &key)
{
    const auto words = [](const auto &value) {
        if constexpr (std::is_same_v<std::decay_t<decltype(value)>, bool>)
            return std::string(value ? "T" : "F");
        else
            return fmt::format("{}", value);
    };
    return fmt::format("{} = {}\n", key.name, std::visit(words, key.value));
}

std::string Description(const std::vector<FitsKey> &keys)
{
    std::string text;
    for (const FitsKey &key : keys)
        text += InWords(key);
    return text;
}

void Describe(TIFF *file, const Picture &picture, const std::vector<FitsKey> &keys)
{
    const bool isColour = picture.format == PixelFormat::kRgb24;
    TIFFSetField(file, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(picture.width));
    TIFFSetField(file, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(picture.height));
    TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, isColour ? 3 : 1);
    TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, picture.format == PixelFormat::kRaw16 ? 16 : 8);
    TIFFSetField(file, TIFFTAG_PHOTOMETRIC, isColour ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(file, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(file, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(file, TIFFTAG_COMPRESSION, COMPRESSION_NONE); // noise hardly compresses
    TIFFSetField(file, TIFFTAG_ROWSPERSTRIP, kRowsPerStrip);
    TIFFSetField(file, TIFFTAG_SOFTWARE, "vsccam " VSCCAM_VERSION);
    TIFFSetField(file, TIFFTAG_IMAGEDESCRIPTION, Description(keys).c_str());
}

bool WriteRows(TIFF *file, const Picture &picture)
{
    const size_t rowBytes =
        static_cast<size_t>(picture.width) * static_cast<size_t>(BytesPerPixel(picture.format));
    std::vector<uint8_t> row(rowBytes);
    for (size_t y = 0; y < static_cast<size_t>(picture.height); ++y) {
        std::copy_n(picture.bytes.data() + y * rowBytes, rowBytes, row.data());
        if (picture.format == PixelFormat::kRgb24)
            for (size_t blue = 0; blue < rowBytes; blue += 3)
                std::swap(row[blue], row[blue + 2]);
        if (TIFFWriteScanline(file, row.data(), static_cast<uint32_t>(y), 0) != 1)
            return false;
    }
    return true;
}

} // namespace

void WriteTiff(const std::filesystem::path &path, const Picture &picture,
               const std::vector<FitsKey> &keys)
{
    TIFFSetErrorHandler(nullptr); // which would write into the messages of this program
    TIFFSetWarningHandler(nullptr);
    TemporaryFile temporary(path);
    errno = 0;
    const std::unique_ptr<TIFF, CloseTiff> file(TIFFOpen(temporary.Path().c_str(), "w"));
    if (!file)
        throw CannotWrite(path);
    Describe(file.get(), picture, keys);
    // Closing the file tells nobody how it went: all is written before.
    if (!WriteRows(file.get(), picture) || TIFFFlush(file.get()) != 1)
        throw CannotWrite(path);
    temporary.Commit();
}
#else
void WriteTiff(const std::filesystem::path &path, const Picture &, const std::vector<FitsKey> &)
{
    throw Failure(Exit::kUsage,
                  fmt::format("{}: this program was built without TIFF; end the name in .fit",
                              path.string()));
}
#endif

} // namespace vsctool
