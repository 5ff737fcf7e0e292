#include "base/sync.h"
#include "library/trust/session.h"

// A host that closes the camera, opens another one or ends, while its threads use the camera.
namespace vsccam {
namespace {

using namespace std::chrono_literals;

constexpr auto kSessionLasts = 1'600ms; // about
constexpr auto kLimit = 2s;

Clock::time_point g_ends{};  // the process
bool g_mayStillOpen = false; // another thread

/// Runs behind what the library does at the end of the process.
const int g_atExit = std::atexit([] {
    if (g_ends == Clock::time_point())
        return;
    const bool inTime = Clock::now() - g_ends <= kLimit;
    const bool closed = g_mayStillOpen || vscsim::Bus::Instance().LiveObjects().handles == 0;
    std::_Exit(inTime && closed ? 0 : 1);
});

using LeavingTest = EachFamily;

TEST_P(LeavingTest, TakesNoLongAtAnyMomentOfASession)
{
    const struct {
        const char *what;
        void (*leave)();
    } ways[] = {{"close", closeCamera},
                {"another camera", [] { (void)openCamera(1); }},
                {"stop", stopCapture},
                {"the end of the process", [] {}}};
    for (int i = 0; i < 2; ++i)
        (void)Bus().Plug(GetParam());
    for (const auto &[what, leave] : ways) {
        for (auto after = 0ms; after < kSessionLasts; after += 1ms * Stride(97)) {
            const auto run = [after, leave = leave] {
                Thread other;
                (void)other.Start([] {
                    HostSession host;
                    for (const SessionStep &step : kSession)
                        (void)step.run(host);
                });
                SleepFor(after);
                const bool inTime = Took(leave) <= kLimit / 1ms;
                g_mayStillOpen = after < 10ms;
                g_ends = Clock::now();
                std::exit(inTime ? g_atExit : 2); // NOLINT(concurrency-mt-unsafe): on purpose
            };
            EXPECT_EXIT(run(), testing::ExitedWithCode(0), "") << what << " " << after.count();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Families, LeavingTest, testing::ValuesIn(kFamilies));

} // namespace
} // namespace vsccam
