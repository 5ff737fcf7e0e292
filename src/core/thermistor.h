#pragma once

#include <cstdint>
#include <optional>

namespace vsccam {

/// Temperature, in degrees Celsius, that an 8-bit reading of the board's converter stands for: a
/// thermistor under a resistor of `seriesKOhm`. Nothing outside the thermistor's table, from -20 to
/// 113 degrees: then it is open, shorted or too cold to tell.
std::optional<float> ThermistorTemperature(uint8_t ad, int seriesKOhm);

} // namespace vsccam
