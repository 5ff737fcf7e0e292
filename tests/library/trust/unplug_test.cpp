#include "library/trust/session.h"

// A camera whose cable is pulled, at any point of a session.
namespace vsccam {
namespace {

using namespace std::chrono_literals;
using vscsim::LinkSpeed;

constexpr auto kNoticed = 1s;

class UnplugTest : public EachFamily {
  protected:
    /// The registers at the end, when every step succeeded.
    static std::map<int, int> RunUndisturbed(int device)
    {
        std::map<int, int> registers;
        HostSession host;
        for (const SessionStep &step : kSession) {
            EXPECT_TRUE(step.run(host)) << step.name;
            if (&step + 2 == std::end(kSession))
                registers = Registers(device);
        }
        EXPECT_EQ(host.broken, 0);
        return registers;
    }

    static void RunUnplugged(int device)
    {
        HostSession host;
        host.waitMs = -1;
        for (const SessionStep &step : kSession) {
            SCOPED_TRACE(step.name);
            const bool wasThere = !Bus().AwayFor(device);
            EXPECT_LE(Took([&] { return step.run(host); }), step.limitMs);
            if (wasThere) {
                EXPECT_LE(Bus().AwayFor(device).value_or(0s), kNoticed);
            }
        }
        EXPECT_EQ(host.broken, 0);
    }
};

TEST_P(UnplugTest, AtAnyCall)
{
    const int first = Bus().Plug(GetParam());
    const auto registers = RunUndisturbed(first);
    const uint64_t calls = Bus().Calls();
    for (uint64_t n = 0; n < calls && !HasFailure(); n += Stride(13)) {
        SCOPED_TRACE(testing::Message() << "at call " << n);
        NextCase();
        const int device = Bus().Plug(GetParam());
        Bus().UnplugAtCall(device, n);
        RunUnplugged(device);
        if (!Bus().AwayFor(device)) { // sessions differ by a few calls
            EXPECT_GE(n + calls / 10, calls);
            break;
        }
        EXPECT_EQ(Bus().LiveObjects().handles, 0);
        Bus().Replug(device);
        EXPECT_EQ(RunUndisturbed(device), registers);
    }
}

TEST_P(UnplugTest, InAnyPartOfAFrame)
{
    constexpr uint64_t kPartBytes = 65'536;
    uint64_t parts = 1;
    for (uint64_t part = 0; part < 2 * parts && !HasFailure(); part += Stride(41)) {
        SCOPED_TRACE(part);
        const int device = OpenOne(GetParam());
        HostSession host{.waitMs = -1, .frame = Bytes(FrameBytes())};
        parts = FrameBytes() / kPartBytes;
        startCapture();
        EXPECT_TRUE(host.Video());
        const auto first = Clock::now();
        EXPECT_TRUE(host.Video());
        Bus().UnplugAfter(device, (Clock::now() - first) * part / parts);
        while (host.Video()) { // no limit, and yet no endless wait
        }
        EXPECT_LE(Bus().AwayFor(device), kNoticed);
        EXPECT_EQ(host.broken, 0);
        EXPECT_LE(Took([] { stopCapture(), closeCamera(); }), 2000U);
        NextCase();
    }
}

/// What is set of a camera that is lost, beyond exposure, gain, bandwidth.
struct Lost {
    const char *what, *model;
    int exposureUs;
    void (*set)();
    uint64_t unanswered = 0; // requests to the camera that comes back
    bool automatic = false;  // bandwidth
};
constexpr Lost kLost[] = {
    {"Sony", "VSC470MM-Cool", 10'000,
     [] { setImageFormat(320, 240, 1, VSC_IMG_RAW8), setStartPos(64, 32); }},
    {"Sony, gated", "VSC470MC", 1'500'000, [] { setImageFormat(320, 240, 2, VSC_IMG_RAW16); }},
    {"binned by the sensor", "VSC2800MM", 10'000,
     [] {
         setValue(CONTROL_HARDWARE_BIN, 1, false);
         setImageFormat(160, 120, 3, VSC_IMG_RAW16), setStartPos(20, 10);
     }},
    // A new size and a new start count the rows differently.
    {"rows of a size", "VSC2800MM", 10'000, [] { setImageFormat(160, 1700, 2, VSC_IMG_RAW8); }},
    {"rows of a start", "VSC2800MM", 10'000,
     [] { setImageFormat(160, 1700, 2, VSC_IMG_RAW8), setStartPos(10, 20); }, 0, true},
    {"PYTHON", "VSC048MM", 10'000, [] { setImageFormat(320, 240, 1, VSC_IMG_RAW8); }},
    {"USB 2.0, fast", "VSC340MM", 10'000, [] {}},
    {"USB 2.0, slow", "VSC340MM", 200'000, [] { setStartPos(64, 32); }},
    {"USB 2.0, timed by the host", "VSC340MM", 5'000'000, [] {}},
    {"USB 2.0 sensor on USB 3.0", "VSC340MM-S", 200'000, [] {}},
    {"Sony, silent at first", "VSC470MM", 500'000, [] {}, 5},
    {"USB 2.0, silent at first", "VSC340MM", 500'000, [] {}, 5},
};

void PrintTo(const Lost &lost, std::ostream *out)
{
    *out << lost.what;
}

class ReplugTest : public CaptureFixture, public testing::WithParamInterface<Lost> {
  protected:
    ReplugTest() : CaptureFixture(GetParam().model, kBothEnds) {}

    /// Behind another camera of its kind.
    static int OpenAndStart(LinkSpeed link)
    {
        (void)Bus().Plug(GetParam().model);
        const int device = Bus().Plug(GetParam().model, {.link = link});
        EXPECT_EQ(getNumberOfConnectedCameras(), 2);
        EXPECT_TRUE(openCamera(1) && initCamera());
        setValue(CONTROL_BANDWIDTH, 55, GetParam().automatic);
        setValue(CONTROL_EXPOSURE, GetParam().exposureUs, false);
        setValue(CONTROL_GAIN, 7, false);
        GetParam().set();
        startCapture();
        EXPECT_FALSE(NextFrame(10'000).empty());
        return device;
    }
};

TEST_P(ReplugTest, IsFoundAgainWithEverythingAsItWas)
{
    constexpr auto kSuper = LinkSpeed::Super;
    constexpr auto kHigh = LinkSpeed::High;
    const struct {
        const char *what;
        vscsim::Place place;
        LinkSpeed before = kSuper, after = kSuper;
    } moves[] = {{"behind the other one", {}},
                 {"at another port", {.ports = {3, 1}}},
                 {"fallen back", {.link = kHigh}, kSuper, kHigh},
                 {"at another port of full speed", {.ports = {4}, .link = kSuper}, kHigh, kSuper}};
    uint64_t moment = 0; // of the unplugging, in the middle of a frame
    for (const auto &move : moves) {
        NextCase();
        OpenAndStart(move.after);
        const auto registers = Registers(1);
        const std::pair link(isUSB3Host(), getValue(CONTROL_BANDWIDTH, nullptr));
        closeCamera();
        for (const auto delay : {0ms, 100ms, 300ms, 700ms, 1000ms, 1500ms, 3000ms, 10'000ms}) {
            if (++moment % Stride(5) != 0)
                continue;
            SCOPED_TRACE(testing::Message() << move.what << " after " << delay.count() << " ms");
            NextCase();
            const int device = OpenAndStart(move.before);
            if (delay != 0ms) { // else it is back before anybody knows of the loss
                Bus().UnplugAfter(device, moment * 7'777us);
                while (!NextFrame(-1).empty()) { // no limit, and yet no endless wait
                }
                EXPECT_LE(Bus().AwayFor(device), kNoticed);
                SleepFor(delay);
            }
            const bool restarts = moment % 3 == 0;
            if (restarts) {
                EXPECT_LE(Took(stopCapture), 2000U);
                startCapture(); // goes on looking for it
            }
            FailNext("libusb_control_transfer", GetParam().unanswered, LIBUSB_ERROR_TIMEOUT);
            Bus().Replug(device, move.place);
            SleepFor(5s + GetParam().unanswered * 1s);
            for (int i = 0; i < 3; ++i) // and not only what has come meanwhile
                EXPECT_FALSE(NextFrame(-1).empty());
            EXPECT_EQ(Registers(device), registers);
            EXPECT_EQ(std::pair(isUSB3Host(), getValue(CONTROL_BANDWIDTH, nullptr)), link);
            const auto lost = delay.count() / std::max(GetParam().exposureUs / 1000, 100);
            EXPECT_GE(getDroppedFrames(), restarts ? 0 : lost);
            EXPECT_TRUE(Bus().TakeTraffic(1 - device).empty()); // the other one's
            closeCamera();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Lost, ReplugTest, testing::ValuesIn(kLost));
INSTANTIATE_TEST_SUITE_P(Families, UnplugTest, testing::ValuesIn(kFamilies));

} // namespace
} // namespace vsccam
