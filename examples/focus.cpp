// A focuser's aid: how wide the brightest star is in one exposure after the other. Turn the focuser
// until the bar is shortest.
//
//     focus [EXPOSURES]
#include <vsccam.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <vector>

using namespace std::chrono_literals;

namespace {

constexpr int kReach = 20; // pixels from the middle of the star that belong to it at most

struct Pixel {
    int x, y;
    double value;
};

/// The brightest pixel that is whole: its neighbours have at least half of its value, as a hot
/// pixel's have not.
std::optional<Pixel> FindStar(const vsccam::Frame &frame)
{
    std::optional<Pixel> best;
    const vsccam::Shape &shape = frame.GetShape();
    for (int y = kReach; y < shape.height - kReach; ++y) {
        const auto row = frame.Row<std::uint16_t>(y);
        for (int x = kReach; x < shape.width - kReach; ++x) {
            const auto at = static_cast<std::size_t>(x);
            if ((!best || row[at] > best->value) && row[at - 1] + row[at + 1] > row[at])
                best = Pixel{x, y, static_cast<double>(row[at])};
        }
    }
    return best;
}

/// Half-flux diameter in pixels: half of the star's light is within it.
double Diameter(const vsccam::Frame &frame, const Pixel &star)
{
    std::vector<Pixel> pixels;
    for (int y = -kReach; y <= kReach; ++y) {
        const auto row = frame.Row<std::uint16_t>(star.y + y);
        for (int x = -kReach; x <= kReach; ++x)
            pixels.push_back({x, y, static_cast<double>(row.begin()[star.x + x])});
    }
    // Most of the square is sky.
    const auto middle = pixels.begin() + static_cast<std::ptrdiff_t>(pixels.size() / 2);
    std::nth_element(pixels.begin(), middle, pixels.end(),
                     [](const Pixel &a, const Pixel &b) { return a.value < b.value; });
    const double sky = middle->value;
    double light = 0;
    double moment = 0;
    for (const Pixel &pixel : pixels) {
        light += pixel.value - sky;
        moment += (pixel.value - sky) * std::hypot(pixel.x, pixel.y);
    }
    return light > 0 ? 2 * moment / light : 0;
}

volatile std::sig_atomic_t g_ended = 0;

} // namespace

int main(int argc, char **argv)
{
    try {
        vsccam::Camera camera;
        camera.SetType(VSC_IMG_RAW16);
        camera.Set(CONTROL_GAIN, 200);
        camera.SetExposure(500ms);
        std::signal(SIGINT, [](int) { g_ended = 1; }); // the camera is closed at the end
        std::printf("%s: Ctrl-C ends\n", camera.Model().c_str());

        vsccam::Frame frame;
        const long exposures = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1000;
        for (long i = 0; i < exposures && !g_ended; ++i) {
            vsccam::Exposure(camera).Read(frame);
            const auto star = FindStar(frame);
            if (!star) {
                std::puts("no star");
                continue;
            }
            const double width = Diameter(frame, *star);
            const std::string bar(static_cast<std::size_t>(std::clamp(width, 0.0, 30.0) * 2), '#');
            std::printf("%5d,%5d  %5.2f pixels  %s\n", star->x, star->y, width, bar.c_str());
            std::fflush(stdout);
        }
    } catch (const std::exception &error) {
        std::fprintf(stderr, "focus: %s\n", error.what());
        return 1;
    }
}
