#include "library/wire.h"
#include "models/sony/s440.h"
#include "models/sony/s470.h"
#include "support/simulated_bus.h"

namespace vsccam {
namespace {

class ControlsTest : public SimulatedBus {};

std::vector<int> ListOf(CCameraBase &camera)
{
    std::vector<int> types;
    _VSC_CONTROL_CAPS caps{};
    for (int i = 0; camera.GetControlCaps(i, &caps); ++i)
        types.push_back(caps.type);
    return types;
}

TEST_F(ControlsTest, ListsWhatAModelOffersInItsOrder)
{
    CCameraS470MM mono(0UL);
    CCameraS440MC_C cooledColour(0UL);
    EXPECT_EQ(ListOf(mono), (std::vector{0, 1, 2, 5, 6, 9, 10, 11, 12, 13, 14, 8}));
    EXPECT_EQ(ListOf(cooledColour),
              (std::vector{0, 1, 2, 3, 4, 5, 6, 9, 10, 11, 12, 14, 18, 8, 15, 16, 17, 19}));
    _VSC_CONTROL_CAPS caps{};
    EXPECT_TRUE(mono.GetControlCaps(7, &caps)); // AutoExpMaxExp
    EXPECT_EQ(std::tuple(caps.minimum, caps.maximum, caps.initial), std::tuple(1, 60, 30));
    EXPECT_FALSE(mono.GetControlCaps(-1, &caps));
    EXPECT_FALSE(mono.GetControlCaps(mono.controls.count, &caps));
}

TEST_F(ControlsTest, SetsWhatItCanAndKeepsItsGaps)
{
    OpenedCamera camera(std::in_place_type<CCameraS470MM_C>, "VSC470MM-Cool");
    const struct {
        VSC_CONTROL_TYPE type;
        int value, result;
        int read; // afterwards
        bool bAuto = false;
    } cases[] = {{kControlGain, 700, kControlSet, 600},
                 {kControlGamma, 120, kControlSet, 120, true}, // it has no automatic mode
                 {kControlGamma, 7, kControlSet, 100, true},   // after one out of range
                 {kControlFlip, 3, kControlSet, 3},
                 {kControlFlip, 4, kControlSet, 3},
                 {kControlFlip, 1, kControlSet, 1},
                 {kControlAutoMaxExposure, 7, kControlSet, 7},
                 {kControlAutoBrightness, 120, kControlSet, 120},
                 {kControlOverClock, 10, kControlRefused, 0},
                 {kControlTargetTemp, -10, kControlSet, 0}, // taken and forgotten
                 {kControlCoolerOn, 1, kControlNotSettable, 0},
                 {kControlFanOn, 1, kControlNotSettable, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.type << " = " << c.value);
        EXPECT_EQ(camera->SetControlValue(c.type, c.value, c.bAuto), c.result);
        int32_t value = -1;
        int32_t automatic = -1;
        EXPECT_TRUE(camera->GetControlValue(c.type, &value, &automatic));
        EXPECT_EQ(value, c.read);
        EXPECT_EQ(automatic, 0);
    }
    int maxGain = 0, maxExposure = 0, target = 0;
    camera->GetAutoPara(&maxGain, &maxExposure, &target);
    EXPECT_EQ(std::tuple(maxGain, maxExposure, target), std::tuple(50, 7, 120));
    EXPECT_EQ(camera->SetControlValue(static_cast<VSC_CONTROL_TYPE>(20), 0, false),
              kControlNotSettable);

    OpenedCamera uncooled(std::in_place_type<CCameraS470MM>, "VSC470MM", {.ambientC = -5.19});
    int32_t value = 77;
    for (const int type : {-1, int{kControlCoolerPower}, int{kControlTargetTemp},
                           int{kControlCoolerOn}, int{kControlFanOn}, 20}) {
        int32_t automatic = 1;
        EXPECT_FALSE(
            uncooled->GetControlValue(static_cast<VSC_CONTROL_TYPE>(type), &value, &automatic));
        EXPECT_EQ(value, 77) << type;
        EXPECT_EQ(automatic, 0) << type;
    }
    int32_t automatic = 1;
    EXPECT_TRUE(uncooled->GetControlValue(kControlTemperature, &value, &automatic));
    EXPECT_EQ(value, -51); // tenths, cut
}

TEST_F(ControlsTest, SendsTheSameExposureOnce)
{
    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    EXPECT_EQ(camera->SetControlValue(kControlExposure, 5'000, false), kControlSet);
    EXPECT_FALSE(camera.Traffic().empty());
    EXPECT_EQ(camera->SetControlValue(kControlExposure, 5'000, false), kControlSet);
    EXPECT_TRUE(camera.Traffic().empty());
    EXPECT_EQ(camera->SetControlValue(kControlExposure, 5'000, true), kControlSet);
    EXPECT_FALSE(camera.Traffic().empty());
}

} // namespace
} // namespace vsccam
