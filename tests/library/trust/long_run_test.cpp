#include "base/time_source.h"
#include "library/trust/session.h"

#include <atomic>
#include <fstream>
#include <random>

// What shows only after a long time, or after many times, or at one moment in a thousand.
namespace vsccam {
namespace {

using namespace std::chrono_literals;

using LongRunTest = EachFamily;

long ResidentPages()
{
    long all = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident;
}

TEST_P(LongRunTest, RepetitionsCostNothing)
{
    const struct {
        const char *what;
        void (*once)(HostSession &);
    } cycles[] = {{"start and stop",
                   [](HostSession &host) {
                       startCapture();
                       EXPECT_TRUE(host.Video());
                       stopCapture();
                   }},
                  {"single exposure",
                   [](HostSession &host) {
                       setValue(CONTROL_EXPOSURE, 10'000, false);
                       EXPECT_TRUE(host.Exposure());
                   }},
                  {"open and close", [](HostSession &) {
                       closeCamera();
                       EXPECT_TRUE(openCamera(0) && initCamera());
                       EXPECT_TRUE(setImageFormat(HostSession::kWidth, HostSession::kHeight, 1,
                                                  VSC_IMG_RAW8));
                   }}};
    const int device = OpenSmall();
    HostSession host;
    for (const auto &[what, once] : cycles) {
        SCOPED_TRACE(what);
        const auto repeat = [&](uint64_t times) {
            for (uint64_t i = 0; i < times && !HasFailure(); ++i) {
                once(host);
                (void)Bus().TakeTraffic(device);
            }
        };
        repeat(50); // makes what lasts
        const auto files = EntriesOf("/proc/self/fd");
        const auto threads = EntriesOf("/proc/self/task");
        const long pages = ResidentPages();
        repeat(1'000 / Stride(10));
        EXPECT_EQ(EntriesOf("/proc/self/fd"), files);
        EXPECT_LE(EntriesOf("/proc/self/task"), threads + 3); // the last may still be ending
        if (kSlowness == 1) { // sanitizers keep memory that was freed
            EXPECT_LE(ResidentPages(), pages + pages / 100);
        }
    }
}

TEST_P(LongRunTest, ExposuresOfAnyLengthEndInTheirTimeOrWhenTheyAreAborted)
{
    std::minstd_rand random;
    OpenSmall();
    for (const int us : {32, 999'999, 1'000'000, 1'000'999, 1'001'000, 1'300'000, 2'000'000'000}) {
        SCOPED_TRACE(us);
        setValue(CONTROL_EXPOSURE, us, false); // some sensors have shorter limits
        const auto ms = static_cast<uint32_t>(getValue(CONTROL_EXPOSURE, nullptr) / 1000);
        const uint32_t slept = ms / 200 * 200;    // of long ones, by some sensors
        for (int again = 0; again < 2; ++again) { // in the clean-up of the last one
            EXPECT_TRUE(ExposedFrame().empty());
            const uint32_t start = GetTickCount();
            startExposure();
            EXPECT_EQ(getExpStatus(), VSC_EXP_WORKING);
            SleepFor(std::chrono::milliseconds(slept));
            ASSERT_EQ(WaitWhileWorking(), VSC_EXP_SUCCESS);
            EXPECT_NEAR(ElapsedMs(start), slept + 1'500, 1'501);
            EXPECT_FALSE(getImageAfterExp(nullptr, INT32_MAX));
            EXPECT_EQ(getExpStatus(), VSC_EXP_SUCCESS);
            EXPECT_TRUE(Number(ExposedFrame()));
            EXPECT_EQ(getExpStatus(), VSC_EXP_IDLE);
        }
        for (uint64_t i = 0; i < 100 / Stride(12); ++i) {
            startExposure();
            SleepFor(std::chrono::milliseconds(random() % (slept + 1)));
            EXPECT_LE(Took(stopExposure), 300U);
            EXPECT_EQ(getExpStatus(), VSC_EXP_IDLE);
        }
    }
}

/// What a host sees of a session with a long video and a cooler.
struct Seen {
    std::vector<int> values;
    std::vector<uint32_t> tookMs;
};

/// @param pause  between looks in its video
Seen SessionFrom(vscsim::Time start, std::chrono::seconds pause, int exposureUs)
{
    const VirtualTime time(start);
    auto &bus = vscsim::Bus::Instance();
    bus.Reset();
    (void)bus.Plug("VSC470MM-Cool");
    Seen seen;
    HostSession host{.waitMs = -1};
    for (const SessionStep &step : kSession) {
        if (step.name == std::string_view("stop")) {
            setValue(CONTROL_EXPOSURE, exposureUs, false);
            for (int i = 0; i < 20; ++i) {
                SleepFor(pause);
                seen.values.push_back(getValue(CONTROL_COOLER_POWER, nullptr));
                seen.values.push_back(host.Video());
            }
        }
        const uint32_t begun = GetTickCount();
        seen.values.push_back(step.run(host));
        seen.tookMs.push_back(ElapsedMs(begun));
    }
    seen.values.push_back(host.broken);
    bus.Reset();
    return seen;
}

void ExpectTheSame(vscsim::Time start, std::chrono::seconds pause, int exposureUs,
                   const Seen &expected)
{
    const Seen seen = SessionFrom(start, pause, exposureUs);
    EXPECT_EQ(seen.values, expected.values);
    for (size_t i = 0; i < seen.tookMs.size(); ++i)
        EXPECT_NEAR(seen.tookMs[i], expected.tookMs[i], 100) << kSession[i].name;
}

TEST(TickTest, PassesItsEndUnnoticedInAnyWaitAndStatistic)
{
    const auto start = vscsim::VirtualClock::kStart;
    const Seen expected = SessionFrom(start, 2s, 200'000);
    constexpr vscsim::Time kEnds[] = {1ms * (int64_t{1} << 31), 1ms * (int64_t{1} << 32)};
    for (const auto end : kEnds) {
        for (auto before = 1ms; before < 42s; before += 97ms * Stride(60)) {
            SCOPED_TRACE(before.count());
            ExpectTheSame(end - before, 2s, 200'000, expected);
        }
    }
    // Sixty days by night, with three ends of the tick, signed and unsigned.
    const std::chrono::seconds pause = 3 * 24h / Stride(200);
    ExpectTheSame(kEnds[0] - pause, pause, 2'000'000'000, SessionFrom(start, pause, 2'000'000'000));
}

INSTANTIATE_TEST_SUITE_P(Families, LongRunTest, testing::ValuesIn(kFamilies));

} // namespace
} // namespace vsccam
