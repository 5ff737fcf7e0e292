#pragma once

#include <cstdint>
#include <span>
#include <vector>

/// What goes on between the library, the simulated bus and the host, seen from outside: the linker
/// sends the calls named in CMakeLists.txt through this file (--wrap).
namespace watched {

/// Bytes of large copies, by where they come from and go to.
struct Copies {
    uint64_t byBus = 0;   // into the buffer of a transfer, left out or not
    uint64_t toHost = 0;  // from the buffer of a transfer straight into that of the host
    uint64_t further = 0; // all others
};

/// What was copied since the last call.
Copies TakeCopies();

/// From when a thread was told of the last transfer of a frame until it queued the first of the
/// next, in microseconds: of each frame since the last call.
std::vector<double> TakeGaps();

void SetHostBuffer(std::span<const unsigned char> buffer);

/// Without its own copies, the simulated bus brings only the ends of each transfer, which hold the
/// marks of a frame, into a buffer that it has filled once.
void LeaveOutCopiesOfBus(bool leaveOut);

} // namespace watched
