#include "standin/virtual_clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

namespace vscsim {
namespace {

using namespace std::chrono_literals;

void SleepUntil(VirtualClock &clock, Time deadline)
{
    VirtualClock::Channel nobody(clock);
    nobody.WaitForWake(0, deadline, "sleep");
}

class VirtualClockTest : public testing::Test {
  protected:
    VirtualClockTest() { clock.ThreadStarts(); }
    ~VirtualClockTest() override { clock.ThreadEnds(); }

    VirtualClock clock{0s};
};

TEST_F(VirtualClockTest, WakesSleepersExactlyAndInTheOrderOfTheirDeadlines)
{
    std::mutex mutex;
    std::vector<Time> woken;
    const auto sleeper = [&](Time step, int times) {
        for (int i = 1; i <= times; ++i) {
            SleepUntil(clock, i * step);
            EXPECT_EQ(clock.Now(), i * step);
            const std::lock_guard lock(mutex);
            woken.push_back(clock.Now());
        }
    };
    {
        ClockedThread slow(clock, [&] { sleeper(1h, 30); });
        ClockedThread middle(clock, [&] { sleeper(700s, 100); });
        ClockedThread quick(clock, [&] { sleeper(33s, 1000); });
    }
    EXPECT_EQ(woken.size(), 1130U);
    EXPECT_TRUE(std::ranges::is_sorted(woken));
    EXPECT_EQ(clock.Now(), 30h);
}

// Two threads pass a token without any deadline: one lost wake-up would be found as a hang.
TEST_F(VirtualClockTest, LosesNoWakeUp)
{
    constexpr int kPasses = 5000;
    std::atomic<int> token{0};
    VirtualClock::Channel table(clock);
    const auto player = [&](int mine) {
        for (;;) {
            const uint64_t seen = table.WakeCount();
            const int now = token.load();
            if (now >= kPasses)
                return;
            if (now % 2 == mine) {
                token = now + 1;
                table.Wake();
            } else {
                table.WaitForWake(seen, kNever, "the token");
            }
        }
    };
    {
        ClockedThread even(clock, [&] { player(0); });
        ClockedThread odd(clock, [&] { player(1); });
    }
    EXPECT_EQ(token, kPasses);
    EXPECT_EQ(clock.Now(), 0s);
}

// Work between two waits takes no virtual time, however long the machine needs for it.
TEST_F(VirtualClockTest, StandsStillWhileAnyThreadRuns)
{
    std::atomic<bool> finished{false};
    ClockedThread busy(clock, [&] {
        for (int i = 0; i < 1000; ++i)
            std::this_thread::yield();
        EXPECT_EQ(clock.Now(), 0s);
        finished = true;
    });
    SleepUntil(clock, 1ms);
    EXPECT_TRUE(finished);
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
