#pragma once

#include <algorithm>
#include <iterator>

/// How strongly the cooler is driven. The camera takes a drive code, a lower one meaning more
/// current; hosts speak of power, in per cent of the largest current.
namespace vsccam {

struct DrivePoint {
    double code;
    double currentA;
};

// Calibration of the cooler's driver; straight lines in between.
inline constexpr DrivePoint kDriveTable[] = {
    {255.0, 0.0},  {220.0, 0.1},  {200.0, 0.19}, {180.0, 0.31}, {160.0, 0.45}, {140.0, 0.62},
    {120.0, 0.81}, {100.0, 1.03}, {80.0, 1.29},  {60.0, 1.55},  {47.3, 1.73},  {40.0, 1.83},
};
inline constexpr int kNoCurrentCode = static_cast<int>(std::begin(kDriveTable)->code);
inline constexpr int kMaxCurrentCode = static_cast<int>(std::rbegin(kDriveTable)->code);
inline constexpr float kMaxCurrentA = static_cast<float>(std::rbegin(kDriveTable)->currentA);

/// Looks `x` up in one column of the table and gives the value of the other. A value on a
/// breakpoint belongs to the line before it, one outside the table to the nearest point.
template <double DrivePoint::*From, double DrivePoint::*To> constexpr double LookUpDrive(float x)
{
    for (const DrivePoint *a = std::begin(kDriveTable), *b = a + 1; b != std::end(kDriveTable);
         a = b++) {
        // In single precision, as x is: otherwise the rounding of x would decide on which side of a
        // breakpoint it lies.
        const auto [low, high] =
            std::minmax({static_cast<float>(a->*From), static_cast<float>(b->*From)});
        if (low <= x && x <= high)
            return a->*To + (b->*To - a->*To) * (x - a->*From) / (b->*From - a->*From);
    }
    const auto distance = [x](const DrivePoint &point) {
        return std::max(x - point.*From, point.*From - x);
    };
    return std::ranges::min_element(kDriveTable, {}, distance)->*To;
}

/// Drive code of a current; truncated, not rounded.
constexpr int CalculDA(float currentA)
{
    const double code = LookUpDrive<&DrivePoint::currentA, &DrivePoint::code>(currentA);
    return std::clamp(static_cast<int>(code), kMaxCurrentCode, kNoCurrentCode);
}

/// Power of a drive code, in whole per cent; truncated.
constexpr int CalculIPerc(int code)
{
    const auto currentA = static_cast<float>(
        LookUpDrive<&DrivePoint::code, &DrivePoint::currentA>(static_cast<float>(code)));
    return static_cast<int>(std::clamp(currentA, 0.0F, kMaxCurrentA) * 100.0F / kMaxCurrentA);
}

/// A power within 0 to 100 per cent, and the drive code that gives it.
struct DriveSetting {
    float percent;
    int code;
};

constexpr DriveSetting DriveForPower(float percent)
{
    const float inRange = percent > 0.0F ? std::min(percent, 100.0F) : 0.0F; // no number is off
    return {inRange, CalculDA(inRange * kMaxCurrentA / 100.0F)};
}

} // namespace vsccam
