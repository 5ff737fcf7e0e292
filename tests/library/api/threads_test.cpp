#include "api/session.h"
#include "base/sync.h"
#include "library/capture_fixture.h"

#include <atomic>
#include <iterator>
#include <mutex>
#include <random>
#include <set>

namespace vsccam {
namespace {

using namespace std::chrono_literals;

/// A call on a thread of its own. On the tests' clock it is inside, and waits, once time passes.
class Inside {
  public:
    explicit Inside(std::function<void()> call)
    {
        EXPECT_TRUE(m_thread.Start([this, call = std::move(call)] {
            m_tookMs = Took([&call] { call(); });
            m_back = true;
        }));
        SleepFor(50ms);
    }

    /// A thread that has left the library by now may need a moment to say so.
    bool Back() const
    {
        SleepFor(1ms);
        return m_back;
    }
    uint32_t TookMs()
    {
        m_thread.Join();
        return m_tookMs;
    }

  private:
    std::atomic<bool> m_back{false};
    Shared<uint32_t> m_tookMs;
    Thread m_thread; // ends before what it uses
};

constexpr uint32_t kRequestsMs = 5; // at most, on the simulated bus

class ThreadsTest : public CaptureFixture {
  protected:
    ThreadsTest() : CaptureFixture("VSC470MM", kBothEnds) {}

