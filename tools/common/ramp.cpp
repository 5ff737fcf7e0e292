#include "ramp.h"

#include "controls.h"

#include <vsccam.h>

#include <algorithm>
#include <cmath>

namespace vsctool {

void Regulate(int targetC)
{
    Set("target-temp", targetC);
    Set("cooler", 1);
}

void MoveTarget(double celsius)
{
    // A ramp may begin beyond what can be asked for, on a hot day.
    const int whole = std::clamp(static_cast<int>(std::lround(celsius)),
                                 getMin(CONTROL_TARGET_TEMP), getMax(CONTROL_TARGET_TEMP));
    if (getValue(CONTROL_TARGET_TEMP, nullptr) != whole || !getValue(CONTROL_COOLER_ON, nullptr))
        Regulate(whole);
}

double OnRamp(double fromC, double toC, double cPerMin, std::chrono::steady_clock::duration elapsed)
{
    const double way = cPerMin * std::chrono::duration<double>(elapsed).count() / 60;
    return toC < fromC ? std::max(toC, fromC - way) : std::min(toC, fromC + way);
}

} // namespace vsctool
