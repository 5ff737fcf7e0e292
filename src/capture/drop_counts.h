#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vsccam {

/// Why a frame did not come to a host. Each frame that the camera began to send counts once, but
/// the rest of one that could not be cleared away looks like another; and the lost ones, which were
/// not seen, are an estimate.
enum class DropReason : uint8_t {
    Short,    // bytes are missing
    Marks,    // it does not begin or end as a frame does
    Counter,  // its marks are right, but their counters tell that it is made of two
    HalfSet,  // it came while a part of the settings was missing
    RingFull, // the host has not taken those before
    NotTaken, // it was there when the capture ended: told then, and in no sum before
    Lost,     // the camera was away or was programmed again, or nothing could be queued to read it
};
inline constexpr size_t kDropReasons = static_cast<size_t>(DropReason::Lost) + 1;

/// How many frames of one capture did not come to a host. Plain values.
struct DropCounts {
    std::array<int64_t, kDropReasons> frames{};
    int64_t emptyReads = 0; // nothing came: no frame was dropped

    void Add(DropReason reason, int64_t count = 1) { frames[static_cast<size_t>(reason)] += count; }
    int Sum() const; // of the frames
    void Print() const;
};

} // namespace vsccam
