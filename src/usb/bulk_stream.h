#pragma once

#include "base/sync.h"

#include <libusb.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

namespace vsccam {

/// One frame at a time from a bulk IN endpoint, read by a row of transfers that are all queued
/// before the first wait, so that the host controller always has buffers ready.
///
/// Used by one thread, the capture worker. Completions arrive on whichever thread handles libusb
/// events, often one that makes a control call: everything about a completion therefore belongs to
/// its transfer. A transfer is reaped before it is submitted again or freed; one that never
/// completes is kept until the device is closed.
class BulkStream {
  public:
    /// Frames of which bytes came, whether these are of use or not.
    struct Frames {
        int count = 0;
        bool whole = false;    // the first is all there: it is no rest of a frame of before
        bool underWay = false; // the last had not ended

        int Ended() const { return count - (underWay ? 1 : 0); }
        /// Adds what came next. A frame that was under way goes on there.
        void Add(const Frames &next);
    };

    /// How one pass over the transfers went.
    struct Pass {
        int received = 0;        // bytes of the frame, in order
        Frames frames = {};      // the one that was asked for among them
        int error = 0;           // libusb code of the first failure, LIBUSB_ERROR_TIMEOUT included
        bool ioError = false;    // some transfer ended with LIBUSB_TRANSFER_ERROR
        bool deviceGone = false; // some transfer or submission said so
        bool submitted = false;  // at least one transfer was queued

        /// Whether all bytes came. Those of a transfer that failed are not to be relied on: the
        /// camera may have sent more than they are, or others.
        bool Brought(int bytes) const
        {
            return received == bytes && (error == 0 || error == LIBUSB_ERROR_TIMEOUT);
        }

        /// This pass repeats one that failed.
        void Repeats(const Pass &failed);
    };

    struct Timeouts {
        std::chrono::milliseconds perTransfer; // longest wait for any one transfer
        std::chrono::milliseconds nextEvent;   // event time-out after the first transfer
        std::chrono::milliseconds total;       // longest wait for the frame
        Clock::time_point deadline = kNever;   // however often it is read
    };

    BulkStream();
    ~BulkStream(); // the device is closed before
    BulkStream(const BulkStream &) = delete;
    BulkStream &operator=(const BulkStream &) = delete;

    /// Prepares `count` transfers of `chunkSize` bytes for frames of `totalLen` bytes; the last one
    /// takes the rest.
    /// @return false when memory is short or transfers of an earlier run never came back
    bool Init(libusb_device_handle *handle, int totalLen, int count, int chunkSize,
              uint8_t endpoint);

    /// Which bytes of a frame count: only those of transfers that completed, or also those that a
    /// transfer had when it ended otherwise, as a synchronous read tells them.
    enum class Count { Completed, AllThatCame };

    /// Begins to read one frame into `buffer`: queues its transfers, but for those that the kernel
    /// has no memory for yet. Queues nothing when `running` is cleared, or when transfers of before
    /// do not come back.
    Pass Begin(uint8_t *buffer, const RunFlag &running);
    /// Waits for the frame that was begun. Ends early when `running` is cleared. On return no
    /// transfer is in flight, unless one could not be cancelled: the next Begin starts with reaping
    /// it.
    void Finish(Pass &pass, Timeouts timeouts, const RunFlag &running, Count count);

    /// Frees the transfers, but for those that did not come back: they stay until DeviceClosed.
    void Release();

    /// Whether libusb still has transfers of ours.
    bool InFlight() const;

    /// The handle of the transfers is closed: nothing is in flight any more.
    void DeviceClosed();

  private:
    struct Transfer;
    using TransferRow = std::vector<std::unique_ptr<Transfer>>;

    static void LIBUSB_CALL callbackUSBTransferComplete(libusb_transfer *transfer);

    void Allocate(libusb_device_handle *handle, int totalLen, int count, int chunkSize,
                  uint8_t endpoint);
    void SubmitRest(Pass &pass);
    void Collect(Pass &pass, Count count) const;
    Frames NewFrames(bool underWay);
    static bool WaitFor(Transfer &transfer, Clock::time_point deadline,
                        std::chrono::milliseconds eventTimeout, const RunFlag &running);
    bool Reap();
    void PrintMemoryHelp();

    TransferRow m_transfers;
    size_t m_nextToSubmit = 0;
    int m_frameBytes = 0;
    bool m_underWay = false; // a frame, at the end of the last pass
    bool m_memoryHelpPrinted = false;
};

} // namespace vsccam
