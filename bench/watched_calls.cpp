#include "watched_calls.h"

#include <libusb.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <utility>

namespace watched {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kLarge = 0x10000;
constexpr size_t kEnd = 64;

struct Range {
    const unsigned char *begin;
    size_t size;
    bool filled = false; // with a whole transfer, once

    bool Holds(const void *bytes) const
    {
        const auto *byte = static_cast<const unsigned char *>(bytes);
        return byte >= begin && byte < begin + size;
    }
};

std::mutex mutex; // guards the following
std::vector<Range> transferBuffers;
Range hostBuffer{};
Copies copies;
std::vector<double> gaps;

std::atomic<bool> leaveOutCopiesOfBus{false};
thread_local std::optional<Clock::time_point> toldOfTransfer; // and has queued none since

Range *TransferBuffer(const void *bytes)
{
    const auto found =
        std::ranges::find_if(transferBuffers, [=](const Range &r) { return r.Holds(bytes); });
    return found == transferBuffers.end() ? nullptr : &*found;
}

void NoteSubmission(const libusb_transfer &transfer)
{
    const auto now = Clock::now();
    const std::lock_guard lock(mutex);
    if (!TransferBuffer(transfer.buffer))
        transferBuffers.push_back({transfer.buffer, static_cast<size_t>(transfer.length)});
    if (const auto since = std::exchange(toldOfTransfer, std::nullopt))
        gaps.push_back(std::chrono::duration<double, std::micro>(now - *since).count());
}

using Copy = void *(void *, const void *, size_t);

/// Whether the copy is one that is left out.
bool Account(const void *to, const void *from, size_t size)
{
    const std::lock_guard lock(mutex);
    Range *const transfer = TransferBuffer(to);
    if (!transfer) {
        (hostBuffer.Holds(to) && TransferBuffer(from) ? copies.toHost : copies.further) += size;
        return false;
    }
    copies.byBus += size;
    return std::exchange(transfer->filled, transfer->filled || size == transfer->size) &&
           leaveOutCopiesOfBus;
}

void *WatchCopy(Copy *copy, void *to, const void *from, size_t size)
{
    if (size < kLarge || !Account(to, from, size))
        return copy(to, from, size);
    const size_t last = size - kEnd;
    copy(static_cast<unsigned char *>(to) + last, static_cast<const unsigned char *>(from) + last,
         kEnd);
    return copy(to, from, kEnd);
}

} // namespace

Copies TakeCopies()
{
    const std::lock_guard lock(mutex);
    return std::exchange(copies, {});
}

std::vector<double> TakeGaps()
{
    const std::lock_guard lock(mutex);
    return std::exchange(gaps, {});
}

void SetHostBuffer(std::span<const unsigned char> buffer)
{
    const std::lock_guard lock(mutex);
    hostBuffer = {buffer.data(), buffer.size()};
}

void LeaveOutCopiesOfBus(bool leaveOut)
{
    leaveOutCopiesOfBus = leaveOut;
}

} // namespace watched

// The names are those that the linker makes.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_libusb_submit_transfer(libusb_transfer *transfer);
int __wrap_libusb_submit_transfer(libusb_transfer *transfer)
{
    watched::NoteSubmission(*transfer);
    return __real_libusb_submit_transfer(transfer);
}

int __real_libusb_handle_events_timeout_completed(libusb_context *context, timeval *time,
                                                  int *completed);
int __wrap_libusb_handle_events_timeout_completed(libusb_context *context, timeval *time,
                                                  int *completed)
{
    const int result = __real_libusb_handle_events_timeout_completed(context, time, completed);
    watched::toldOfTransfer = watched::Clock::now();
    return result;
}

watched::Copy __real_memcpy;
void *__wrap_memcpy(void *to, const void *from, size_t size)
{
    return watched::WatchCopy(__real_memcpy, to, from, size);
}

watched::Copy __real_memmove;
void *__wrap_memmove(void *to, const void *from, size_t size)
{
    return watched::WatchCopy(__real_memmove, to, from, size);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
