#include "video/frame_ring.h"

#include "failure.h"

#include <new>
#include <numeric>
#include <utility>

namespace vsctool {

FrameRing::FrameRing(size_t frameBytes, size_t frames)
    : m_frameBytes(frameBytes), m_frames(frames),
      m_memory(new (std::nothrow) uint8_t[frameBytes * frames]), m_free(frames - 1)
{
    if (!m_memory)
        throw Failure(Exit::kFailure, "no memory for the buffer; make it smaller with --buffer");
    std::iota(m_free.rbegin(), m_free.rend(), size_t{1});
}

bool FrameRing::Push(UtcTime at)
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_free.empty())
            return false;
        m_waiting.push_back({m_spare, at});
        m_spare = m_free.back();
        m_free.pop_back();
    }
    m_changed.notify_one();
    return true;
}

void FrameRing::Close()
{
    {
        const std::lock_guard lock(m_mutex);
        m_closed = true;
    }
    m_changed.notify_one();
}

std::optional<TimedFrame> FrameRing::Next(std::chrono::milliseconds wait)
{
    std::unique_lock lock(m_mutex);
    if (m_written)
        m_free.push_back(*std::exchange(m_written, std::nullopt));
    if (!m_changed.wait_for(lock, wait, [this] { return m_closed || !m_waiting.empty(); }) ||
        m_waiting.empty())
        return std::nullopt;
    const Filled oldest = m_waiting.front();
    m_waiting.pop_front();
    m_written = oldest.buffer;
    return TimedFrame{Bytes(oldest.buffer), oldest.at};
}

bool FrameRing::AtEnd() const
{
    const std::lock_guard lock(m_mutex);
    return m_closed && m_waiting.empty();
}

size_t FrameRing::Discard()
{
    const std::lock_guard lock(m_mutex);
    const size_t frames = m_waiting.size();
    for (const Filled &filled : std::exchange(m_waiting, {}))
        m_free.push_back(filled.buffer);
    return frames;
}

size_t FrameRing::Waiting() const
{
    const std::lock_guard lock(m_mutex);
    return m_waiting.size();
}

} // namespace vsctool
