#include "cooling/temperature_control.h"
#include "library/host_fixture.h"

#include <chrono>

namespace vsccam {
namespace {

using namespace std::chrono_literals;

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

TEST(TemperatureControl, HasNoSlopeInTheFirstStepAndStepsThePowerUntilTheCodeMoves)
{
    TemperatureControl control;
    control.Restart(kGains);
    EXPECT_FLOAT_EQ(control.Step(-10.0F, 20.0F).Output(), 0.2F * -30.0F);
    EXPECT_FLOAT_EQ(control.Step(-10.0F, 18.0F).Output(), 0.2F * -28.0F + 0.6F * 2.0F);
    DriveSetting drive = DriveForPower(50.0F);
    const int code = drive.code;
    ApplyCorrection({.errorC = -0.41F, .p = -0.1F, .i = 0, .d = 0}, drive,
                    [&drive](float percent) { return drive = DriveForPower(percent); });
    EXPECT_EQ(drive.code, code - 1);
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
        {"a step", {{20.0F, 1000, 'n'}, {8.0F, 4600, 'g'}, {8.0F, 8200, 'k'}}},
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

/// A host with a cooled camera, in air and with faults of its choice.
class CoolingTest : public HostTest {
  protected:
    int Regulate(int targetC, vscsim::CameraOptions options = {},
                 std::string_view model = "VSC470MC-Cool")
    {
        const int device = OpenOne(model, std::move(options));
        setValue(CONTROL_TARGET_TEMP, targetC, false);
        setValue(CONTROL_COOLER_ON, 1, false);
        return device;
    }

    /// Of the sensor itself, whatever its thermometer tells.
    static double SensorC(int device)
    {
        const vscsim::Time now(Clock::now().time_since_epoch());
        return Bus().With(device, [now](auto &camera) { return camera.Celsius(now); });
    }

    static int Power() { return getValue(CONTROL_COOLER_POWER, nullptr); }

    /// The last drive code or state of the fan that reached the camera.
    static std::string LastOf(int device, std::string_view verb)
    {
        std::string last;
        for (const std::string &line : Bus().TakeTraffic(device)) {
            if (line.starts_with(verb))
                last = line;
        }
        return last;
    }
};

TEST_F(CoolingTest, HoldsItsTargetForAnHourWhateverDisturbsIt)
{
    // A sensor gets 38 degrees below the air at most.
    const struct {
        const char *name;
        double ambientC;
        int targetC;
        double settledC;
        int powerAtLeast, powerAtMost; // at the end
        const char *faults = nullptr;
        const char *model = "VSC470MC-Cool";
        double withinC = 0.5;
    } cases[] = {
        // Now and then its thermometer tells exactly 0, which is what a dead one tells.
        {"a hot one", 34, 0, 0, 60, 99, nullptr, "VSC470MC-Cool", 0.2},
        {"a target close to the air", 20, 18, 18, 1, 20},
        {"one above it", 5, 30, 5, 0, 0},
        {"one out of reach", 30, -40, -8, 100, 100},
        {"a noisy thermometer", 20, -10, -10, 60, 95, "corrupt-answer:b3%0.3x*=0"},
        {"one that jumps", 20, -10, -10, 60, 95, "corrupt-answer:b3%0.03x*=1"},
        {"drive codes that get lost", 20, -10, -10, 60, 95, "refuse-request:b2%0.2x*"},
        // Which tells 0.6 degrees apart at best.
        {"a thermistor", 20, -10, -10, 60, 95, nullptr, "VSC083MC-Cool", 0.8},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        vscsim::CameraOptions options{.ambientC = c.ambientC};
        if (c.faults)
            options.faults = vscsim::ParseFaultPlan(c.faults, nullptr).value();
        const int device = Regulate(c.targetC, options, c.model);
        EXPECT_NEAR(SensorC(device), c.ambientC, 0.5);
        SleepFor(20min);
        for (int minute = 0; minute <= 60; ++minute) {
            ASSERT_NEAR(SensorC(device), c.settledC, c.withinC) << "minute " << minute;
            SleepFor(1min);
        }
        EXPECT_GE(Power(), c.powerAtLeast);
        EXPECT_LE(Power(), c.powerAtMost);
        Remove(device);
    }
}

TEST_F(CoolingTest, WithoutAThermometerHoldsItsPowerThenGivesWayAndGoesOnWhenItIsBack)
{
    constexpr int kTargetC = -10;
    const struct {
        const char *fault;
        const char *amount;
        const char *model = "VSC470MC-Cool";
        double withinC = 0.5;
    } deaths[] = {{"refuse-request:b3", ""},
                  {"time-out-request:b3", ""},
                  {"short-answer:b3", "=0"}, // the value of a sensor that gives none
                  {"short-answer:c7", "=0", "VSC083MC-Cool", 0.8}}; // a thermistor that is shorted
    for (const auto &death : deaths) {
        for (const int reading : {0, 20, 700}) { // at the start, on the way, at the target
            SCOPED_TRACE(testing::Message() << death.fault << " from reading " << reading);
            const std::string plan = std::string(death.fault) + "@" + std::to_string(reading) +
                                     "x100" + death.amount; // for 3 to 4 minutes
            const int device = Regulate(
                kTargetC, {.faults = vscsim::ParseFaultPlan(plan, nullptr).value()}, death.model);
            SleepFor(reading * 1790ms + 4s);
            const int held = Power();
            const std::string printed = Printed([&] {
                SleepFor(53s);
                EXPECT_EQ(Power(), held);
                for (int turn = 0, before = held; turn < 30; ++turn, before = Power()) {
                    SleepFor(4s); // a turn, or one and a part
                    ASSERT_LE(Power(), before);
                    ASSERT_GE(Power(), before - 11);
                }
            });
            EXPECT_EQ(Power(), 0);
            const size_t told = printed.find("no temperature for 60 s, cooler power falls\n");
            EXPECT_NE(told, std::string::npos);
            EXPECT_EQ(told, printed.rfind("no temperature"));
            EXPECT_EQ(LastOf(device, "cooler"), held > 0 ? "cooler 255" : "");
            EXPECT_EQ(getValue(CONTROL_COOLER_ON, nullptr), 1);
            EXPECT_EQ(getValue(CONTROL_TARGET_TEMP, nullptr), kTargetC);
            SleepFor(25min);
            EXPECT_NEAR(SensorC(device), kTargetC, death.withinC);
            Remove(device);
        }
    }
}

TEST_F(CoolingTest, NewTargetEndsWhatHeldTheOldOne)
{
    (void)Regulate(-10,
                   {.faults = vscsim::ParseFaultPlan("refuse-request:b3@700x400", {}).value()});
    SleepFor(30min); // its thermometer died after 21
    setValue(CONTROL_TARGET_TEMP, 20, false);
    for (int seconds = 0; seconds < 600; seconds += 2, SleepFor(2s))
        ASSERT_EQ(Power(), 0);
}

TEST_F(CoolingTest, RecoversAtOnceFromAnHourAtFullPower)
{
    const int device = Regulate(-10);
    SleepFor(20min);
    FailNext("libusb_control_transfer", 1, LIBUSB_ERROR_PIPE);
    setValue(CONTROL_FAN_ON, 0, false);
    EXPECT_EQ(getValue(CONTROL_FAN_ON, nullptr), 1); // it was not heard
    setValue(CONTROL_FAN_ON, 0, false);
    EXPECT_EQ(getValue(CONTROL_FAN_ON, nullptr), 0);
    EXPECT_EQ(LastOf(device, "fpga 19"), "fpga 19=80");
    SleepFor(60min);
    EXPECT_EQ(Power(), 100);
    EXPECT_GT(SensorC(device), 0); // without the fan it gets no lower

    setValue(CONTROL_FAN_ON, 1, false);
    for (int seconds = 0; seconds < 600; seconds += 5) {
        SleepFor(5s);
        ASSERT_GT(SensorC(device), -15.0) << "far lower than after a start, " << seconds << " s";
    }
    EXPECT_NEAR(SensorC(device), -10.0, 0.5);
}

TEST_F(CoolingTest, IsOffAtTheEndAlsoWhenARequestIsRefused)
{
    const struct {
        const char *name;
        void (*end)();
    } cases[] = {{"switched off", [] { setValue(CONTROL_COOLER_ON, 0, false); }},
                 {"closed", closeCamera}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const int device = Regulate(-10);
        SleepFor(1min);
        EXPECT_NE(LastOf(device, "cooler"), "cooler 255");
        FailNext("libusb_control_transfer", 1, LIBUSB_ERROR_PIPE);
        c.end();
        SleepFor(1min);
        EXPECT_EQ(LastOf(device, "cooler"), "cooler 255");
        EXPECT_EQ(Power(), 0);
        Remove(device);
    }
}

TEST_F(CoolingTest, GoesOnWhereItWasWhenALostCameraComesBack)
{
    for (const bool fan : {true, false}) {
        SCOPED_TRACE(fan);
        const int device = Regulate(-10);
        ASSERT_TRUE(setImageFormat(8, 2, 1, VSC_IMG_RAW8)); // minutes of cheap frames
        setValue(CONTROL_EXPOSURE, 200'000, false);
        setValue(CONTROL_FAN_ON, fan, false);
        startCapture();
        SleepFor(1min);
        Bus().Unplug(device);
        while (!NextFrame(-1).empty()) { // those from before
        }
        const int power = Power();
        EXPECT_GT(power, 0);
        (void)Bus().TakeTraffic(device);
        Bus().Replug(device);
        EXPECT_FALSE(NextFrame(10'000).empty()); // it was looked for
        const std::vector<std::string> traffic = Bus().TakeTraffic(device);
        const auto first = std::ranges::find_if(
            traffic, [](const std::string &line) { return line.starts_with("cooler"); });
        ASSERT_NE(first, traffic.end());
        EXPECT_NEAR(CalculIPerc(std::stoi(first->substr(7))), power, 1);
        EXPECT_EQ(std::ranges::count(traffic, fan ? "fpga 19=00" : "fpga 19=80"), 1);
        Remove(device);
    }
}

} // namespace
} // namespace vsccam
