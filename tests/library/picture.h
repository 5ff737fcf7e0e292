#pragma once

#include "camera/pattern.h"
#include "image/algorithm.h"
#include "library/host_fixture.h"

namespace vsccam {

/// What the camera sends and what the host gets, worked out pixel by pixel.
struct Picture {
    const char *model;
    int width, height, bin, type;
    int startX, startY; // binned
    bool flipX = false, flipY = false;
    int bayer = 0;     // phase of a colour model
    int sensorBin = 1; // of `bin`, by leaving out samples; software does the rest
    HiddenBytes marks = kBothEnds;
    bool monoBin = false;           // of a colour model: neighbours, whatever their colours
    std::vector<uint16_t> values{}; // what samples become before they are binned; empty: as read

    bool Colour() const { return std::string_view(model).find("MC") != std::string_view::npos; }

    /// A pixel of the frame as it was read out, marks hidden by the rows next to them.
    uint32_t ReadOut(uint32_t frame, int x, int y) const
    {
        const int factor = bin / sensorBin;
        const int pixelBytes = type == VSC_IMG_RAW16 ? 2 : 1;
        if (y == 0 && x < marks.head / pixelBytes)
            ++y;
        else if (y == height * factor - 1 && x >= width * factor - marks.tail / pixelBytes)
            --y;
        const uint16_t v = vscsim::PatternSample(frame, startX * bin + x * sensorBin,
                                                 startY * bin + y * sensorBin);
        const uint32_t sample = type == VSC_IMG_RAW16 ? v : v >> 8;
        return values.empty() ? sample : values[sample];
    }

    /// A pixel of the binned and flipped image.
    uint32_t Binned(uint32_t frame, int x, int y) const
    {
        x = flipX ? width - 1 - x : x;
        y = flipY ? height - 1 - y : y;
        const int factor = bin / sensorBin;
        const bool mosaic = Colour() && factor > 1 && !monoBin;
        uint32_t sum = 0;
        for (int k = 0; k < factor; ++k) {
            for (int j = 0; j < factor; ++j)
                sum += mosaic ? ReadOut(frame, (x & 1) + (x & ~1) * factor + 2 * j,
                                        (y & 1) + (y & ~1) * factor + 2 * k)
                              : ReadOut(frame, x * factor + j, y * factor + k);
        }
        const auto divisor = static_cast<uint32_t>(factor);
        return sum / divisor / divisor;
    }

    /// The delivered image; colour models with neutral white balance and without flips.
    std::vector<uint8_t> Image(uint32_t frame) const
    {
        const bool processed = type == VSC_IMG_RGB24 || type == VSC_IMG_Y8;
        const int copies = type == VSC_IMG_RGB24 && !Colour() ? 3 : 1;
        std::vector<uint8_t> image;
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const uint32_t v = Binned(frame, x, y);
                image.insert(image.end(), static_cast<size_t>(copies), static_cast<uint8_t>(v));
                if (type == VSC_IMG_RAW16)
                    image.push_back(static_cast<uint8_t>(v >> 8));
            }
        }
        return processed && Colour() ? Demosaiced(image) : image;
    }

    bool IsOneOfTheFirst(const std::vector<uint8_t> &image) const
    {
        constexpr uint32_t kFrames = 4;
        for (uint32_t frame = 0; frame < kFrames; ++frame) {
            if (image == Image(frame))
                return true;
        }
        return false;
    }

  private:
    std::vector<uint8_t> Demosaiced(const std::vector<uint8_t> &mosaic) const
    {
        const bool rgb = type == VSC_IMG_RGB24;
        std::vector<uint8_t> image(mosaic.size() * (rgb ? 3 : 1));
        CAlgorithm algorithm;
        algorithm.RGBYUV_Init();
        algorithm.BayerConv(static_cast<BayerPhase>(bayer), mosaic.data(), image.data(), width,
                            height, rgb ? kRgb24 : kByteImage);
        return image;
    }
};

} // namespace vsccam
