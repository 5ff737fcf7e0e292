#pragma once

#include "models/register_list.h"
#include "models/sony/sony_registers.h"

/// Start-up list of the sensors whose own set-up is not known: standby, no hold, nothing else. What
/// their real lists write was never seen, nor was this one tried on hardware.
namespace vsccam {

inline constexpr RegisterWrite kNeutralPowerUp[] = {
    {sony::kStandby, 1},
    Pause(std::chrono::milliseconds(20)),
    {sony::kHold, 0},
};

} // namespace vsccam
