#include "ser/header.h"

#include "camera.h"
#include "failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <string_view>

namespace vsctool {
namespace {

constexpr std::string_view kMagic = "LUCAM-RECORDER";
constexpr size_t kTextBytes = 40;
constexpr SerTicks kTicksPerSecond = 10'000'000;
constexpr SerTicks kTicksPerUs = 10;
constexpr SerTicks kUnixEpoch = 621'355'968'000'000'000; // 1970, counted from the year 1
constexpr SerTicks kYear10000 = 3'155'378'976'000'000'000;

// Where each value stands. The texts follow each other, and so do the times.
enum Place : size_t {
    kLuIdAt = 14,
    kColourAt = 18,
    kLittleEndianAt = 22,
    kWidthAt = 26,
    kHeightAt = 30,
    kBitsAt = 34,
    kTextsAt = 42,
    kLocalTimeAt = 162,
    kUtcTimeAt = 170
};

constexpr int32_t kMono = 0;
constexpr int32_t kRgb = 100;
constexpr int32_t kBgr = 101;

struct Colour {
    int32_t number;
    const char *name;
};
constexpr Colour kColours[] = {{kMono, "mono"}, {8, "RGGB"},   {9, "GRBG"},  {10, "GBRG"},
                               {11, "BGGR"},    {16, "CYYM"},  {17, "YCMY"}, {18, "YMCY"},
                               {19, "MYYC"},    {kRgb, "RGB"}, {kBgr, "BGR"}};

constexpr int32_t kLargestSide = 1 << 16;
constexpr int32_t kMostBits = 16;

bool IsPossible(const SerHeader &header)
{
    const auto isSide = [](int32_t side) { return side > 0 && side <= kLargestSide; };
    return isSide(header.width) && isSide(header.height) && header.bits > 0 &&
           header.bits <= kMostBits && header.frames >= 0;
}

void StoreText(const std::string &text, uint8_t *bytes)
{
    std::copy_n(text.begin(), std::min(text.size(), kTextBytes), bytes);
}

std::string LoadText(const uint8_t *bytes)
{
    const auto *text = reinterpret_cast<const char *>(bytes);
    std::string_view read(text, strnlen(text, kTextBytes));
    return std::string(read.substr(0, read.find_last_not_of(' ') + 1));
}

/// What the clock on the wall is ahead of UTC.
SerTicks WallClockAhead(UtcTime time)
{
    const std::time_t seconds =
        std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(time));
    std::tm wall{};
    return localtime_r(&seconds, &wall) ? wall.tm_gmtoff * kTicksPerSecond : 0;
}

} // namespace

SerTicks SerTicksOf(UtcTime time)
{
    return time.time_since_epoch().count() * kTicksPerUs + kUnixEpoch;
}

std::string FormatSerTicks(SerTicks ticks)
{
    if (ticks < 0 || ticks >= kYear10000)
        return fmt::format("{}", ticks);
    return FormatUtc(UtcTime(Microseconds((ticks - kUnixEpoch) / kTicksPerUs)));
}

SerHeaderBytes Encode(const SerHeader &header)
{
    SerHeaderBytes bytes{};
    std::ranges::copy(kMagic, bytes.begin());
    StoreLow(header.luId, &bytes[kLuIdAt]);
    StoreLow(header.colour, &bytes[kColourAt]);
    StoreLow(header.littleEndian, &bytes[kLittleEndianAt]);
    StoreLow(header.width, &bytes[kWidthAt]);
    StoreLow(header.height, &bytes[kHeightAt]);
    StoreLow(header.bits, &bytes[kBitsAt]);
    StoreLow(header.frames, &bytes[kSerCountAt]);
    StoreText(header.observer, &bytes[kTextsAt]);
    StoreText(header.instrument, &bytes[kTextsAt + kTextBytes]);
    StoreText(header.telescope, &bytes[kTextsAt + 2 * kTextBytes]);
    StoreLow(header.localTime, &bytes[kLocalTimeAt]);
    StoreLow(header.utcTime, &bytes[kUtcTimeAt]);
    return bytes;
}

SerHeader DecodeSerHeader(std::span<const uint8_t> bytes)
{
    if (bytes.size() < kSerHeaderBytes || !std::equal(kMagic.begin(), kMagic.end(), bytes.begin()))
        throw Failure(Exit::kFile, "no SER file: it does not begin with " + std::string(kMagic));
    const auto number = [&](size_t at) { return LoadLow<int32_t>(&bytes[at]); };
    SerHeader header{.luId = number(kLuIdAt),
                     .colour = number(kColourAt),
                     .littleEndian = number(kLittleEndianAt),
                     .width = number(kWidthAt),
                     .height = number(kHeightAt),
                     .bits = number(kBitsAt),
                     .frames = number(kSerCountAt),
                     .observer = LoadText(&bytes[kTextsAt]),
                     .instrument = LoadText(&bytes[kTextsAt + kTextBytes]),
                     .telescope = LoadText(&bytes[kTextsAt + 2 * kTextBytes]),
                     .localTime = LoadLow<SerTicks>(&bytes[kLocalTimeAt]),
                     .utcTime = LoadLow<SerTicks>(&bytes[kUtcTimeAt])};
    if (!IsPossible(header))
        throw Failure(Exit::kFile,
                      fmt::format("no SER file: {} frames of {} x {} pixels with {} bits",
                                  header.frames, header.width, header.height, header.bits));
    return header;
}

int64_t FrameBytesOf(const SerHeader &header)
{
    const int64_t planes = header.colour == kRgb || header.colour == kBgr ? 3 : 1;
    const int64_t bytesPerSample = header.bits > 8 ? 2 : 1;
    return int64_t{header.width} * header.height * planes * bytesPerSample;
}

int32_t SerColourOf(PixelFormat format, std::optional<Mosaic> mosaic)
{
    if (format == PixelFormat::kRgb24)
        return kBgr; // as the library delivers it
    if (!mosaic)
        return kMono;
    constexpr int32_t kByRedSite[] = {8, 9, 10, 11};
    return kByRedSite[mosaic->redRow * 2 + mosaic->redColumn];
}

std::string SerColourName(int32_t colour)
{
    const auto *found = std::ranges::find(kColours, colour, &Colour::number);
    return found != std::end(kColours) ? found->name : fmt::format("colour {}", colour);
}

void SetBegin(SerHeader &header, UtcTime begin)
{
    header.utcTime = SerTicksOf(begin);
    header.localTime = header.utcTime + WallClockAhead(begin);
}

} // namespace vsctool
