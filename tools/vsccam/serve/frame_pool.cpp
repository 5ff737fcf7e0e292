#include "serve/frame_pool.h"

#include <utility>

namespace vsctool::serve {
namespace {

constexpr size_t kMostSpares = 3;

} // namespace

std::shared_ptr<Frame> FramePool::Take(int width, int height, PixelFormat format)
{
    std::unique_ptr<Frame> frame;
    {
        const std::lock_guard lock(m_spares->mutex);
        if (!m_spares->frames.empty()) {
            frame = std::move(m_spares->frames.back());
            m_spares->frames.pop_back();
        }
    }
    if (!frame)
        frame = std::make_unique<Frame>();
    std::vector<uint8_t> bytes = std::move(frame->picture.bytes);
    *frame = Frame();
    frame->picture = {.width = width, .height = height, .format = format, .bytes = {}};
    bytes.resize(frame->picture.Pixels() * static_cast<size_t>(BytesPerPixel(format)));
    frame->picture.bytes = std::move(bytes);

    const auto giveBack = [spares = m_spares](Frame *used) {
        std::unique_ptr<Frame> owned(used);
        const std::lock_guard lock(spares->mutex);
        if (spares->frames.size() < kMostSpares)
            spares->frames.push_back(std::move(owned));
    };
    return {frame.release(), giveBack};
}

} // namespace vsctool::serve
