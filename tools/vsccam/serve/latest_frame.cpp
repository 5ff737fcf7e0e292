#include "serve/latest_frame.h"

namespace vsctool::serve {

void LatestFrame::Publish(FramePtr frame)
{
    const std::lock_guard lock(m_mutex);
    m_frame.swap(frame); // the one of before ends after the lock
}

FramePtr LatestFrame::Get() const
{
    const std::lock_guard lock(m_mutex);
    return m_frame;
}

FramePtr LatestFrame::After(uint64_t sequence) const
{
    FramePtr frame = Get();
    return frame && frame->sequence > sequence ? frame : nullptr;
}

} // namespace vsctool::serve
