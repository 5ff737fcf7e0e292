#include "usb/bulk_stream.h"

#include "base/debug_print.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <utility>

namespace vsccam {

using namespace std::chrono_literals;

namespace {

// Transfers have no time-out of their own: whoever waits for them cancels them.
constexpr unsigned int kNoTimeout = 0xFFFFFFFF;
// A stop is noticed within this time, whatever the event time-out.
constexpr auto kStopLatency = 50ms;
// All cancelled transfers of a pass together get this long to come back.
constexpr auto kReapBound = 500ms;

void HandleEvents(std::chrono::milliseconds timeout, int *completed)
{
    timeval time{};
    time.tv_sec = static_cast<decltype(time.tv_sec)>(timeout.count() / 1000);
    time.tv_usec = static_cast<decltype(time.tv_usec)>(timeout.count() % 1000 * 1000);
    const int result = libusb_handle_events_timeout_completed(nullptr, &time, completed);
    if (result < 0 && result != LIBUSB_ERROR_INTERRUPTED)
        SleepFor(10ms); // the event system is in trouble: do not spin
}

int ErrorOf(libusb_transfer_status status)
{
    switch (status) {
    case LIBUSB_TRANSFER_COMPLETED:
        return 0;
    case LIBUSB_TRANSFER_ERROR:
        return LIBUSB_ERROR_IO;
    case LIBUSB_TRANSFER_STALL:
        return LIBUSB_ERROR_PIPE;
    case LIBUSB_TRANSFER_NO_DEVICE:
        return LIBUSB_ERROR_NO_DEVICE;
    case LIBUSB_TRANSFER_OVERFLOW:
        return LIBUSB_ERROR_OVERFLOW;
    case LIBUSB_TRANSFER_TIMED_OUT:
    case LIBUSB_TRANSFER_CANCELLED: // by the one who waited long enough
        break;
    }
    return LIBUSB_ERROR_TIMEOUT;
}

} // namespace

/// A libusb transfer with the record of its completion.
struct BulkStream::Transfer {
    struct Free {
        void operator()(libusb_transfer *transfer) const { libusb_free_transfer(transfer); }
    };

    std::unique_ptr<libusb_transfer, Free> usb{libusb_alloc_transfer(0)};
    int offset = 0;
    bool submitted = false; // handed to libusb, known only to the worker
    bool lookedAt = false;  // its bytes, after it completed
    int completed = 0;      // libusb's flag, set on the event-handling thread

