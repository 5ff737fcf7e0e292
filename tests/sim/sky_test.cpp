#include "camera/scene_source.h"
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
    static Host Started(double seconds, CameraOptions options = {})
    {
        options.speed = 0;
        if (options.scene == Scene::Pattern)
            options.scene = Scene::Sky;
        Host host(std::move(options));
        host.Program(kWhole);
        host.Sony(0x3009, 0x11);
        host.Sony(0x3014, 46);
        host.ExposeLines(static_cast<int>(seconds * kLinesPerSecond), kWhole.height);
        host.Start();
        return host;
    }
};

TEST_F(Sky, GuidePulsesAndDriftMoveTheStars)
{
    constexpr int kNone = -1;
    const struct {
        int line;
        double driftPerS;
        int frames;
        int dx, dy;
    } cases[] = {{0, 0, 0, -10, 0},   {1, 0, 0, 10, 0},     {2, 0, 0, 0, -10},
                 {3, 0, 0, 0, 10},    {kNone, 5, 10, 9, 4}, {kNone, -5, 10, -9, -4},
                 {kNone, 0, 10, 0, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.line << " " << c.driftPerS);
        Host host = Started(0.2, {.driftPerS = c.driftPerS});
        const Picture before = Take(host);
        for (int i = 1; i < c.frames; ++i)
            (void)Take(host);
        if (c.line != kNone) {
            host.Out(0xB0, c.line);
            host.now += 2s;
            host.Out(0xB1, c.line);
            host.now += 2s;
        }
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

/// What the air does can be seen in the sharpness of a picture, and again with the same seed.
TEST_F(Sky, SeeingChangesTheSharpnessAndFollowsFromTheSeed)
{
    const auto sharpness = [](const CameraOptions &options) {
        std::vector<double> squares;
        Host host = Started(0.2, options);
        for (int i = 0; i < 4; ++i) {
            const Picture picture = Take(host);
            int64_t sum = 0;
            for (int y = 300; y < 800; ++y)
                for (int x = 500; x < 1500; ++x) {
                    const int step = picture.At(x + 1, y) - picture.At(x, y);
                    sum += int64_t{step} * step;
                }
            squares.push_back(static_cast<double>(sum));
        }
        return squares;
    };
    const auto spread = [](const std::vector<double> &values) {
        return std::ranges::max(values) / std::ranges::min(values);
    };
    for (const Scene scene : {Scene::Sky, Scene::Moon}) {
        SCOPED_TRACE(static_cast<int>(scene));
        CameraOptions options{.scene = scene, .seed = 5, .seeing = 1, .flawless = true};
        const std::vector<double> seen = sharpness(options);
        EXPECT_GT(spread(seen), 1.1);
        EXPECT_EQ(sharpness(options), seen);
        options.seed = 6;
        EXPECT_NE(sharpness(options), seen);
        options.seeing = 0;
        EXPECT_EQ(spread(sharpness(options)), 1);
    }
}

TEST_F(Sky, StaysDarkBehindStarsAndMoonInExposuresOfAllLengths)
{
    const struct {
        Scene scene;
        double seconds;
        long fewest, most; // pixels that are at least half as bright as can be
    } cases[] = {{Scene::Sky, 0.01, 4, 1'000},
                 {Scene::Sky, 1, 1'000, 10'000},
                 {Scene::Sky, 100, 20'000, 60'000},
                 {Scene::Moon, 0.01, 10'000, 500'000}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.seconds);
        Host host = Started(c.seconds, {.scene = c.scene, .glow = {2.5e-4, 2.5e-4, 2.5e-4}});
        Picture picture = Take(host);
        const auto bright = std::ranges::count_if(picture.steps, [](int v) { return v > 2048; });
        EXPECT_GT(bright, c.fewest);
        EXPECT_LT(bright, c.most);
        const auto middle = picture.steps.begin() + std::ssize(picture.steps) / 2;
        std::ranges::nth_element(picture.steps, middle);
        EXPECT_LT(*middle, 100);
    }
}

/// Some sensors have small steps, in which the same sky is brighter.
TEST(SkyOfAllModels, StaysDarkBehindStarsInLongExposures)
{
    constexpr unsigned kRows = 64;
    constexpr int kLargest = 65'535;
    constexpr double kGain = 11.25; // the VSC430, whose steps are the smallest, begins with it
    for (const ModelFacts &model : AllModels()) {
        const auto scene = MakeSkySource(model, {.glow = {2.5e-4, 2.5e-4, 2.5e-4}});
        const auto width = static_cast<unsigned>(model.sensorWidth);
        for (const auto duration : {1s, 300s}) {
            SCOPED_TRACE(testing::Message() << model.name << ", " << duration.count() << " s");
            scene->Begin(
                {.window = {0, model.sensorHeight / 2, model.sensorWidth, kRows}, .gain = kGain},
                {.duration = duration});
            std::vector<uint16_t> frame(size_t{width} * kRows);
            for (unsigned row = 0; row < kRows; ++row)
                scene->Row(static_cast<int>(row), std::span(frame).subspan(row * width, width));
            const auto bright =
                std::ranges::count_if(frame, [](int v) { return v > kLargest / 2; });
            EXPECT_GT(bright, 4);
            EXPECT_LT(bright, std::ssize(frame) / 10);
            const auto middle = frame.begin() + std::ssize(frame) / 2;
            std::ranges::nth_element(frame, middle);
            EXPECT_LT(*middle, kLargest * 15 / 100);
        }
    }
}

} // namespace
} // namespace vscsim
