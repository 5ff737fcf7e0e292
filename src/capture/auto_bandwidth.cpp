#include "capture/auto_bandwidth.h"

#include "base/clock.h"
#include "base/per_model.h"

#include <utility>

namespace vsccam {

namespace {

constexpr uint32_t kPeriodMs = 19'999;

/// The flag as the workers of a model last saw it. It outlives the camera object, because only a
/// change from off to on starts a new period.
Shared<bool> &Remembered(uint16_t productId, bool now)
{
    static PerModel<Shared<bool>> memories;
    return memories.Of(productId, [now](Shared<bool> &on) { on = now; });
}

} // namespace

AutoBandwidth::AutoBandwidth(uint16_t productId)
    : m_productId(productId), m_since(GetTickCount()), m_lastBurst(m_since)
{
}

void AutoBandwidth::NoteOff()
{
    Remembered(m_productId, false) = false;
}

bool AutoBandwidth::Lasts(bool automatic)
{
    Shared<bool> &remembered = Remembered(m_productId, automatic);
    if (automatic && !remembered) {
        remembered = true;
        m_since = GetTickCount();
    }
    return automatic && SinceStartMs() <= kPeriodMs;
}

uint32_t AutoBandwidth::SinceStartMs() const
{
    return GetTickCount() - m_since;
}

uint32_t AutoBandwidth::NoteBurst()
{
    const uint32_t now = GetTickCount();
    return now - std::exchange(m_lastBurst, now);
}

} // namespace vsccam
