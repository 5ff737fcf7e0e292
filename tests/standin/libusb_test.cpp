#include "standin/bus_rig.h"

#include <algorithm>
#include <functional>
#include <memory>

namespace vscsim {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;
constexpr int kFrame = OpenCamera::kFrameBytes;

using Libusb = BusTest;

// A control call of one thread hands back the bulk transfers of another, sometimes, and never out
// of order.
TEST_F(Libusb, HandsCompletionsToAnyThreadThatHandlesEvents)
{
    constexpr size_t kReads = 200;
    for (const uint64_t seed : {1U, 2U, 3U}) {
        SCOPED_TRACE(seed);
        bus.Reset(seed);
        bus.Plug("VSC340MM");
        OpenCamera camera;
        camera.Stream();
        std::vector<BulkRead *> order;
        std::vector<std::unique_ptr<BulkRead>> reads;
        for (size_t i = 0; i < kReads; ++i) {
            reads.push_back(std::make_unique<BulkRead>(camera.handle, kFrame / 16));
            reads.back()->order = &order;
        }
        std::thread::id workerId;
        {
            ClockedThread worker(timeLine, [&] {
                workerId = std::this_thread::get_id();
                for (size_t i = 0; i < kReads; ++i) {
                    EXPECT_EQ(libusb_submit_transfer(reads[i]->usb), 0);
                    if (i >= 7) {
                        EXPECT_TRUE(WaitFor(*reads[i - 7], clock));
                    }
                }
                EXPECT_TRUE(WaitFor(*reads.back(), clock));
            });
            while (!reads.back()->Done())
                EXPECT_EQ(camera.Command(0xA6), 0);
        }
        EXPECT_TRUE(std::ranges::equal(order, reads, {}, {}, &std::unique_ptr<BulkRead>::get));
        const auto byWorker = std::ranges::count(order, workerId, &BulkRead::completedOn);
        EXPECT_GT(byWorker, 20);
        EXPECT_LT(byWorker, 180);
    }
}

TEST_F(Libusb, CancelsLater)
{
    bus.Plug("VSC340MM");
    OpenCamera camera;
    camera.Stream();
    for (const Time delay : {0ns, Time(10s)}) {
        SCOPED_TRACE(delay.count());
        bus.DelayCancel(delay);
        BulkRead read(camera.handle, 40 * kFrame);
        EXPECT_EQ(libusb_submit_transfer(read.usb), 0);
        EXPECT_FALSE(WaitFor(read, clock, 1s));
        EXPECT_EQ(libusb_cancel_transfer(read.usb), 0);
        EXPECT_EQ(libusb_cancel_transfer(read.usb), LIBUSB_ERROR_NOT_FOUND);
        EXPECT_FALSE(read.Done());
        std::fill_n(read.usb->buffer, read.usb->length, uint8_t{0});
        const Time cancelled = clock.Now();
        EXPECT_TRUE(WaitFor(read, clock, 20s));
        EXPECT_EQ(clock.Now() - cancelled, delay);
        EXPECT_EQ(read.usb->status, LIBUSB_TRANSFER_CANCELLED);
        EXPECT_GT(read.usb->actual_length, kFrame);
        const bool written = std::ranges::any_of(read.Buffer(), [](uint8_t b) { return b != 0; });
        EXPECT_EQ(written, delay > 0ns) << "the kernel writes what it received when it is late";
        EXPECT_EQ(libusb_cancel_transfer(read.usb), LIBUSB_ERROR_NOT_FOUND);
    }
}

// Each does something that libusb or the kernel refuses, warns of or crashes on.
TEST_F(Libusb, RecordsMisuse)
{
    static int result = 0;
    const struct {
        std::function<void(OpenCamera &, BulkRead &)> misuse;
        Lines lines;
    } cases[] = {
        {[](OpenCamera &, BulkRead &read) {
             EXPECT_EQ(libusb_submit_transfer(read.usb), LIBUSB_ERROR_BUSY);
         },
         {"libusb_submit_transfer: the transfer is in flight"}},
        {[](OpenCamera &, BulkRead &read) {
             libusb_free_transfer(read.usb);
             read.usb = nullptr;
         },
         {"libusb_free_transfer: the transfer is in flight"}},
        {[](OpenCamera &camera, BulkRead &) {
             EXPECT_EQ(libusb_clear_halt(camera.handle, kImageEndpoint), 0);
         },
         {"libusb_clear_halt: transfers are queued"}},
        {[](OpenCamera &camera, BulkRead &) {
             libusb_device_handle *closed = camera.handle;
             camera.Close();
             libusb_close(closed);
             EXPECT_EQ(libusb_claim_interface(closed, 0), LIBUSB_ERROR_NO_DEVICE);
         },
         {"libusb_close: no such open device", "libusb_claim_interface: no such open device"}},
        {[](OpenCamera &camera, BulkRead &) {
             libusb_unref_device(libusb_get_device(camera.handle));
             libusb_unref_device(libusb_get_device(camera.handle));
             libusb_ref_device(libusb_get_device(camera.handle)); // what the handle holds
         },
         {"libusb_unref_device: the program holds no reference"}},
        {[](OpenCamera &camera, BulkRead &) {
             EXPECT_EQ(libusb_release_interface(camera.handle, 0), 0);
             BulkRead unclaimed(camera.handle, 1024);
             EXPECT_EQ(libusb_submit_transfer(unclaimed.usb), 0);
             camera.Close();
         },
         {"bulk transfer: the interface is not claimed"}},
        {[](OpenCamera &camera, BulkRead &) {
             BulkRead outer(camera.handle, 1024);
             outer.usb->callback = [](libusb_transfer *usb) {
                 result = libusb_control_transfer(usb->dev_handle, 0x40, 0xA9, 0, 0, nullptr, 0, 9);
             };
             EXPECT_EQ(libusb_submit_transfer(outer.usb), 0);
             EXPECT_EQ(libusb_cancel_transfer(outer.usb), 0);
             EXPECT_EQ(camera.Command(0xAA), 0); // handles events
             EXPECT_EQ(result, LIBUSB_ERROR_BUSY);
         },
         {"libusb_control_transfer: called inside a callback"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.lines.front());
        bus.Reset();
        bus.Plug("VSC340MM");
        OpenCamera camera;
        BulkRead read(camera.handle, kFrame);
        EXPECT_EQ(libusb_submit_transfer(read.usb), 0);
        c.misuse(camera, read);
        camera.Close();
        EXPECT_EQ(bus.TakeMisuse(), c.lines);
    }
}

} // namespace
} // namespace vscsim
