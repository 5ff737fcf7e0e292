#pragma once

#include "standin/bus.h"
#include "standin/virtual_clock.h"

#include <gtest/gtest.h>
#include <libusb.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace vscsim {

constexpr uint8_t kImageEndpoint = 0x82;

/// A program on the simulated bus in virtual time. It may leave nothing behind.
class BusTest : public testing::Test {
  protected:
    explicit BusTest(uint64_t seed = 1)
    {
        timeLine.ThreadStarts();
        bus.UseClock(&clock);
        bus.Reset(seed);
        EXPECT_EQ(libusb_init(nullptr), 0);
    }
    ~BusTest() override
    {
        bus.Reset();
        bus.UseClock(nullptr);
        timeLine.ThreadEnds();
    }

    void TearDown() override
    {
        libusb_exit(nullptr);
        const auto left = bus.LiveObjects();
        EXPECT_EQ(left.contextReferences, 0);
        EXPECT_EQ(left.deviceLists + left.deviceReferences, 0);
        EXPECT_EQ(left.handles + left.claimedInterfaces, 0);
        EXPECT_EQ(left.transfers + left.transfersInFlight, 0);
        EXPECT_EQ(bus.TakeMisuse(), std::vector<std::string>());
    }

    VirtualClock timeLine;
    VirtualClock::Channel clock{timeLine};
    Bus &bus = Bus::Instance();
};

/// The n-th device of the list, opened; null when it cannot be.
inline libusb_device_handle *OpenDevice(size_t n = 0)
{
    libusb_device **list = nullptr;
    const ssize_t count = libusb_get_device_list(nullptr, &list);
    libusb_device_handle *handle = nullptr;
    if (count > static_cast<ssize_t>(n) && libusb_open(list[n], &handle) != 0)
        handle = nullptr;
    if (count >= 0)
        libusb_free_device_list(list, 1);
    return handle;
}

/// An open USB 2.0 camera, which streams all of its sensor when asked to.
class OpenCamera {
  public:
    static constexpr int kFrameBytes = 1280 * 960;

    explicit OpenCamera(size_t n = 0) : handle(OpenDevice(n))
    {
        EXPECT_EQ(libusb_set_configuration(handle, 1), 0);
        EXPECT_EQ(libusb_claim_interface(handle, 0), 0);
    }
    OpenCamera(const OpenCamera &) = delete;
    OpenCamera &operator=(const OpenCamera &) = delete;
    ~OpenCamera() { Close(); }

    void Stream() const
    {
        EXPECT_EQ(Command(0xA9), 0);
        EXPECT_EQ(libusb_control_transfer(handle, 0x40, 0xA6, 0x301A, 0x10DC, nullptr, 0, 500), 0);
        EXPECT_EQ(libusb_clear_halt(handle, kImageEndpoint), 0);
    }

    int Command(uint8_t request) const
    {
        return libusb_control_transfer(handle, 0x40, request, 0, 0, nullptr, 0, 200);
    }
    void Close()
    {
        libusb_close(handle);
        handle = nullptr;
    }

    libusb_device_handle *handle;
};

/// A bulk transfer with its buffer. Records how it completed.
class BulkRead {
  public:
    BulkRead(libusb_device_handle *handle, int bytes) : m_buffer(static_cast<size_t>(bytes))
    {
        libusb_fill_bulk_transfer(usb, handle, kImageEndpoint, m_buffer.data(), bytes, CallBack,
                                  this, 0);
    }
    BulkRead(const BulkRead &) = delete;
    BulkRead &operator=(const BulkRead &) = delete;
    ~BulkRead() { libusb_free_transfer(usb); }

    bool Done() { return std::atomic_ref(completed).load() != 0; }
    const std::vector<uint8_t> &Buffer() const { return m_buffer; }

    libusb_transfer *usb = libusb_alloc_transfer(0);
    int completed = 0;
    std::thread::id completedOn;
    std::vector<BulkRead *> *order = nullptr; // completions are appended here

  private:
    static void CallBack(libusb_transfer *transfer)
    {
        auto *self = static_cast<BulkRead *>(transfer->user_data);
        self->completedOn = std::this_thread::get_id();
        if (self->order)
            self->order->push_back(self);
        std::atomic_ref(self->completed).store(1);
    }

    std::vector<uint8_t> m_buffer;
};

/// Handles events, for `round` at a time, until the transfer is done or `bound` is over.
inline bool WaitFor(BulkRead &read, BusClock &clock, Time bound = std::chrono::seconds(10),
                    Time round = std::chrono::milliseconds(50))
{
    const Time deadline = clock.Now() + bound;
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(round).count();
    while (!read.Done() && clock.Now() < deadline) {
        timeval time{};
        time.tv_sec = static_cast<time_t>(us / 1'000'000);
        time.tv_usec = static_cast<suseconds_t>(us % 1'000'000);
        (void)libusb_handle_events_timeout_completed(nullptr, &time, &read.completed);
    }
    return read.Done();
}

} // namespace vscsim
