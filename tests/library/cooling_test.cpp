#include "cooling/temperature_control.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace vsccam {
namespace {

constexpr ControlGains kGains{.p = 0.2F, .i = 0.0F, .d = 0.6F};

TEST(DriveTable, TurnsCurrentIntoTruncatedCode)
{
    const struct {
        float currentA;
        int code;
    } cases[] = {
        {0.0F, 255},  {0.05F, 237}, {0.15F, 208}, {1.6F, 56},   // between points
        {0.1F, 219},  {0.31F, 179}, {0.62F, 139}, {0.81F, 119}, // on one, rounded up to float
        {1.03F, 100}, {1.55F, 60},  {1.73F, 47},                // on one, rounded down
        {1.83F, 40},  {1.84F, 40},  {9.0F, 40},   {-0.1F, 255}, // at the ends and beyond
    };
    for (const auto &c : cases)
        EXPECT_EQ(CalculDA(c.currentA), c.code) << c.currentA << " A";
}

TEST(DriveTable, TurnsCodeIntoTruncatedPower)
{
    const struct {
        int code;
        int percent;
    } cases[] = {{256, 0}, {255, 0}, {237, 2}, {220, 5}, {200, 10}, {140, 33}, {100, 56},
                 {60, 84}, {48, 93}, {47, 94}, {41, 99}, {40, 100}, {39, 100}, {-1, 100}};
    for (const auto &c : cases)
        EXPECT_EQ(CalculIPerc(c.code), c.percent) << "code " << c.code;
}

TEST(DriveTable, KeepsPowerInRange)
{
    const struct {
        float asked;
        DriveSetting set;
    } cases[] = {{-5.0F, {0.0F, 255}},   {0.0F, {0.0F, 255}},    {50.0F, {50.0F, 110}},
                 {100.0F, {100.0F, 40}}, {150.0F, {100.0F, 40}}, {NAN, {0.0F, 255}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.asked);
        EXPECT_EQ(DriveForPower(c.asked).percent, c.set.percent);
        EXPECT_EQ(DriveForPower(c.asked).code, c.set.code);
    }
}

TEST(DriveTable, MorePowerNeverMeansAHigherCodeAndTheCodeLeadsBackToThePower)
{
    int code = kNoCurrentCode;
    for (int tenths = 0; tenths <= 1000; ++tenths) {
        const float percent = static_cast<float>(tenths) / 10.0F;
        const int next = DriveForPower(percent).code;
        EXPECT_LE(next, code) << percent;
        code = next;
        // A code is 0.75 per cent at most, and both ways truncate.
        EXPECT_NEAR(static_cast<float>(CalculIPerc(code)), percent, 1.0F);
    }
}

TEST(TemperatureControl, CutsTheTargetToWholeDegreesThatACoolerCanBeAskedFor)
{
    const struct {
        float asked;
        int target;
    } cases[] = {{-55.0F, -40}, {-40.0F, -40}, {-12.7F, -12}, {-0.9F, 0}, {12.7F, 12}, {31.9F, 30}};
    for (const auto &c : cases)
        EXPECT_EQ(TargetDegrees(c.asked), c.target) << c.asked;
}

TEST(TemperatureControl, HasNoSlopeInTheFirstStepAfterARestart)
{
    TemperatureControl control;
    control.Restart(kGains);
    const Correction first = control.Step(-10.0F, 20.0F);
    EXPECT_FLOAT_EQ(first.Output(), 0.2F * -30.0F);

    const Correction second = control.Step(-10.0F, 18.0F);
    EXPECT_FLOAT_EQ(second.p, 0.2F * -28.0F);
    EXPECT_FLOAT_EQ(second.d, 0.6F * 2.0F);
    EXPECT_FLOAT_EQ(second.Output(), -4.4F);

    control.Restart(kGains); // the target changes
    EXPECT_FLOAT_EQ(control.Step(0.0F, 18.0F).Output(), 0.2F * -18.0F);
}

TEST(TemperatureControl, SumsErrorsWithoutLimitUntilARestart)
{
    TemperatureControl control;
    const ControlGains integralOnly{.p = 0.0F, .i = 1.0F, .d = 0.0F};
    control.Restart(integralOnly);
    for (int i = 1; i <= 5; ++i)
        EXPECT_FLOAT_EQ(control.Step(0.0F, 10.0F).Output(), -10.0F * static_cast<float>(i));
    control.Restart(integralOnly);
    EXPECT_FLOAT_EQ(control.Step(0.0F, 10.0F).Output(), -10.0F);
}

TEST(TemperatureControl, TakesChangesOfTwoDegreesASecondForGlitches)
{
    struct Reading {
        float celsius;
        uint32_t tickMs;
        char verdict; // n: nothing to compare with, g: glitch, k: kept
    };
    const struct {
        const char *name;
        std::vector<Reading> readings;
    } cases[] = {
        {"a jump", {{20.0F, 1000, 'n'}, {11.0F, 4600, 'g'}, {19.0F, 8200, 'k'}}},
        {"the limit itself", {{20.0F, 1000, 'n'}, {22.0F, 2000, 'g'}, {21.9F, 2000, 'k'}}},
        // Compared with the last good reading: a lasting jump is believed in the end.
        {"a step", {{20.0F, 1000, 'n'}, {8.0F, 4600, 'g'}, {8.0F, 8200, 'k'}, {8.1F, 11'800, 'k'}}},
        {"upwards", {{-5.0F, 1000, 'n'}, {5.0F, 4600, 'g'}, {-5.0F, 8200, 'k'}}},
        {"a wrapping tick", {{20.0F, 0xFFFF'FF00, 'n'}, {10.0F, 3344, 'g'}, {19.0F, 3344, 'k'}}},
        {"no reading yet", {{0.0F, 1000, 'n'}, {20.0F, 4600, 'n'}, {19.0F, 8200, 'k'}}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        TemperatureControl control;
        control.Restart(kGains);
        for (const Reading &r : c.readings) {
            const auto change = control.TakeReading(r.celsius, r.tickMs);
            EXPECT_EQ(!change ? 'n' : change->IsGlitch() ? 'g' : 'k', r.verdict) << r.tickMs;
        }
    }
}

/// A cooler without a camera, which remembers what it was asked for.
struct PlainCooler {
    DriveSetting drive;
    std::vector<float> asked;

    explicit PlainCooler(float percent) : drive(DriveForPower(percent)) {}

    void Apply(const Correction &correction)
    {
        ApplyCorrection(correction, drive, [this](float percent) {
            asked.push_back(percent);
            drive = DriveForPower(percent);
            return drive;
        });
    }
};

TEST(TemperatureControl, StepsThePowerUntilTheCodeMoves)
{
    const struct {
        const char *name;
        float percent;
        float errorC;
        float output;
        size_t steps;
        int codeChange; // -1 more current, 1 less
    } cases[] = {
        {"a large output moves the code at once", 50.0F, -30.0F, -6.0F, 1, -1},
        {"a small one is repeated", 50.0F, -0.41F, -0.1F, 3, -1},
        {"to warm too", 50.0F, 0.41F, 0.1F, 4, 1},
        {"near the target it is not", 50.0F, -0.4F, -0.08F, 1, 0},
        {"nothing to do", 50.0F, -3.0F, 0.0F, 1, 0},
        {"what rounding left", 50.0F, -3.0F, 3e-8F, 1, 0},
        {"no more power to give", 100.0F, -30.0F, -6.0F, 0, 0},
        {"none to take", 0.0F, 30.0F, 6.0F, 0, 0},
        {"back from full power", 100.0F, 30.0F, 6.0F, 1, 1},
        {"up from none", 0.0F, -30.0F, -6.0F, 1, -1},
        {"full power before the code moves", 99.95F, -30.0F, -6.0F, 1, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        PlainCooler cooler(c.percent);
        const int before = cooler.drive.code;
        cooler.Apply({.errorC = c.errorC, .p = c.output, .i = 0, .d = 0});
        EXPECT_EQ(cooler.asked.size(), c.steps);
        const int change = cooler.drive.code - before;
        EXPECT_EQ((change > 0) - (change < 0), c.codeChange) << before << " + " << change;
        EXPECT_GE(cooler.drive.percent, 0.0F);
        EXPECT_LE(cooler.drive.percent, 100.0F);
    }
}

/// Heat flows in from outside and is pumped out in proportion to the power; the sensor tells
/// sixteenths of a degree.
class Sensor {
  public:
    explicit Sensor(double spanC) : m_spanC(spanC) {}

    void Run(double seconds, float percent)
    {
        const double goal = kAmbientC - m_spanC * static_cast<double>(percent) / 100.0;
        m_celsius = goal + (m_celsius - goal) * std::exp(-seconds / kTimeConstantS);
    }
    float Reading() const { return static_cast<float>(std::floor(m_celsius * 16.0) / 16.0); }

  private:
    static constexpr double kAmbientC = 20.0;
    static constexpr double kTimeConstantS = 60.0;
    double m_spanC;
    double m_celsius = kAmbientC;
};

TEST(TemperatureControl, SettlesWithinADegreeOrAtTheEndOfItsPower)
{
    constexpr uint32_t kStepMs = 3580;
    constexpr int kSettledAfter = 500; // steps, half an hour
    const struct {
        int targetC;
        double spanC; // at full power
        double settledC;
    } cases[] = {{0, 38.0, 0.0},     {-10, 38.0, -10.0}, {-17, 38.0, -17.0},
                 {-10, 60.0, -10.0}, {-40, 38.0, -18.0}, {30, 38.0, 20.0}};
    for (const auto &c : cases) {
        SCOPED_TRACE("target " + std::to_string(c.targetC) + ", span " + std::to_string(c.spanC));
        TemperatureControl control;
        control.Restart(kGains);
        PlainCooler cooler(0.0F);
        Sensor sensor(c.spanC);
        uint32_t tickMs = 1;
        for (int step = 0; step < 1000; ++step, tickMs += kStepMs) {
            const float celsius = sensor.Reading();
            const auto change = control.TakeReading(celsius, tickMs);
            ASSERT_FALSE(change && change->IsGlitch());
            cooler.Apply(control.Step(static_cast<float>(c.targetC), celsius));
            sensor.Run(kStepMs / 1000.0, cooler.drive.percent);
            if (step >= kSettledAfter) {
                ASSERT_NEAR(celsius, c.settledC, 1.0) << "step " << step;
            }
        }
    }
}

} // namespace
} // namespace vsccam
