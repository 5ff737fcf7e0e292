#include "image/raw_frames.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <utility>

namespace vsccam {

RawFrames::Look::~Look()
{
    if (m_frame.empty())
        return; // another one may be looking
    const std::lock_guard lock(m_owner.m_section);
    m_owner.m_lookedAt = kNone;
}

void RawFrames::Complete(size_t bytes, Use use)
{
    const std::lock_guard lock(m_section);
    if (use.copied)
        m_copied = m_filling;
    m_latest = use.lookedAt ? m_filling : kNone;
    m_latestBytes = bytes;
    m_latestExposure = use.exposure;
    int next = FreeBuffer();
    if (next == kNone) { // the others are copied and looked at: this one has to serve again
        m_latest = kNone;
        next = m_filling;
    }
    m_filling = next;
}

void RawFrames::Reset()
{
    const std::lock_guard lock(m_section);
    m_latest = kNone;
}

RawFrames::Look RawFrames::TakeLatest(bool shortOnly)
{
    const std::lock_guard lock(m_section);
    if (m_latest == kNone || m_lookedAt != kNone || (shortOnly && !m_latestExposure.IsShort()))
        return {*this, {}, {}};
    m_lookedAt = std::exchange(m_latest, kNone);
    return {*this, m_buffers[m_lookedAt].First(m_latestBytes), m_latestExposure};
}

int RawFrames::FreeBuffer() const
{
    const std::array used = {m_copied, m_lookedAt, m_latest};
    for (int i = 0; i < static_cast<int>(std::size(m_buffers)); ++i) {
        if (std::ranges::find(used, i) == used.end())
            return i;
    }
    return kNone;
}

} // namespace vsccam
