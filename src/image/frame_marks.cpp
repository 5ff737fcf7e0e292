#include "image/frame_marks.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace vsccam {

namespace {

constexpr size_t kMarkBytes = 4; // at each end: mark and counter
constexpr size_t kHeadMarkedBytes = 8;
constexpr size_t kPacketBytes = 512;

uint16_t LittleEndian(const uint8_t *bytes)
{
    return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

size_t TailOffset(size_t frameBytes)
{
    return (frameBytes & ~size_t{1}) - kMarkBytes;
}

} // namespace

FrameMarks ReadFrameMarks(std::span<const uint8_t> frame)
{
    if (frame.size() < 2 * kMarkBytes)
        return {};
    const uint8_t *tail = frame.data() + TailOffset(frame.size());
    return {.head = LittleEndian(frame.data()),
            .headCounter = LittleEndian(frame.data() + 2),
            .tailCounter = LittleEndian(tail),
            .tail = LittleEndian(tail + 2)};
}

void ZeroFrameMarks(std::span<uint8_t> frame)
{
    if (frame.size() < 2 * kMarkBytes)
        return;
    std::fill_n(frame.data(), kMarkBytes, uint8_t{0});
    std::fill_n(frame.data() + TailOffset(frame.size()), kMarkBytes, uint8_t{0});
}

void HideFrameMarks(std::span<uint8_t> frame, size_t rowBytes)
{
    if (frame.size() < rowBytes + kMarkBytes)
        return;
    std::copy_n(frame.data() + rowBytes, kMarkBytes, frame.data());
    uint8_t *last = frame.data() + frame.size() - kMarkBytes;
    std::copy_n(last - rowBytes, kMarkBytes, last);
}

uint32_t HeadWord(std::span<const uint8_t> frame)
{
    if (frame.size() < sizeof(uint32_t))
        return 0;
    return LittleEndian(frame.data()) | uint32_t{LittleEndian(frame.data() + 2)} << 16;
}

int FramesBegunWithin(std::span<const uint8_t> frame)
{
    int frames = 0;
    for (size_t at = kPacketBytes; at < frame.size(); at += kPacketBytes)
        frames += HasHeadMark(frame.subspan(at)) ? 1 : 0;
    return frames;
}

void HideHeadMark(std::span<uint8_t> frame, size_t rowBytes)
{
    if (frame.size() < rowBytes + kHeadMarkedBytes)
        return;
    std::memmove(frame.data(), frame.data() + rowBytes, kHeadMarkedBytes); // rows may be shorter
}

} // namespace vsccam
