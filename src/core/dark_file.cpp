#include "core/dark_file.h"

#include "base/debug_print.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <bit>

namespace vsccam {

namespace {

static_assert(std::endian::native == std::endian::little, "the headers are written as they lie");

constexpr uint16_t kSignature = 0x4D42; // "BM"
constexpr int kGreys = 256;

// Quirk, kept: the header is written with the padding that it has in memory, two bytes more than
// other bitmaps have. Its pixel offset does not count them. Reading starts at that offset, too, so
// frames come back two pixels to the right.
struct FileHeader {
    uint16_t signature;
    uint16_t padding;
    uint32_t fileSize;
    uint16_t reserved[2];
    uint32_t pixelOffset;
};
static_assert(sizeof(FileHeader) == 16);

struct InfoHeader {
    uint32_t size;
    int32_t width;
    int32_t height;
    uint16_t planes;
    uint16_t bitCount;
    uint32_t compression;
    uint32_t imageSize;
    int32_t pixelsPerMetre[2];
    uint32_t coloursUsed;
    uint32_t coloursImportant;
};
static_assert(sizeof(InfoHeader) == 40);

struct Colour {
    uint8_t blue, green, red, reserved;
};
using Palette = std::array<Colour, kGreys>;
static_assert(sizeof(Palette) == 1024);

constexpr uint32_t kPixelOffset = 14 + sizeof(InfoHeader) + sizeof(Palette);

uint32_t RowBytes(int width)
{
    return ((static_cast<uint32_t>(width) * 8 + 31) & ~31U) / 8;
}

template <class Block> bool Read(std::FILE *file, Block *block)
{
    return std::fread(block, sizeof *block, 1, file) == 1;
}

template <class Block> bool Write(std::FILE *file, const Block &block)
{
    return std::fwrite(&block, sizeof block, 1, file) == 1;
}

bool WriteRow(std::FILE *file, std::span<const uint8_t> row)
{
    constexpr uint8_t kPadding[3] = {};
    const size_t padding = RowBytes(static_cast<int>(row.size())) - row.size();
    return std::fwrite(row.data(), 1, row.size(), file) == row.size() &&
           std::fwrite(kPadding, 1, padding, file) == padding;
}

} // namespace

DarkFileResult ReadDarkFile(std::FILE *file, Size sensor, std::vector<uint8_t> *image)
{
    FileHeader header{};
    if (!Read(file, &header)) {
        OutputDbgPrint("Read bmp header failed!\n");
        return DarkFileResult::kUnusable;
    }
    if (header.signature != kSignature)
        return DarkFileResult::kUnusable;
    InfoHeader info{};
    if (!Read(file, &info)) {
        OutputDbgPrint("Read bmp infomation failed!\n");
        return DarkFileResult::kUnusable;
    }
    if (Size{info.width, info.height} != sensor)
        return DarkFileResult::kOtherSize;
    if (info.bitCount != 8)
        return DarkFileResult::kUnusable;
    std::vector<uint8_t> pixels(static_cast<size_t>(sensor.width) *
                                static_cast<size_t>(sensor.height));
    if (std::fseek(file, static_cast<long>(header.pixelOffset), SEEK_SET) != 0 ||
        std::fread(pixels.data(), 1, pixels.size(), file) != pixels.size())
        return DarkFileResult::kUnusable;
    image->swap(pixels);
    return DarkFileResult::kRead;
}

bool CreateBMP(const char *path, Size size, std::span<const uint8_t> image)
{
    const File owner(std::fopen(path, "wb+"));
    std::FILE *const file = owner.get();
    if (!file)
        return false;
    const uint32_t imageBytes = RowBytes(size.width) * static_cast<uint32_t>(size.height);
    const FileHeader header = {.signature = kSignature,
                               .padding = 0,
                               .fileSize = imageBytes + kPixelOffset,
                               .reserved = {},
                               .pixelOffset = kPixelOffset};
    const InfoHeader info = {.size = sizeof info,
                             .width = size.width,
                             .height = size.height,
                             .planes = 1,
                             .bitCount = 8,
                             .compression = 0,
                             .imageSize = imageBytes,
                             .pixelsPerMetre = {},
                             .coloursUsed = kGreys,
                             .coloursImportant = 0};
    Palette palette{};
    for (size_t i = 0; i < palette.size(); ++i) {
        const auto grey = static_cast<uint8_t>(i);
        palette[i] = {grey, grey, grey, 0};
    }
    bool written = Write(file, header) && Write(file, info) && Write(file, palette);
    const auto width = static_cast<size_t>(size.width);
    for (size_t y = 0; y < static_cast<size_t>(size.height); ++y)
        written = written && WriteRow(file, image.subspan(y * width, width));
    // Decision: a file that could not be written to its end is as bad as one that was not opened.
    return written && std::fflush(file) == 0;
}

File OpenRegularFile(const char *path)
{
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        return nullptr;
    struct stat status = {};
    File file;
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))
        file.reset(fdopen(descriptor, "rb"));
    if (!file)
        close(descriptor);
    return file;
}

} // namespace vsccam
