#include "serve/video_feed.h"

#include <vsccam.h>

#include <algorithm>
#include <utility>

namespace vsctool::serve {
namespace {

using namespace std::chrono_literals;

constexpr int kWaitMs = 50; // jobs come in between
constexpr auto kMeasured = 2s;

} // namespace

void VideoFeed::Start()
{
    m_lastCame = Clock::now();
    m_first.reset();
    m_spare.reset(); // frames may have another size by now
    m_running = true;
    startCapture();
}

void VideoFeed::Stop()
{
    if (!std::exchange(m_running, false))
        return;
    m_droppedBefore += std::max(getDroppedFrames(), 0); // which the stop resets
    stopCapture();
    m_framesPerSecond = 0;
}

int64_t VideoFeed::Dropped() const
{
    return m_droppedBefore + (m_running ? std::max(getDroppedFrames(), 0) : 0);
}

std::shared_ptr<Frame> VideoFeed::Blank()
{
    return m_pool.Take(getWidth(), getHeight(), static_cast<PixelFormat>(getImgType()));
}

FramePtr VideoFeed::Read(const Camera &camera)
{
    if (!m_spare)
        m_spare = Blank();
    std::vector<uint8_t> &bytes = m_spare->picture.bytes;
    if (!getImageData(bytes.data(), static_cast<int>(bytes.size()), kWaitMs))
        return nullptr;
    const auto now = Clock::now();
    m_worstGap = std::max(m_worstGap, m_first ? std::chrono::floor<Microseconds>(now - m_lastCame)
                                              : Microseconds{});
    m_lastCame = now;
    Measure(now);
    return Publish(std::exchange(m_spare, nullptr), camera);
}

void VideoFeed::Measure(Clock::time_point now)
{
    if (!m_first) {
        m_first = now;
        m_counted = 0;
        return;
    }
    ++m_counted;
    const std::chrono::duration<double> time = now - *m_first;
    if (time < kMeasured && m_framesPerSecond > 0)
        return;
    m_framesPerSecond = static_cast<double>(m_counted) / time.count();
    if (time >= kMeasured) {
        m_first = now;
        m_counted = 0;
    }
}

FramePtr VideoFeed::Publish(std::shared_ptr<Frame> frame, const Camera &camera)
{
    frame->mosaic = camera.PictureMosaic();
    frame->bin = getBin();
    frame->sequence = ++m_sequence;
    frame->at = std::chrono::floor<Microseconds>(std::chrono::system_clock::now());
    frame->exposure = Microseconds(getValue(CONTROL_EXPOSURE, nullptr));
    frame->gain = getValue(CONTROL_GAIN, nullptr);
    frame->dropped = Dropped();
    frame->temperatureC = m_celsius;
    FramePtr whole = std::move(frame);
    m_latest.Publish(whole);
    return whole;
}

FeedFigures VideoFeed::Figures() const
{
    return {.frames = static_cast<int64_t>(m_sequence),
            .dropped = Dropped(),
            .framesPerSecond = m_framesPerSecond,
            .worstGap = m_worstGap};
}

} // namespace vsctool::serve
