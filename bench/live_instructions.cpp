#include "serve/live_picture.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string_view>

// Makes the default picture of the live view so many times. What one costs is the difference
// between two numbers of runs, counted from outside.
namespace {

using namespace vsctool;

/// A starry sky, whose noise costs the encoder as much as that of a camera.
Picture Sky(PixelFormat format, int width, int height)
{
    Picture picture{width, height, format, {}};
    picture.bytes.resize(picture.Pixels() * static_cast<size_t>(BytesPerPixel(format)));
    std::minstd_rand random(1);
    for (size_t i = 0; i < picture.Pixels(); ++i) {
        // The sum of four is as good as normal here.
        int level = 40;
        for (int n = 0; n < 4; ++n)
            level += static_cast<int>(random() >> 8) % 6;
        if (format == PixelFormat::kRaw16)
            picture.bytes[2 * i + 1] = static_cast<uint8_t>(level / 2);
        else
            picture.bytes[i] = static_cast<uint8_t>(level);
    }
    return picture;
}

constexpr struct {
    std::string_view name;
    PixelFormat format;
    bool isMosaic;
} kPictures[] = {{"live-raw8", PixelFormat::kRaw8, false},
                 {"live-raw16", PixelFormat::kRaw16, false},
                 {"live-mosaic8", PixelFormat::kRaw8, true},
                 {"live-mosaic16", PixelFormat::kRaw16, true}};

constexpr int kWidth = 1936;
constexpr int kHeight = 1096;

} // namespace

int main(int argc, char **argv)
{
    if (argc == 1) { // what there is, and the pixels of a run
        for (const auto &picture : kPictures)
            std::printf("%s %d\n", picture.name.data(), kWidth * kHeight);
        return 0;
    }
    for (const auto &picture : kPictures) {
        if (picture.name != argv[1])
            continue;
        serve::Frame frame;
        frame.picture = Sky(picture.format, kWidth, kHeight);
        if (picture.isMosaic)
            frame.mosaic = Mosaic{};
        for (int runs = argc > 2 ? std::atoi(argv[2]) : 1; runs > 0; --runs)
            (void)MakePicture(frame, {}); // it is what it costs that is asked for
        return 0;
    }
    return 1;
}
