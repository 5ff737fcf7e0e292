#include "core/thermistor.h"
#include "library/wire.h"
#include "models/sony/large_format.h"
#include "models/thermometer.h"
#include "support/simulated_bus.h"

#include <cmath>
#include <limits>

namespace vsccam {
namespace {

TEST(Thermistor, FallsWithTheReadingAndKnowsWhereItsTableEnds)
{
    float warmer = std::numeric_limits<float>::infinity();
    for (int ad = 0; ad <= 255; ++ad) {
        SCOPED_TRACE(ad);
        const auto celsius = ThermistorTemperature(static_cast<uint8_t>(ad), 10);
        const double kiloOhm = 10.0 * ad / (256 - ad);
        ASSERT_EQ(celsius.has_value(), kiloOhm >= 0.4654 && kiloOhm <= 97.6037);
        if (!celsius)
            continue;
        EXPECT_LT(*celsius, warmer);
        warmer = *celsius;
        if (ad == 128) // 10 kOhm, where the curve below hangs
            continue;
        const double beta = std::log(kiloOhm / 10.0) / (1 / (*celsius + 273.15) - 1 / 298.15);
        EXPECT_NEAR(beta, 3920, 110); // of such thermistors; a wrong entry leaves the smooth curve
    }
}

TEST(Thermometer, TellsTwelveBitsTwosComplementInSixteenths)
{
    const struct {
        uint8_t low, high;
        float celsius;
    } cases[] = {{0xF0, 0x7F, 127.9375F}, {0xF0, 0xFF, -0.0625F}, {0x00, 0x80, -128.0F}};
    for (const auto &c : cases)
        EXPECT_FLOAT_EQ(ThermometerTemperature(c.low, c.high), c.celsius);
}

using BoardThermometer = SimulatedBus;

// 20 degrees in steps of the 8-bit converter, where the sensor would tell 20.0.
constexpr float kRoomC = 20.0804F;

TEST_F(BoardThermometer, IsReadInPlaceOfTheSensorsAndKeepsTheLastGoodReading)
{
    const auto plan = vscsim::ParseFaultPlan("refuse-request:c7@1,short-answer:c7@2=0", nullptr);
    OpenedCamera camera(std::in_place_type<CCameraS083MC>, "VSC083MC-Cool",
                        {.faults = plan.value()});
    // An empty answer reads as a shorted thermistor.
    for (const char *answer : {"good", "refused", "empty", "good again"})
        EXPECT_NEAR(camera->GetSensorTemp(), kRoomC, 1e-3) << answer;
    EXPECT_EQ(camera.Traffic(), Wire("temp?; temp?; temp?; temp?"));
}

} // namespace
} // namespace vsccam
