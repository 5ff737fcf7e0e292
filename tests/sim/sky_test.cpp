#include "sim/host.h"

namespace vscsim {
namespace {

/// A 16-bit frame of the sky, in steps of the 12-bit converter.
struct Picture {
    std::vector<int> steps;
    int width = 0;

    int At(int x, int y) const { return steps.at(static_cast<unsigned>(y * width + x)); }
    double Median() const
    {
        std::vector<int> chosen = steps;
        const auto middle = chosen.begin() + static_cast<std::ptrdiff_t>(chosen.size() / 2);
        std::ranges::nth_element(chosen, middle);
        return *middle;
    }
};

class Sky : public testing::Test {
  protected:
    static constexpr Host::Format kWhole{.width = 1936, .height = 1096, .sixteenBit = true};
    static constexpr int kLinesPerSecond = 91'441; // of 203 clocks

    static Picture Take(Host &host, const Host::Format &format = kWhole)
    {
        const std::vector<uint8_t> frame = host.Read(format.Bytes(), 5s);
        EXPECT_EQ(frame.size(), format.Bytes());
        Picture picture{.steps = std::vector<int>(frame.size() / 2), .width = format.Columns()};
        for (size_t i = 0; i < picture.steps.size(); ++i)
            picture.steps[i] = Word(frame, 2 * i) >> 4;
        return picture;
    }

    /// Gain 200 of a host: high conversion and 14 dB.
    static Host Started(double seconds, const char *model = "VSC470MM", uint64_t seed = 1,
                        const Host::Format &format = kWhole)
    {
        Host host({.scene = Scene::Sky, .seed = seed, .speed = 0}, model);
        host.Program(format);
        host.Sony(0x3009, 0x11);
        host.Sony(0x3014, 46);
        host.ExposeLines(static_cast<int>(seconds * kLinesPerSecond), format.height);
        host.Start();
        return host;
    }
};

TEST_F(Sky, GrowsWithExposureAndGainAndStandsOnTheBlackLevel)
{
    Host host = Started(0.1);
    const double sky = Take(host).Median() - 1;
    EXPECT_GT(sky, 50);
    const struct {
        const char *what;
        void (*program)(Host &);
        double factor, black;
    } cases[] = {
        {"exposure", [](Host &h) { h.ExposeLines(kLinesPerSecond / 5, 1096); }, 2.0, 1},
        {"gain", [](Host &h) { h.Sony(0x3014, 66); }, 2.0, 1}, // 6 dB more
        {"conversion gain", [](Host &h) { h.Sony(0x3009, 0x01); }, 0.5, 1},
        {"black level", [](Host &h) { h.Sony(0x300A, 240); }, 1.0, 240},
        {"10 bits", [](Host &h) { h.Sony(0x3046, 0xF0), h.Fpga(10, 0x10); }, 1.0, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Host changed = Started(0.1);
        c.program(changed);
        EXPECT_NEAR(Take(changed).Median() - c.black, sky * c.factor, sky * 0.03 + 2);
    }
}

TEST_F(Sky, IsTheSameFromTheSameSeedAndAnotherFromAnother)
{
    const auto firstFrame = [](uint64_t seed) {
        Host host = Started(0.2, "VSC470MM", seed);
        return Take(host).steps;
    };
    const std::vector<int> first = firstFrame(1);
    EXPECT_EQ(first, firstFrame(1));
    EXPECT_NE(first, firstFrame(2));

    Host host = Started(0.2);
    EXPECT_EQ(Take(host).steps, first);
    EXPECT_NE(Take(host).steps, first); // noise is never the same twice
}

TEST_F(Sky, GuidePulsesMoveTheStars)
{
    const struct {
        int line;
        int dx, dy;
    } cases[] = {{0, -10, 0}, {1, 10, 0}, {2, 0, -10}, {3, 0, 10}};
    Host reference = Started(0.2);
    const Picture before = Take(reference);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        Host host = Started(0.2);
        host.Out(0xB0, c.line);
        host.now += 2s;
        host.Out(0xB1, c.line);
        host.now += 2s;
        const Picture after = Take(host);
        int found = 0;
        int lost = 0;
        for (int y = 10; y < 1086; ++y)
            for (int x = 10; x < 1926; ++x)
                if (before.At(x, y) == 4095)
                    ++(after.At(x + c.dx, y + c.dy) > 3000 ? found : lost);
        EXPECT_GT(found, 100);
        EXPECT_LT(lost, found / 10);
    }
}

} // namespace
} // namespace vscsim
