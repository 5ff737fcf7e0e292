#include "video/video_reader.h"

#include <vsccam.h>

#include <utility>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

constexpr int kWaitMs = 200;
constexpr auto kPauseWithoutCamera = 20ms; // while it is gone the library does not wait

} // namespace

VideoReader::VideoReader(FrameRing &ring, const VideoLimits &limits)
    : m_ring(ring), m_limits(limits), m_thread([this] { Read(); })
{
}

VideoReader::~VideoReader()
{
    Stop();
}

void VideoReader::Stop()
{
    m_stop = true;
    if (m_thread.joinable())
        m_thread.join();
}

VideoReader::Progress VideoReader::Ask()
{
    const std::lock_guard lock(m_mutex);
    std::vector<Microseconds> gaps = std::exchange(m_progress.gaps, {});
    Progress progress = m_progress;
    progress.gaps = std::move(gaps);
    return progress;
}

/// @return false for a frame that is beyond the limits
bool VideoReader::Accept(SteadyClock::time_point now)
{
    const std::lock_guard lock(m_mutex);
    if (!m_progress.first)
        m_progress.first = now;
    if (m_limits.duration && now - *m_progress.first >= *m_limits.duration)
        return false;
    if (m_progress.last)
        m_progress.gaps.push_back(std::chrono::duration_cast<Microseconds>(now - *m_progress.last));
    m_progress.last = now;
    return true;
}

/// @return whether it was the last one
bool VideoReader::HandOver(UtcTime at)
{
    const bool within = Accept(SteadyClock::now());
    const bool taken = within && m_ring.Push(at);
    const std::lock_guard lock(m_mutex);
    m_progress.frames += taken ? 1 : 0;
    m_progress.refused += within && !taken ? 1 : 0;
    m_progress.done = !within || m_progress.frames == m_limits.frames;
    return m_progress.done;
}

void VideoReader::Read()
{
    bool done = false;
    startCapture(); // here, where somebody is ready to take the first frame
    while (!m_stop) {
        const std::span<uint8_t> frame = m_ring.Spare();
        if (!getImageData(frame.data(), static_cast<int>(frame.size()), kWaitMs)) {
            std::this_thread::sleep_for(kPauseWithoutCamera);
            continue;
        }
        if (done) // until the video is stopped, the library counts what nobody takes as dropped
            continue;
        done = HandOver(std::chrono::floor<Microseconds>(std::chrono::system_clock::now()));
        if (done)
            m_ring.Close();
    }
    m_ring.Close();
}

} // namespace vsctool
