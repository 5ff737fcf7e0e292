#include "image/time_mark.h"

#include <algorithm>
#include <cstdio>

namespace vsccam {

namespace {

constexpr size_t kGlyphWidth = 8;
constexpr size_t kGlyphHeight = 16;
constexpr size_t kTop = 8;
constexpr size_t kDateFromRight = 200;
constexpr size_t kTimeFromRight = 128;
constexpr size_t kAreaWidth = 128; // whose brightness decides the ink
constexpr unsigned kAreaShift = 11;
static_assert(kAreaWidth * kGlyphHeight == size_t{1} << kAreaShift);

// '0' to '9' and ':'; the lowest bit of a row is its left end.
constexpr uint8_t kFont[][kGlyphHeight] = {
    {0, 0, 0x3C, 0x66, 0x66, 0x66, 0x76, 0x7E, 0x6E, 0x66, 0x66, 0x66, 0x3C, 0, 0, 0},
    {0, 0, 0x18, 0x1C, 0x1E, 0x18, 0x18, 0x18, 0x18, 0x18, 0x18, 0x18, 0x7E, 0, 0, 0},
    {0, 0, 0x3C, 0x66, 0x66, 0x60, 0x60, 0x30, 0x18, 0x0C, 0x06, 0x06, 0x7E, 0, 0, 0},
    {0, 0, 0x3C, 0x66, 0x60, 0x60, 0x38, 0x60, 0x60, 0x60, 0x60, 0x66, 0x3C, 0, 0, 0},
    {0, 0, 0x30, 0x38, 0x38, 0x3C, 0x34, 0x36, 0x36, 0x7E, 0x30, 0x30, 0x30, 0, 0, 0},
    {0, 0, 0x7E, 0x06, 0x06, 0x06, 0x3E, 0x66, 0x60, 0x60, 0x60, 0x66, 0x3C, 0, 0, 0},
    {0, 0, 0x38, 0x0C, 0x06, 0x06, 0x3E, 0x66, 0x66, 0x66, 0x66, 0x66, 0x3C, 0, 0, 0},
    {0, 0, 0x7E, 0x60, 0x60, 0x30, 0x30, 0x18, 0x18, 0x18, 0x0C, 0x0C, 0x0C, 0, 0, 0},
    {0, 0, 0x3C, 0x66, 0x66, 0x66, 0x3C, 0x66, 0x66, 0x66, 0x66, 0x66, 0x3C, 0, 0, 0},
    {0, 0, 0x3C, 0x66, 0x66, 0x66, 0x66, 0x7C, 0x60, 0x60, 0x60, 0x30, 0x1C, 0, 0, 0},
    {0, 0, 0, 0, 0x18, 0x18, 0x18, 0, 0, 0, 0x18, 0x18, 0x18, 0, 0, 0},
};

/// The image, seen from the left end of the top row of the mark.
class Area {
  public:
    Area(uint8_t *image, int width, size_t bytesPerPixel)
        : m_image(image), m_width(static_cast<size_t>(width)), m_bytes(bytesPerPixel)
    {
    }

    /// @param fromRight  columns between the left end of the text and the right end of the image
    void Draw(const char *text, size_t fromRight, uint8_t ink)
    {
        for (size_t left = m_width - fromRight; *text; ++text, left += kGlyphWidth) {
            const uint8_t *glyph = kFont[*text - '0'];
            for (size_t y = 0; y < kGlyphHeight; ++y)
                for (size_t x = 0; x < kGlyphWidth; ++x)
                    if (glyph[y] >> x & 1)
                        std::fill_n(Pixel(left + x, kTop + y), m_bytes, ink);
        }
    }

    unsigned MeanBrightness() const
    {
        unsigned sum = 0;
        const size_t left = m_width - kDateFromRight;
        for (size_t y = 0; y < kGlyphHeight; ++y)
            for (size_t x = 0; x < kAreaWidth; ++x)
                sum += Brightness(Pixel(left + x, kTop + y));
        return sum >> kAreaShift;
    }

  private:
    uint8_t *Pixel(size_t x, size_t y) const { return m_image + (y * m_width + x) * m_bytes; }
    unsigned Brightness(const uint8_t *pixel) const
    {
        return m_bytes == 3 ? (unsigned{pixel[0]} + pixel[1] + pixel[2]) / 3 : pixel[0];
    }

    uint8_t *m_image;
    size_t m_width;
    size_t m_bytes;
};

constexpr uint8_t InkFor(unsigned brightness)
{
    if (brightness >= 180)
        return 120;
    return brightness >= 130 ? 220 : 180;
}

} // namespace

void DrawTimeMark(uint8_t *image, int width, size_t bytesPerPixel, const std::tm &time)
{
    constexpr size_t kLetters = 8;
    char date[kLetters + 1];
    char clock[kLetters + 1];
    // Quirk, kept: months count from 0; readers of old recordings expect it.
    const int year = std::clamp(time.tm_year + 1900, 0, 9999);
    (void)std::snprintf(date, sizeof date, "%04d%02d%02d", year, time.tm_mon, time.tm_mday);
    (void)std::snprintf(clock, sizeof clock, "%02d:%02d:%02d", time.tm_hour, time.tm_min,
                        time.tm_sec);
    Area area(image, width, bytesPerPixel);
    const uint8_t ink = InkFor(area.MeanBrightness());
    area.Draw(date, kDateFromRight, ink);
    area.Draw(clock, kTimeFromRight, ink);
}

void DrawCurrentTime(uint8_t *image, int width, int height, IMAGE_TYPE type)
{
    const bool drawable = type == kByteImage || type == kRgb24;
    if (!drawable || width < kTimeMarkWidth || height < kTimeMarkHeight)
        return;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local))
        DrawTimeMark(image, width, BytesPerPixel(type), local);
}

} // namespace vsccam
