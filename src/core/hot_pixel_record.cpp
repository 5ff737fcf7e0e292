#include "core/hot_pixel_record.h"

#include "base/debug_print.h"

#include <algorithm>
#include <array>

namespace vsccam {

namespace {

constexpr std::array<uint8_t, 4> kMagic = {'V', 'S', 'C', 'D'};
constexpr size_t kBlock = 256;

// The nibbles of a place are swapped in the record.
constexpr uint8_t SwapNibbles(size_t place)
{
    return static_cast<uint8_t>((place & 0x0F) << 4 | (place & 0xF0) >> 4);
}

} // namespace

std::vector<uint8_t> Compress(std::span<const uint8_t> bitmap)
{
    std::vector<uint8_t> record(kMagic.begin(), kMagic.end());
    record.resize(kHotPixelHeader);
    const auto hasRoom = [&] { return record.size() + 4 < bitmap.size(); };
    for (size_t i = 0; i < bitmap.size(); ++i) {
        if (bitmap[i] != 0 && hasRoom())
            record.insert(record.end(), {SwapNibbles(i % kBlock), bitmap[i]});
        if (i % kBlock == kBlock - 1 && i + 1 != bitmap.size() && hasRoom())
            record.insert(record.end(), {0, 0});
    }
    for (size_t i = 0; i < 4; ++i)
        record[kMagic.size() + i] = static_cast<uint8_t>(record.size() >> (24 - 8 * i));
    return record;
}

std::optional<uint32_t> RecordLength(std::span<const uint8_t, kHotPixelHeader> header)
{
    if (!std::ranges::equal(header.first<kMagic.size()>(), kMagic))
        return std::nullopt;
    uint32_t length = 0;
    for (const uint8_t byte : header.subspan<kMagic.size()>())
        length = length << 8 | byte;
    return length;
}

std::optional<std::vector<uint8_t>> Uncompress(std::span<const uint8_t> record, size_t size)
{
    std::vector<uint8_t> bitmap(size);
    size_t block = 0;
    for (size_t at = kHotPixelHeader; at + 2 <= record.size(); at += 2) {
        const uint8_t place = record[at];
        const uint8_t value = record[at + 1];
        if (place == 0 && value == 0) {
            block += kBlock;
            continue;
        }
        const size_t index = block + SwapNibbles(place);
        if (index >= size) {
            OutputDbgPrint("Uncompress over flow,block%d,x%d,y%d\n", static_cast<int>(block),
                           place >> 4, place & 0x0F);
            return std::nullopt;
        }
        bitmap[index] = value;
    }
    return bitmap;
}

std::vector<uint32_t> FlaggedPixels(std::span<const uint8_t> bitmap)
{
    std::vector<uint32_t> pixels;
    for (size_t i = 0; i < bitmap.size(); ++i)
        for (unsigned bits = bitmap[i], pixel = 0; bits != 0; bits >>= 1, ++pixel)
            if (bits & 1)
                pixels.push_back(static_cast<uint32_t>(8 * i + pixel));
    return pixels;
}

} // namespace vsccam
