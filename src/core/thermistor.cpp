#include "core/thermistor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <iterator>

namespace vsccam {

namespace {

constexpr int kLowestC = -20;
constexpr double kAdScale = 256.0;

// Resistance in kOhm at each degree from kLowestC up.
constexpr std::array kKiloOhm = {
    // clang-format off
    97.6037, 92.0947, 86.9305, 82.0877, 77.5442, 73.2798, 69.2759, 65.5149, 61.9809, 58.6587, // -20
    55.5345, 52.5954, 49.8294, 47.2253, 44.7727, 42.462,  40.2841, 38.2307, 36.294,  34.4668, // -10
    32.7421, 31.1138, 29.5759, 28.1229, 26.7496, 25.4513, 24.2234, 23.0618, 21.9625, 20.9218, // 0
    19.9364, 19.0029, 18.1184, 17.28,   16.4852, 15.7313, 15.0161, 14.3375, 13.6932, 13.0815, // 10
    12.5005, 11.9485, 11.4239, 10.9252, 10.451,  10.0,    9.5709,  9.1626,  8.7738,  8.4037,  // 20
    8.0512,  7.7154,  7.3954,  7.0904,  6.7996,  6.5223,  6.2577,  6.0053,  5.7645,  5.5345,  // 30
    5.315,   5.1053,  4.905,   4.7136,  4.5307,  4.3558,  4.1887,  4.0287,  3.8758,  3.7294,  // 40
    3.5893,  3.4553,  3.3269,  3.2039,  3.0862,  2.9733,  2.8652,  2.7616,  2.6622,  2.5669,  // 50
    2.4755,  2.3879,  2.3038,  2.2231,  2.1456,  2.0712,  1.9998,  1.9312,  1.8653,  1.8019,  // 60
    1.7411,  1.6826,  1.6264,  1.5723,  1.5203,  1.4703,  1.4222,  1.3759,  1.3313,  1.2884,  // 70
    1.2471,  1.2073,  1.169,   1.1321,  1.0965,  1.0623,  1.0293,  0.9974,  0.9667,  0.9372,  // 80
    0.9086,  0.8811,  0.8545,  0.8289,  0.8042,  0.7803,  0.7572,  0.735,   0.7135,  0.6927,  // 90
    0.6727,  0.6533,  0.6346,  0.6165,  0.599,   0.5821,  0.5658,  0.55,    0.5347,  0.5199,  // 100
    0.5056,  0.4918,  0.4784,  0.4654,                                                        // 110
    // clang-format on
};
static_assert(kKiloOhm.size() == 134);
static_assert(std::ranges::is_sorted(kKiloOhm, std::greater{}));

} // namespace

std::optional<float> ThermistorTemperature(uint8_t ad, int seriesKOhm)
{
    // Rounded to float: this decides on which side of a table entry a reading falls.
    const auto kiloOhm = static_cast<float>(ad * seriesKOhm / (kAdScale - ad));
    const auto between = [kiloOhm](double colder, double warmer) {
        return std::abs(kiloOhm - (colder + warmer) / 2) <= std::abs((warmer - colder) * 0.5);
    };
    const auto colder = std::ranges::adjacent_find(kKiloOhm, between);
    if (colder == kKiloOhm.end())
        return std::nullopt;
    const double fraction = (kiloOhm - *colder) / (*std::next(colder) - *colder);
    const auto degree = kLowestC + std::distance(kKiloOhm.begin(), colder);
    return static_cast<float>(static_cast<double>(degree) + fraction);
}

} // namespace vsccam