    bool Completed() { return std::atomic_ref(completed).load(std::memory_order_acquire) != 0; }
    bool InFlight() { return submitted && !Completed(); }
};

void BulkStream::Frames::Add(const Frames &next)
{
    if (next.count == 0)
        return;
    const bool goesOn = count > 0 && underWay && !next.whole;
    whole = count > 0 ? whole : next.whole;
    count += next.count - (goesOn ? 1 : 0);
    underWay = next.underWay;
}

void BulkStream::Pass::Repeats(const Pass &failed)
{
    Frames all = failed.frames;
    all.Add(frames);
    frames = all;
}

BulkStream::BulkStream() = default;

BulkStream::~BulkStream() = default;

void BulkStream::callbackUSBTransferComplete(libusb_transfer *transfer)
{
    if (transfer->status != LIBUSB_TRANSFER_COMPLETED)
        OutputDbgPrint("Xfer err %d\n", transfer->status);
    auto *record = static_cast<Transfer *>(transfer->user_data);
    std::atomic_ref(record->completed).store(1, std::memory_order_release);
}

bool BulkStream::Init(libusb_device_handle *handle, int totalLen, int count, int chunkSize,
                      uint8_t endpoint)
{
    if (!Reap())
        return false;
    m_transfers.clear();
    m_frameBytes = totalLen;
    m_memoryHelpPrinted = false;
    try {
        Allocate(handle, totalLen, count, chunkSize, endpoint);
    } catch (const std::bad_alloc &) {
        m_transfers.clear();
    }
    return !m_transfers.empty();
}

void BulkStream::Allocate(libusb_device_handle *handle, int totalLen, int count, int chunkSize,
                          uint8_t endpoint)
{
    for (int i = 0; i < count; ++i) {
        auto transfer = std::make_unique<Transfer>();
        if (!transfer->usb)
            throw std::bad_alloc();
        transfer->offset = i * chunkSize;
        const int length = i + 1 < count ? chunkSize : totalLen - transfer->offset;
        libusb_fill_bulk_transfer(transfer->usb.get(), handle, endpoint, nullptr, length,
                                  callbackUSBTransferComplete, transfer.get(), kNoTimeout);
        m_transfers.push_back(std::move(transfer));
    }
}

BulkStream::Pass BulkStream::Begin(uint8_t *buffer, const RunFlag &running)
{
    Pass pass;
    if (!running)
        return pass;
    if (!Reap()) {
        pass.error = LIBUSB_ERROR_BUSY;
        return pass;
    }
    pass.frames = NewFrames(m_underWay); // in transfers that have come back only now
    pass.frames.whole = true;
    for (auto &transfer : m_transfers) {
        transfer->submitted = transfer->lookedAt = false;
        transfer->usb->buffer = buffer + transfer->offset;
    }
    m_nextToSubmit = 0;
    SubmitRest(pass);
    return pass;
}

void BulkStream::Finish(Pass &pass, Timeouts timeouts, const RunFlag &running, Count count)
{
    if (!pass.submitted)
        return;
    const auto passDeadline = std::min(Clock::now() + timeouts.total, timeouts.deadline);
    auto eventTimeout = timeouts.perTransfer;
    for (auto &transfer : m_transfers) {
        const auto deadline = std::min(Clock::now() + timeouts.perTransfer, passDeadline);
        if (!WaitFor(*transfer, deadline, eventTimeout, running))
            break; // the frame is lost: nobody waits for the rest of it
        eventTimeout = timeouts.nextEvent;
        SubmitRest(pass); // those that found no memory before
    }
    (void)Reap(); // what stays away is reaped by the next pass, or freed when the device is closed
    Collect(pass, count);
    Frames frames = NewFrames(false);
    if (pass.Brought(m_frameBytes))
        frames = {.count = 1, .whole = true};
    pass.frames.Add(frames);
    m_underWay = frames.underWay;
}

void BulkStream::Collect(Pass &pass, Count count) const
{
    for (const auto &transfer : m_transfers) {
        if (!transfer->submitted)
            continue;
        const auto status =
            transfer->Completed() ? transfer->usb->status : LIBUSB_TRANSFER_CANCELLED;
        const bool whole = status == LIBUSB_TRANSFER_COMPLETED;
        if (whole || (count == Count::AllThatCame && transfer->Completed()))
            pass.received += transfer->usb->actual_length;
        if (!whole && pass.error == 0)
            pass.error = ErrorOf(status);
        pass.ioError = pass.ioError || status == LIBUSB_TRANSFER_ERROR;
        pass.deviceGone = pass.deviceGone || status == LIBUSB_TRANSFER_NO_DEVICE;
    }
}

/// The frames in the transfers that have come back since the last look. A short transfer ends one
/// before its time.
/// @param underWay  a frame goes on there that is not new
BulkStream::Frames BulkStream::NewFrames(bool underWay)
{
    Frames frames{.underWay = underWay};
    for (const auto &transfer : m_transfers) {
        if (!transfer->submitted || !transfer->Completed() ||
            std::exchange(transfer->lookedAt, true))
            continue;
        const libusb_transfer &usb = *transfer->usb;
        if (usb.actual_length > 0) {
            frames.count += frames.underWay ? 0 : 1;
            frames.underWay = true;
        }
        if (usb.status == LIBUSB_TRANSFER_COMPLETED && usb.actual_length < usb.length)
            frames.underWay = false;
    }
    return frames;
}

void BulkStream::Release()
{
    std::erase_if(m_transfers, [](auto &transfer) { return !transfer->InFlight(); });
    OutputDbgPrint("free transfer!\n");
}

void BulkStream::DeviceClosed()
{
    m_transfers.clear();
}

/// Queues the transfers that are not queued yet. When the kernel's memory for transfers is used
/// up, the rest has to wait until earlier ones are done.
void BulkStream::SubmitRest(Pass &pass)
{
    for (; m_nextToSubmit < m_transfers.size(); ++m_nextToSubmit) {
        Transfer &transfer = *m_transfers[m_nextToSubmit];
        transfer.completed = 0;
        const int result = libusb_submit_transfer(transfer.usb.get());
        transfer.submitted = result == 0;
        if (transfer.submitted) {
            pass.submitted = true;
            continue;
        }
        if (result == LIBUSB_ERROR_NO_MEM)
            PrintMemoryHelp();
        if (result == LIBUSB_ERROR_NO_MEM && InFlight())
            return;
        OutputDbgPrint("submit Xfer %d error: %d\n", static_cast<int>(m_nextToSubmit), result);
        pass.error = pass.error ? pass.error : result;
        if (result == LIBUSB_ERROR_NO_MEM)
            return;
        if (result == LIBUSB_ERROR_NO_DEVICE) {
            pass.deviceGone = true;
            m_nextToSubmit = m_transfers.size();
            return;
        }
    }
}

/// Whether the transfer brought its bytes in time.
bool BulkStream::WaitFor(Transfer &transfer, Clock::time_point deadline,
                         std::chrono::milliseconds eventTimeout, const RunFlag &running)
{
    while (transfer.InFlight() && running) {
        const auto left = deadline - Clock::now();
        if (left <= 0ns)
            break;
        HandleEvents(std::min({eventTimeout, kStopLatency, ceil<std::chrono::milliseconds>(left)}),
                     &transfer.completed);
    }
    return transfer.submitted && transfer.Completed() &&
           transfer.usb->status == LIBUSB_TRANSFER_COMPLETED;
}

/// Cancels everything in flight and waits until libusb has given it back.
bool BulkStream::Reap()
{
    for (auto &transfer : m_transfers) {
        if (transfer->InFlight())
            (void)libusb_cancel_transfer(transfer->usb.get()); // may have completed meanwhile
    }
    const auto deadline = Clock::now() + kReapBound;
    for (auto &transfer : m_transfers) {
        while (transfer->InFlight()) {
            if (Clock::now() >= deadline)
                return false;
            HandleEvents(kStopLatency, &transfer->completed);
        }
    }
    return true;
}

bool BulkStream::InFlight() const
{
    return std::ranges::any_of(m_transfers, [](auto &transfer) { return transfer->InFlight(); });
}

void BulkStream::PrintMemoryHelp()
{
    if (m_memoryHelpPrinted)
        return;
    m_memoryHelpPrinted = true;
    OutputDbgPrint(
        "a frame needs %d MiB of usbfs memory, all cameras together may use what is in\n",
        m_frameBytes / (1024 * 1024) + 1);
    OutputDbgPrint("/sys/module/usbcore/parameters/usbfs_memory_mb (MiB): write 256 to it\n");
}

} // namespace vsccam
