#pragma once

#include "core/flash_access.h"
#include "core/frame_geometry.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// The hot pixels of a camera in its flash memory.
namespace vsccam {

/// What reading their record came to.
struct StoredHotPixels {
    enum class State {
        Unread, // which tells nothing about what is stored
        None,   // there is no record
        Part,   // of the record could be read, the rest is 0
        Whole,
    };

    bool HasRecord() const { return state == State::Part || state == State::Whole; }

    State state = State::Unread;
    std::vector<uint8_t> record;
};

/// Reads the record. Every part of it but the first is tried three times.
StoredHotPixels ReadHotPixels(FlashAccess &flash);

/// The pixels that a record names, of a sensor of this size; nothing when it is none, or a broken
/// one.
std::optional<std::vector<uint32_t>> PixelsOf(const StoredHotPixels &stored, Size sensor);

/// Writes a bitmap of hot pixels; false when it is empty, too large, or not stored as a whole.
bool WriteHotPixels(FlashAccess &flash, std::span<const uint8_t> bitmap);

} // namespace vsccam
