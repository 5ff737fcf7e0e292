#pragma once

#include "cooling/drive_table.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>

/// Regulates the sensor's temperature by the power of its cooler: plain state and arithmetic. It is
/// given readings with their times, and tells corrections of the power.
namespace vsccam {

inline constexpr float kGlitchCPerS = 2.0F; // no sensor changes that fast
inline constexpr float kDeadBandC = 0.4F;
// An output below this is what rounding leaves when its terms cancel. The bound also limits how
// often a step is repeated until the drive code moves.
inline constexpr float kRoundingPercent = 1e-4F;

/// Whole degrees that a cooler can be asked for.
constexpr int TargetDegrees(float targetC)
{
    return static_cast<int>(std::clamp(targetC, -40.0F, 30.0F));
}

struct ControlGains {
    float p;
    float i;
    float d;
};

/// What one control step takes off the power, in per cent: negative when the sensor is too warm.
struct Correction {
    float errorC;
    float p;
    float i;
    float d;

    float Output() const { return p + i + d; }
};

/// A reading compared with the one before it.
struct ReadingChange {
    float previousC;
    uint32_t deltaMs;
    float cPerS;

    bool IsGlitch() const { return std::abs(cPerS) >= kGlitchCPerS; }
};

class TemperatureControl {
  public:
    /// Forgets the errors so far. Readings stay: what is a glitch does not depend on the target.
    void Restart(ControlGains gains)
    {
        m_gains = gains;
        m_previousErrorC.reset();
        m_integral = 0;
    }

    /// Keeps a reading to compare the next one with, unless it is a glitch.
    /// @return nothing when there is no reading before it
    std::optional<ReadingChange> TakeReading(float celsius, uint32_t tickMs)
    {
        const std::optional<ReadingChange> change = ChangeTo(celsius, tickMs);
        if (!change || !change->IsGlitch()) {
            m_previousC = celsius;
            m_previousTickMs = tickMs;
        }
        return change;
    }

    /// One control step. Neither integral nor output has a limit: with an integral gain of 0 this
    /// is a PD controller, whose steps add up in the power.
    Correction Step(float targetC, float celsius)
    {
        const float errorC = targetC - celsius;
        m_integral += errorC;
        const float slope = m_previousErrorC ? errorC - *m_previousErrorC : 0.0F;
        m_previousErrorC = errorC;
        return {errorC, m_gains.p * errorC, m_gains.i * m_integral, m_gains.d * slope};
    }

  private:
    std::optional<ReadingChange> ChangeTo(float celsius, uint32_t tickMs) const
    {
        // Quirk, kept: a reading of exactly 0 counts as none; cameras report it before the first.
        if (m_previousTickMs == 0 || m_previousC == 0.0F)
            return {};
        const uint32_t deltaMs = tickMs - m_previousTickMs;
        const float cPerS = (celsius - m_previousC) * 1000.0F / static_cast<float>(deltaMs);
        return ReadingChange{m_previousC, deltaMs, cPerS};
    }

    ControlGains m_gains{};
    std::optional<float> m_previousErrorC;
    float m_integral = 0;
    float m_previousC = 0;
    uint32_t m_previousTickMs = 0;
};

/// Applies a correction to the power through `setPower`, which takes per cent and returns the
/// setting that took effect. Away from the target the step is repeated until the drive code moves,
/// so that small outputs count in spite of the coarse code.
template <class SetPower>
void ApplyCorrection(const Correction &correction, DriveSetting now, SetPower setPower)
{
    const float output = correction.Output();
    if (std::abs(output) < kRoundingPercent || std::abs(correction.errorC) <= kDeadBandC) {
        (void)setPower(now.percent - output); // one step, whether the code moves or not
        return;
    }
    const int codeBefore = now.code;
    const auto atLimit = [output](float percent) {
        return output < 0 ? percent >= 100.0F : percent <= 0.0F;
    };
    while (now.code == codeBefore && !atLimit(now.percent))
        now = setPower(now.percent - output);
}

} // namespace vsccam
