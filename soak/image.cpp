#include "soak/image.h"

#include "camera/pattern.h"

#include <vsccam.h>

#include <cstring>
#include <vector>

namespace soak {

namespace {

constexpr size_t kBytesPerPixel[] = {1, 3, 2, 1}; // by VSC_IMG_TYPE

} // namespace

size_t Image::Bytes() const
{
    return static_cast<size_t>(width) * static_cast<size_t>(height) * kBytesPerPixel[type];
}

uint32_t Image::ReadOut(uint32_t number, int column, int row) const
{
    const int factor = bin / sensorBin;
    const int bytes = type == VSC_IMG_RAW16 ? 2 : 1;
    if (row == 0 && column < head / bytes)
        ++row;
    else if (row == height * factor - 1 && column >= width * factor - tail / bytes)
        --row;
    const uint16_t sample =
        vscsim::PatternSample(number, x * bin + column * sensorBin, y * bin + row * sensorBin);
    return type == VSC_IMG_RAW16 ? sample : sample >> 8;
}

uint32_t Image::Pixel(uint32_t number, int column, int row) const
{
    const int factor = bin / sensorBin;
    uint32_t sum = 0;
    for (int j = 0; j < factor; ++j)
        for (int i = 0; i < factor; ++i)
            sum += ReadOut(number, column * factor + i, row * factor + j);
    return sum / static_cast<uint32_t>(factor * factor);
}

bool Image::Shows(uint32_t number, std::span<const uint8_t> bytes) const
{
    const auto columns = static_cast<size_t>(width);
    const size_t pixelBytes = kBytesPerPixel[type];
    std::vector<uint16_t> samples(columns);
    std::vector<uint8_t> line(columns * pixelBytes);
    for (int row = 0; row < height; ++row) {
        const bool plain = row > 0 && row < height - 1 && bin == sensorBin;
        const int shift = type == VSC_IMG_RAW16 ? 0 : 8;
        for (int i = 0; plain && i < width; ++i)
            samples[static_cast<size_t>(i)] = static_cast<uint16_t>(
                vscsim::PatternSample(number, (x + i) * bin, (y + row) * bin) >> shift);
        for (int i = 0; !plain && i < width; ++i)
            samples[static_cast<size_t>(i)] = static_cast<uint16_t>(Pixel(number, i, row));
        if (pixelBytes == 2)
            std::memcpy(line.data(), samples.data(), line.size());
        for (size_t i = 0; pixelBytes != 2 && i < line.size(); ++i)
            line[i] = static_cast<uint8_t>(samples[i / pixelBytes]);
        if (std::memcmp(line.data(), &bytes[static_cast<size_t>(row) * line.size()], line.size()) !=
            0)
            return false;
    }
    return true;
}

std::optional<uint32_t> Image::NumberOf(std::span<const uint8_t> bytes) const
{
    const int row = height / 2;
    const size_t rowBytes = Bytes() / static_cast<size_t>(height);
    const uint8_t *probe = &bytes[static_cast<size_t>(row) * rowBytes];
    for (uint32_t number = 0; number < 256; ++number) {
        if (static_cast<uint8_t>(Pixel(number, 0, row)) == *probe && Shows(number, bytes))
            return number;
    }
    return std::nullopt;
}

} // namespace soak
