#include "dark_bmp.h"

#include "failure.h"
#include "temporary_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>

namespace vsctool {
namespace {

// The library's form of a bitmap: the file header is two bytes longer than usual, padded to words
// of 32 bits. Little-endian, as all machines that this program is built for.
enum Word {
    kSignature,
    kFileBytes,
    kReserved,
    kPixelOffset,
    kInfoBytes,
    kWidth,
    kHeight,
    kPlanesAndBits,
    kCompression,
    kImageBytes,
    kResolutionX,
    kResolutionY,
    kColours,
    kImportantColours,
    kWords
};
using Headers = std::array<uint32_t, kWords>;

constexpr uint32_t kBm = 0x4D42;
constexpr uint32_t kInfoHeader = 40;
constexpr uint32_t kOnePlane = 1;
constexpr uint32_t kGreys = 256;
constexpr uint32_t kWhite = 0x00010101; // times a grey: its entry in the palette
constexpr int kLargestSide = 1 << 15;

using Palette = std::array<uint32_t, kGreys>;

template <class Block> void Put(std::ostream &out, const Block &block)
{
    out.write(reinterpret_cast<const char *>(block.data()),
              static_cast<std::streamsize>(block.size() * sizeof block[0]));
}

template <class Block> bool Get(std::istream &in, Block &block)
{
    return static_cast<bool>(in.read(reinterpret_cast<char *>(block.data()),
                                     static_cast<std::streamsize>(block.size() * sizeof block[0])));
}

} // namespace

void WriteDark(const std::filesystem::path &path, const DarkFrame &dark)
{
    const auto imageBytes = static_cast<uint32_t>(dark.pixels.size());
    Headers headers{};
    headers[kSignature] = kBm;
    // Where the pixels really begin: the library reads on from there.
    headers[kPixelOffset] = sizeof(Headers) + sizeof(Palette);
    headers[kFileBytes] = headers[kPixelOffset] + imageBytes;
    headers[kInfoBytes] = kInfoHeader;
    headers[kWidth] = static_cast<uint32_t>(dark.width);
    headers[kHeight] = static_cast<uint32_t>(dark.height);
    headers[kPlanesAndBits] = 8 << 16 | kOnePlane;
    headers[kImageBytes] = imageBytes;
    headers[kColours] = kGreys;
    Palette palette;
    for (uint32_t grey = 0; grey < kGreys; ++grey)
        palette.at(grey) = grey * kWhite;

    TemporaryFile temporary(path);
    errno = 0;
    std::ofstream file(temporary.Path(), std::ios::binary);
    Put(file, headers);
    Put(file, palette);
    Put(file, dark.pixels);
    file.close();
    if (!file)
        throw CannotWrite(path);
    temporary.Commit();
}

DarkFrame ReadDark(const std::filesystem::path &path)
{
    const auto fail = [&path](const std::string &reason) {
        return Failure(Exit::kFile, fmt::format("{}: {}", path.string(), reason));
    };
    std::error_code unreachable;
    const auto kind = std::filesystem::status(path, unreachable).type();
    if (kind != std::filesystem::file_type::regular) // others may keep who opens them waiting
        throw fail(kind == std::filesystem::file_type::not_found ? "there is no such file"
                                                                 : "no regular file");
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw fail(std::generic_category().message(errno));
    Headers headers{};
    if (!Get(file, headers) || (headers[kSignature] & 0xFFFF) != kBm)
        throw fail("no bitmap");
    DarkFrame dark;
    dark.width = static_cast<int>(headers[kWidth]);
    dark.height = static_cast<int>(headers[kHeight]);
    if (dark.width <= 0 || dark.height <= 0 || std::max(dark.width, dark.height) > kLargestSide ||
        headers[kPlanesAndBits] >> 16 != 8)
        throw fail("a bitmap, but not in the form of a dark frame; make one with 'dark make'");
    const auto pixels = static_cast<size_t>(dark.width) * static_cast<size_t>(dark.height);
    if (std::filesystem::file_size(path, unreachable) < headers[kPixelOffset] + uint64_t{pixels})
        throw fail("the end of the picture is missing"); // headers may promise a gigabyte
    dark.pixels.resize(pixels);
    file.seekg(headers[kPixelOffset]);
    if (!Get(file, dark.pixels))
        throw fail("cannot be read");
    return dark;
}

} // namespace vsctool
