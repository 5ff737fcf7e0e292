#include "serve/alpaca/image.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

namespace vsctool::serve {
namespace {

constexpr size_t kHeaderNumbers = 11;
constexpr size_t kHeaderBytes = kHeaderNumbers * sizeof(int32_t);
constexpr int32_t kVersion = 1;
constexpr int32_t kElementInt32 = 2; // what a client is to make of the samples
constexpr int32_t kSentAsByte = 6;   // and what they are sent as
constexpr int32_t kSentAsUInt16 = 8;
constexpr int kTile = 64; // pixels; what is read and written of one lies in the cache together

using Header = std::array<int32_t, kHeaderNumbers>;

void Append(std::string &bytes, const Header &header)
{
    for (const int32_t number : header) {
        const auto bits = static_cast<uint32_t>(number);
        for (int shift = 0; shift < 32; shift += 8)
            bytes += static_cast<char>(bits >> shift & 0xFF);
    }
}

/// Rows become columns. Memory has the order of bytes that is sent: of this machine, low byte
/// first.
template <class Pixel> void Transpose(const Picture &picture, const Region &part, char *columns)
{
    const size_t stride = static_cast<size_t>(picture.width) * sizeof(Pixel);
    const uint8_t *first = picture.bytes.data() + static_cast<size_t>(part.y) * stride +
                           static_cast<size_t>(part.x) * sizeof(Pixel);
    const auto height = static_cast<size_t>(part.height);
    for (int top = 0; top < part.height; top += kTile) {
        const int bottom = std::min(top + kTile, part.height);
        for (int x = 0; x < part.width; ++x) {
            const uint8_t *from =
                first + static_cast<size_t>(top) * stride + static_cast<size_t>(x) * sizeof(Pixel);
            char *to = columns +
                       (static_cast<size_t>(x) * height + static_cast<size_t>(top)) * sizeof(Pixel);
            for (int y = top; y < bottom; ++y, from += stride, to += sizeof(Pixel))
                std::memcpy(to, from, sizeof(Pixel));
        }
    }
}

struct Bgr {
    uint8_t bytes[3];
};

/// Red comes first there.
void SwapColours(char *pixels, size_t count)
{
    for (size_t i = 0; i < count; ++i, pixels += sizeof(Bgr))
        std::swap(pixels[0], pixels[2]);
}

size_t PixelsIn(const Region &part)
{
    return static_cast<size_t>(part.width) * static_cast<size_t>(part.height);
}

template <class Sample> int SampleAt(const Picture &picture, size_t index)
{
    Sample sample{};
    std::memcpy(&sample, picture.bytes.data() + index * sizeof sample, sizeof sample);
    return sample;
}

void AppendPixel(fmt::memory_buffer &text, const Picture &picture, int x, int y)
{
    const size_t index =
        static_cast<size_t>(y) * static_cast<size_t>(picture.width) + static_cast<size_t>(x);
    const auto out = std::back_inserter(text);
    if (picture.format == PixelFormat::kRgb24)
        fmt::format_to(out, "[{},{},{}]", picture.bytes[3 * index + 2],
                       picture.bytes[3 * index + 1], picture.bytes[3 * index]);
    else if (picture.format == PixelFormat::kRaw16)
        fmt::format_to(out, "{}", SampleAt<uint16_t>(picture, index));
    else
        fmt::format_to(out, "{}", picture.bytes[index]);
}

} // namespace

std::string ImageBytesOf(const Picture &picture, const Region &part, Transaction transaction)
{
    const bool is16 = picture.format == PixelFormat::kRaw16;
    const bool isColour = picture.format == PixelFormat::kRgb24;
    const size_t bytes = PixelsIn(part) * static_cast<size_t>(BytesPerPixel(picture.format));
    std::string image;
    image.reserve(kHeaderBytes + bytes);
    Append(image, {kVersion, 0, static_cast<int32_t>(transaction.client),
                   static_cast<int32_t>(transaction.server), static_cast<int32_t>(kHeaderBytes),
                   kElementInt32, is16 ? kSentAsUInt16 : kSentAsByte, isColour ? 3 : 2, part.width,
                   part.height, isColour ? 3 : 0});
    image.resize(kHeaderBytes + bytes);
    char *const columns = image.data() + kHeaderBytes;
    if (is16) {
        Transpose<uint16_t>(picture, part, columns);
    } else if (isColour) {
        Transpose<Bgr>(picture, part, columns);
        SwapColours(columns, PixelsIn(part));
    } else {
        Transpose<uint8_t>(picture, part, columns);
    }
    return image;
}

std::string ImageBytesError(int number, const std::string &message, Transaction transaction)
{
    std::string answer;
    Append(answer, {kVersion, number, static_cast<int32_t>(transaction.client),
                    static_cast<int32_t>(transaction.server), static_cast<int32_t>(kHeaderBytes), 0,
                    0, 0, 0, 0, 0});
    return answer + message;
}

std::string ImageJsonOf(const Picture &picture, const Region &part)
{
    fmt::memory_buffer text;
    fmt::format_to(std::back_inserter(text), R"("Type":2,"Rank":{},"Value":[)",
                   picture.format == PixelFormat::kRgb24 ? 3 : 2);
    for (int x = part.x; x < part.x + part.width; ++x) {
        text.push_back(x == part.x ? '[' : ',');
        if (x != part.x)
            text.push_back('[');
        for (int y = part.y; y < part.y + part.height; ++y) {
            if (y != part.y)
                text.push_back(',');
            AppendPixel(text, picture, x, y);
        }
        text.push_back(']');
    }
    text.push_back(']');
    return {text.data(), text.size()};
}

} // namespace vsctool::serve