    static std::vector<std::string> GuideLines(int device)
    {
        std::vector<std::string> lines = Bus().TakeTraffic(device);
        std::erase_if(lines, [](const auto &line) { return !line.starts_with("guide"); });
        return lines;
    }
};

TEST_F(ThreadsTest, ReadersReturnBeforeWhatEndsTheirWaits)
{
    const struct {
        const char *name;
        std::function<void()> end;
    } cases[] = {{"stop", stopCapture},
                 {"close", closeCamera},
                 {"format", [] { setImageFormat(64, 48, 1, VSC_IMG_RAW16); }},
                 {"bin", [] { setValue(CONTROL_HARDWARE_BIN, 1, false); }}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const int device = OpenSmall({.frameLimit = 0});
        ASSERT_TRUE(setImageFormat(64, 48, 2, VSC_IMG_RAW8));
        Bytes frames[2];
        Bytes none;
        Inside early([&none] { none = NextFrame(60'000); }); // before there is a capture
        startCapture();
        Inside first([&frames] { frames[0] = NextFrame(-1); });
        Inside second([&frames] { frames[1] = NextFrame(-1); });
        Inside impatient([] { (void)NextFrame(300); });
        EXPECT_EQ(impatient.TookMs(), 300U); // behind others that wait longer
        EXPECT_FALSE(early.Back() || first.Back() || second.Back());
        EXPECT_LE(Took([&c] { c.end(); }), 2000U);
        EXPECT_TRUE(early.Back() && first.Back() && second.Back());
        EXPECT_TRUE(none.empty() && frames[0].empty() && frames[1].empty());
        Remove(device);
    }
}

TEST_F(ThreadsTest, GettersPassASetterThatACameraKeepsWaiting)
{
    OpenSmall();
    FailNext("libusb_control_transfer", 2, LIBUSB_ERROR_TIMEOUT);
    Inside setter([] { setValue(CONTROL_GAIN, 7, false); });
    EXPECT_EQ(Took([] {
                  return getValue(CONTROL_EXPOSURE, nullptr) + getWidth() + getExpStatus() +
                         getStartX() + getImgType() + getDroppedFrames();
              }),
              0U);
    EXPECT_FALSE(setter.Back());
    EXPECT_LE(Took(closeCamera), 2000U);
    EXPECT_TRUE(setter.Back()); // the camera lived as long
}

TEST_F(ThreadsTest, ACameraLivesUntilTheLastCallHasLeft)
{
    OpenSmall();
    std::optional<Programming::Scope> busy(CurrentCamera()->programming);
    Inside setter([] { setValue(CONTROL_GAIN, 7, false); });
    Inside closer(closeCamera);
    SleepFor(5s);
    ASSERT_FALSE(setter.Back() || closer.Back());
    busy.reset();
    EXPECT_TRUE(setter.Back() && closer.Back());
}

TEST_F(ThreadsTest, PartOfABalanceThatIsSetKeepsWhatTheAutomaticSetsMeanwhile)
{
    OpenOne("VSC470MC");
    CCameraBase &camera = *CurrentCamera();
    for (const int control : {CONTROL_WB_RED, CONTROL_WB_BLUE}) {
        std::optional<Programming::Scope> automatic(camera.programming);
        Inside host([control] { setValue(control, 30, true); });
        EXPECT_TRUE(camera.SetRGBBalance(70, 70, true));
        automatic.reset();
        (void)host.TookMs();
        // The part that was set is 30, the other one 70.
        EXPECT_EQ(getValue(CONTROL_WB_RED, nullptr) + getValue(CONTROL_WB_BLUE, nullptr), 100);
    }
}

TEST_F(ThreadsTest, ReadersAndPulsesDelayNothingAndCostNoFrame)
{
    const int device = OpenSmall();
    startCapture();
    (void)Bus().TakeTraffic(device);
    CriticalSection section;
    std::vector<std::optional<int>> numbers;
    {
        Inside pulse([] { pulseGuide(GUIDE_WEST, 1000); });
        const auto read = [&] {
            while (!pulse.Back()) {
                const Bytes frame = NextFrame(1000);
                const std::lock_guard lock(section);
                numbers.push_back(Number(frame));
            }
        };
        Inside first(read);
        Inside second(read);
        EXPECT_LE(Took([] { setValue(CONTROL_GAIN, 7, false); }), kRequestsMs);
        EXPECT_NEAR(pulse.TookMs(), 1000, kRequestsMs);
    }
    EXPECT_GT(numbers.size(), 20U);
    std::set<std::optional<int>> different(numbers.begin(), numbers.end());
    EXPECT_EQ(different.size(), numbers.size()); // nobody gets what another has got
    EXPECT_FALSE(different.contains(std::nullopt));
    EXPECT_EQ(getDroppedFrames(), 0);
    EXPECT_EQ(GuideLines(device), (std::vector<std::string>{"guide on 3", "guide off 3"}));
}

TEST_F(ThreadsTest, PulsesOfOneAxisFollowEachOther)
{
    const struct {
        int second;
        int ms;
        uint32_t tookMs;
        std::vector<std::string> wire;
    } cases[] = {{GUIDE_NORTH, 100, 550, {"on 0", "off 0", "on 0", "off 0"}},
                 {GUIDE_SOUTH, 100, 550, {"on 0", "off 0", "on 1", "off 1"}},
                 {GUIDE_EAST, 100, 100, {"on 0", "on 2", "off 2", "off 0"}},
                 {GUIDE_WEST, 0, 0, {"on 0", "off 3", "off 0"}}, // makes sure of it, no more
                 {GUIDE_NORTH, -1, 450, {"on 0", "off 0", "off 0"}}};
    const int device = OpenSmall();
    for (auto c : cases) {
        Inside first([] { pulseGuide(GUIDE_NORTH, 500); });
        EXPECT_NEAR(Took([&c] { pulseGuide(c.second, c.ms); }), c.tookMs, kRequestsMs);
        EXPECT_NEAR(first.TookMs(), 500, kRequestsMs);
        for (std::string &line : c.wire)
            line.insert(0, "guide ");
        EXPECT_EQ(GuideLines(device), c.wire);
    }
}

TEST_F(ThreadsTest, ClosingEndsPulsesWithTheirLinesOff)
{
    const int device = OpenSmall();
    Inside pulse([] { pulseGuide(GUIDE_EAST, 60'000); });
    Inside waiting([] { pulseGuide(GUIDE_WEST, 60'000); });
    EXPECT_LE(Took(closeCamera), 100U);
    EXPECT_TRUE(pulse.Back() && waiting.Back());
    EXPECT_EQ(GuideLines(device), (std::vector<std::string>{"guide on 2", "guide off 2"}));
}

/// A host of many threads that know nothing of each other.
class Crowd {
  public:
    /// Calls anything until then.
    void Do(uint32_t seed, uint32_t untilMs)
    {
        std::minstd_rand random(seed);
        const auto pick = [&random](size_t end) { return static_cast<int>(random() % end); };
        while (GetTickCount() < untilMs) {
            Once(pick);
            SleepFor(std::chrono::milliseconds(1 + pick(30)));
        }
    }

    int Frames() const { return m_frames; }

  private:
    /// Asks for the format first, which may be another one by the time of the reading.
    template <class ReadInto> void ReadBy(ReadInto readInto)
    {
        const int size = 2 * getWidth() * getHeight();
        Bytes buffer(static_cast<size_t>(size) + 64, 0xA5);
        m_frames += readInto(buffer.data(), size);
        EXPECT_EQ(std::count(buffer.begin() + size, buffer.end(), 0xA5), 64);
    }

    template <class Pick> void Once(Pick pick)
    {
        _VSC_ID id{};
        const auto read = [&] {
            ReadBy([&](auto... room) { return getImageData(room..., pick(200)); });
        };
        const std::function<void()> calls[] = {
            read,
            read,
            startCapture,
            startCapture,
            stopCapture,
            [&] { setValue(pick(16), pick(120), pick(2)); },
            [&] { setValue(CONTROL_EXPOSURE, 1'000 << pick(9), pick(2)); },
            [&] { setValue(CONTROL_HARDWARE_BIN, pick(2), false); },
            [&] { (void)(getValue(pick(16), nullptr) + getMin(pick(16)) + getMax(pick(16))); },
            [&] { (void)(isAvailable(pick(16)) + isAutoSupported(pick(16)) + isBinSupported(2)); },
            [&] { setAutoPara(pick(300), 1 + pick(3), 50 + pick(100)); },
            [&] { setImageFormat(32 << pick(3), 16 << pick(3), 1 + pick(2), pick(5)); },
            [&] { setStartPos(pick(200), pick(200)); },
            [&] { (void)(getStartX() + getStartY() + getBin() + getImgType() + getMaxWidth()); },
            [&] { pick(2) ? startExposure() : stopExposure(); },
            [&] { getExpStatus() ? ReadBy(getImageAfterExp) : startExposure(); },
            [] { (void)(getDroppedFrames() + static_cast<int>(getSensorTemp())); },
            [&] { SetMisc(pick(2), pick(2)); },
            [&] { pulseGuide(pick(5), pick(100) - 5); },
            [&] { pick(2) ? (void)EnableDarkSubtract("nowhere.bmp") : DisableDarkSubtract(); },
            [&] { (void)(pick(4) ? GetID(&id) : SetID(id)); },
            [] { (void)(getNumberOfConnectedCameras() + (getCameraModel(0) != nullptr)); },
            [&] { pick(6) ? (void)openCamera(0) : closeCamera(); },
            [&] { (void)(openCamera(0) && pick(3) == 0 && initCamera()); }};
        calls[pick(std::size(calls))]();
    }

    std::atomic<int> m_frames{0};
};

TEST_F(ThreadsTest, SixThreadsCallEverythingWhileTheCameraFailsComesAndGoes)
{
    uint32_t seed = 0;
    for (const char *const model : {"VSC470MC-Cool", "VSC340MM"}) {
        SCOPED_TRACE(model);
        const auto faults = vscsim::ParseFaultPlan(
            "short-frame%0.02x*,empty-frame%0.01x*,bad-head%0.02x*,refuse-request:bd%0.002x*,"
            "time-out-request:b6%0.0005x*,time-out-request:a6%0.0005x*",
            nullptr);
        const int device = OpenOne(model, {.seed = ++seed, .faults = faults.value()});
        setImageFormat(64, 48, 1, VSC_IMG_RAW8);
        startCapture();
        const uint32_t end = GetTickCount() + 12'000;
        Crowd crowd;
        {
            Thread threads[6];
            uint32_t number = 6 * seed;
            for (Thread &thread : threads)
                ASSERT_TRUE(thread.Start([&crowd, end, n = number++] { crowd.Do(n, end); }));
            SleepFor(3s);
            Bus().Unplug(device);
            SleepFor(1s);
            Bus().Replug(device);
        }
        EXPECT_GT(crowd.Frames(), 0);
        closeCamera();
        Bus().Unplug(device);
    }
}

} // namespace
} // namespace vsccam
