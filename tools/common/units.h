#pragma once

#include <chrono>
#include <ctime>
#include <string>

namespace vsctool {

using Microseconds = std::chrono::microseconds;
using UtcTime = std::chrono::sys_time<Microseconds>;

/// Rectangle on the sensor, in binned pixels.
struct Region {
    int width = 0;
    int height = 0;
    int x = 0;
    int y = 0;
    bool operator==(const Region &) const = default;
};

/// "250us", "20ms", "1.5s", "2min", "1h"; a bare number is seconds. Throws Failure.
Microseconds ParseTime(const std::string &text);

/// "640x480+100+50". Throws Failure.
Region ParseRegion(const std::string &text);

/// The shortest text that ParseTime reads back as the same time.
std::string FormatTime(Microseconds time);

/// Broken-down UTC, without the fraction of the second.
std::tm WholeSeconds(UtcTime time);

/// "2026-11-21T04:46:00.123456"
std::string FormatUtc(UtcTime time);

double Seconds(Microseconds time);

/// A figure of the camera without the digits that only its binary form has: 3.584f is 3.584.
double Decimal(float value);

} // namespace vsctool
