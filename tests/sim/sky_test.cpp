#include "sim/host.h"

namespace vscsim {
namespace {

/// A 16-bit frame of the sky, in steps of the 12-bit converter.
struct Picture {
    std::vector<int> steps;
    int width = 0;

    int At(int x, int y) const { return steps.at(static_cast<unsigned>(y * width + x)); }
};

class Sky : public testing::Test {
  protected:
    static constexpr Host::Format kWhole{.width = 1936, .height = 1096, .sixteenBit = true};
    static constexpr int kLinesPerSecond = 91'441; // of 203 clocks

    static Picture Take(Host &host)
    {
        const std::vector<uint8_t> frame = host.Read(kWhole.Bytes(), 5s);
        EXPECT_EQ(frame.size(), kWhole.Bytes());
        Picture picture{.steps = std::vector<int>(frame.size() / 2), .width = kWhole.width};
        for (size_t i = 0; i < picture.steps.size(); ++i)
            picture.steps[i] = Word(frame, 2 * i) >> 4;
        return picture;
    }

    /// Gain 200 of a host: high conversion and 14 dB.
    static Host Started(double seconds)
    {
        Host host({.scene = Scene::Sky, .speed = 0});
        host.Program(kWhole);
        host.Sony(0x3009, 0x11);
        host.Sony(0x3014, 46);
        host.ExposeLines(static_cast<int>(seconds * kLinesPerSecond), kWhole.height);
        host.Start();
        return host;
    }
};

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
