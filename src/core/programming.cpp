#include "core/programming.h"

namespace vsccam {

Programming::Scope::Scope(Programming &programming) : m_owner(programming)
{
    m_owner.m_section.lock();
    ++m_owner.m_depth;
}

Programming::Scope::~Scope()
{
    if (--m_owner.m_depth == 0)
        m_owner.m_settings.With([frameTimeUs = m_owner.m_frameTimeUs,
                                 longExposure = m_owner.m_longExposure](Settings &s) {
            s.inForce = {s.exposureUs, frameTimeUs, longExposure};
        });
    m_owner.m_section.unlock();
}

uint32_t Programming::CompleteFrameChanges()
{
    const Scope scope(*this);
    return m_settings.Now().frameChanges;
}

bool Programming::Whole(const std::function<bool()> &program)
{
    constexpr int kTries = 3; // requests may also fail at once
    const RequestBudget budget;
    for (int i = 0; i < kTries; ++i) {
        const int lost = m_camera.LostSetUps();
        if (!program())
            return false;
        if (m_camera.LostSetUps() == lost) {
            m_lostSetUpsMended = lost;
            return true;
        }
        if (RequestBudget::IsUsedUp())
            break;
    }
    return false;
}

void Programming::CountFrameChange()
{
    m_settings.With([](Settings &s) { ++s.frameChanges; });
}

void Programming::SetFrameTime(int us)
{
    if (us != m_frameTimeUs && !m_longExposure)
        CountFrameChange();
    m_frameTimeUs = us;
}

} // namespace vsccam
