#include "standin/virtual_clock.h"

#include <gtest/gtest.h>

namespace vscsim {
namespace {

using namespace std::chrono_literals;

void SleepUntil(VirtualClock &clock, Time deadline)
{
    VirtualClock::Channel nobody(clock);
    nobody.WaitForWake(0, deadline, "sleep");
}

TEST(VirtualClockDeathTest, SaysWhoWaitsWhenNothingCanHappenAnyMore)
{
#ifdef __arm__ // under qemu-user a program cannot start itself again
    testing::FLAGS_gtest_death_test_style = "fast";
#else
    testing::FLAGS_gtest_death_test_style = "threadsafe";
#endif
    EXPECT_DEATH(
        {
            VirtualClock clock(0s);
            clock.ThreadStarts();
            ClockedThread other(clock, [&] { SleepUntil(clock, kNever); });
            other.Join();
        },
        "every thread waits and none has a deadline; 2 of 2 threads wait");
    EXPECT_DEATH(
        {
            VirtualClock clock(0s, 1h);
            clock.ThreadStarts();
            ClockedThread cooler(clock, [&] {
                for (;;)
                    SleepUntil(clock, clock.Now() + 1s);
            });
            SleepUntil(clock, kNever);
        },
        "time runs away");
}

} // namespace
} // namespace vscsim
