#pragma once

#include <cstdint>
#include <span>

namespace vsccam {

/// The marks that USB 3.0 cameras write over the first and last four bytes of every frame.
struct FrameMarks {
    static constexpr uint16_t kHead = 0x5A7E;
    static constexpr uint16_t kTail = 0x3CF0;

    uint16_t head = 0;
    uint16_t headCounter = 0;
    uint16_t tailCounter = 0;
    uint16_t tail = 0;

    /// Whether both are there.
    bool Framed() const { return head == kHead && tail == kTail; }
    /// Whether all of a frame, and only of one frame, lies between the marks.
    bool Good() const { return Framed() && headCounter == tailCounter; }
};

/// Reads the marks. A frame of odd length ends, for its marks, one byte earlier; a frame too short
/// for marks has none.
FrameMarks ReadFrameMarks(std::span<const uint8_t> frame);

/// Overwrites the marks with black.
void ZeroFrameMarks(std::span<uint8_t> frame);

/// Gives the first and the last four bytes the values of the bytes one row away, so that neither
/// marks nor black dots are seen.
/// @param rowBytes  length of a row of the read-out
void HideFrameMarks(std::span<uint8_t> frame, size_t rowBytes);

/// What USB 2.0 cameras write over the first word of every frame, little-endian.
inline constexpr uint32_t kHeadMark = 0xBB00AA11;

/// The first word of a frame, little-endian; 0 of one too short to have it.
uint32_t HeadWord(std::span<const uint8_t> frame);

inline bool HasHeadMark(std::span<const uint8_t> frame)
{
    return HeadWord(frame) == kHeadMark;
}

/// How many frames begin within this one. The camera sends packets of 512 bytes: a frame that lost
/// some is filled up with the beginning of the next one.
int FramesBegunWithin(std::span<const uint8_t> frame);

/// Gives the first eight bytes, the mark among them, the values of the second row.
void HideHeadMark(std::span<uint8_t> frame, size_t rowBytes);

} // namespace vsccam
