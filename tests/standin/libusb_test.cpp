#include "standin/bus_rig.h"

#include <algorithm>
#include <array>
#include <functional>
#include <memory>

namespace vscsim {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;
constexpr int kFrame = OpenCamera::kFrameBytes;

class Libusb : public BusTest {};

TEST_F(Libusb, CarriesASessionFromListToClose)
{
    const int number = bus.Plug("VSC470MM");
    OpenCamera camera;
    camera.Stream();
    BulkRead first(camera.handle, 204'800);
    BulkRead second(camera.handle, kFrame - 204'800);
    for (BulkRead *read : {&first, &second}) {
        EXPECT_EQ(libusb_submit_transfer(read->usb), 0);
        EXPECT_FALSE(read->Done());
    }
    EXPECT_TRUE(WaitFor(second, clock));
    EXPECT_EQ(first.usb->actual_length, 204'800);
    EXPECT_EQ(second.usb->actual_length, kFrame - 204'800);
    (void)bus.TakeTraffic(number);
    EXPECT_EQ(camera.Command(0xAA), 0);
    camera.Close();
    EXPECT_EQ(bus.TakeTraffic(number), (Lines{"cmd AA", "close"}));
}

// A control call of one thread hands back the bulk transfers of another, sometimes, and never out
// of order.
TEST_F(Libusb, HandsCompletionsToAnyThreadThatHandlesEvents)
{
    constexpr size_t kReads = 200;
    for (const uint64_t seed : {1U, 2U, 3U}) {
        SCOPED_TRACE(seed);
        bus.Reset(seed);
        bus.Plug("VSC470MM");
        OpenCamera camera;
        camera.Stream();
        std::vector<BulkRead *> order;
        std::vector<std::unique_ptr<BulkRead>> reads;
        for (size_t i = 0; i < kReads; ++i) {
            reads.push_back(std::make_unique<BulkRead>(camera.handle, kFrame / 4));
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

// Whoever waits for events must notice what others start meanwhile: a transfer, or the stream.
TEST_F(Libusb, NoticesWhatChangesWhileAThreadHandlesEvents)
{
    for (const bool streams : {true, false}) {
        SCOPED_TRACE(streams);
        bus.Reset();
        bus.Plug("VSC470MM");
        OpenCamera camera;
        camera.Stream();
        if (!streams)
            (void)camera.Command(0xAA);
        BulkRead read(camera.handle, kFrame);
        const Time start = clock.Now();
        {
            ClockedThread handler(timeLine, [&] { EXPECT_TRUE(WaitFor(read, clock, 1h, 1h)); });
            clock.WaitForWake(clock.WakeCount(), start + 1s, "the handler to start");
            EXPECT_EQ(libusb_submit_transfer(read.usb), 0);
            if (!streams)
                (void)camera.Command(0xA9);
        }
        EXPECT_EQ(read.usb->status, LIBUSB_TRANSFER_COMPLETED);
        EXPECT_LT(clock.Now(), start + 2s);
    }
}

TEST_F(Libusb, ClosesOnlyAfterTheCallbackThatRuns)
{
    bus.Plug("VSC470MM");
    OpenCamera camera;
    BulkRead read(camera.handle, kFrame);
    struct SlowCallback {
        VirtualClock::Channel channel;
        std::atomic<bool> finished{false};
    } slow{VirtualClock::Channel(timeLine)};
    read.usb->user_data = &slow;
    read.usb->callback = [](libusb_transfer *usb) {
        auto *self = static_cast<SlowCallback *>(usb->user_data);
        self->channel.WaitForWake(0, self->channel.Now() + 5s, "a slow callback");
        self->finished = true;
    };
    ClockedThread handler(timeLine, [&] { EXPECT_FALSE(WaitFor(read, clock, 1s)); });
    EXPECT_EQ(libusb_submit_transfer(read.usb), 0);
    EXPECT_EQ(libusb_cancel_transfer(read.usb), 0);
    slow.channel.WaitForWake(0, clock.Now() + 2s, "the callback to start");
    EXPECT_FALSE(slow.finished);
    camera.Close();
    EXPECT_TRUE(slow.finished);
}

TEST_F(Libusb, CancelsLater)
{
    bus.Plug("VSC470MM");
    OpenCamera camera;
    camera.Stream();
    for (const Time delay : {0ns, Time(10s)}) {
        SCOPED_TRACE(delay.count());
        bus.DelayCancel(delay);
        BulkRead read(camera.handle, 40 * kFrame);
        EXPECT_EQ(libusb_submit_transfer(read.usb), 0);
        EXPECT_FALSE(WaitFor(read, clock, 100ms));
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

TEST_F(Libusb, GivesUpAtTheTimeOutWithWhatHasCome)
{
    bus.Plug("VSC470MM", {.faults = {{.fault = Fault::TimeOutRequest, .request = 0xAD}}});
    OpenCamera camera;
    camera.Stream();

    auto elapsed = [this, start = clock.Now()]() mutable {
        return clock.Now() - std::exchange(start, clock.Now());
    };
    std::vector<uint8_t> buffer(100 * size_t{kFrame});
    int transferred = 0;
    EXPECT_EQ(libusb_bulk_transfer(camera.handle, kImageEndpoint, buffer.data(),
                                   static_cast<int>(buffer.size()), &transferred, 200),
              LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(elapsed(), 200ms);
    EXPECT_GT(transferred, 20 * kFrame);
    EXPECT_LT(transferred, 50 * kFrame);

    EXPECT_EQ(libusb_control_transfer(camera.handle, 0xC0, 0xAD, 0, 0, buffer.data(), 2, 500),
              LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(elapsed(), 500ms);
    EXPECT_EQ(libusb_control_transfer(camera.handle, 0xC0, 0xAD, 0, 0, buffer.data(), 2, 500), 2);
    EXPECT_EQ(elapsed(), 100us);

    EXPECT_EQ(camera.Command(0xAA), 0);
    (void)elapsed();
    BulkRead read(camera.handle, kFrame, 30);
    EXPECT_EQ(libusb_submit_transfer(read.usb), 0);
    EXPECT_TRUE(WaitFor(read, clock));
    EXPECT_EQ(elapsed(), 30ms);
    EXPECT_EQ(read.usb->status, LIBUSB_TRANSFER_TIMED_OUT);
}

TEST_F(Libusb, ReportsWhatEndsATransferAndRecovers)
{
    const struct {
        Fault fault;
        libusb_transfer_status status;
        int result; // of the same as a blocking call
    } cases[] = {
        {Fault::StallFrame, LIBUSB_TRANSFER_STALL, LIBUSB_ERROR_PIPE},
        {Fault::IoErrorFrame, LIBUSB_TRANSFER_ERROR, LIBUSB_ERROR_IO},
        {Fault::Unplug, LIBUSB_TRANSFER_NO_DEVICE, LIBUSB_ERROR_NO_DEVICE},
    };
    std::vector<uint8_t> buffer(kFrame);
    const int length = kFrame;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.status);
        for (const bool blocking : {false, true}) {
            bus.Reset();
            bus.Plug("VSC470MM", {.faults = {{.fault = c.fault}}});
            OpenCamera camera;
            camera.Stream();
            int transferred = 0;
            if (blocking) {
                EXPECT_EQ(libusb_bulk_transfer(camera.handle, kImageEndpoint, buffer.data(), length,
                                               &transferred, 1000),
                          c.result);
            } else {
                BulkRead read(camera.handle, kFrame);
                EXPECT_EQ(libusb_submit_transfer(read.usb), 0);
                EXPECT_TRUE(WaitFor(read, clock));
                EXPECT_EQ(read.usb->status, c.status);
            }
            const bool gone = c.fault == Fault::Unplug;
            EXPECT_EQ(libusb_clear_halt(camera.handle, kImageEndpoint),
                      gone ? LIBUSB_ERROR_NO_DEVICE : 0);
            EXPECT_EQ(libusb_bulk_transfer(camera.handle, kImageEndpoint, buffer.data(), length,
                                           &transferred, 1000),
                      gone ? LIBUSB_ERROR_NO_DEVICE : 0);
        }
    }
}

TEST_F(Libusb, EndsEverythingWhenTheDeviceGoes)
{
    const int number = bus.Plug("VSC470MM");
    OpenCamera camera;
    BulkRead first(camera.handle, kFrame);
    BulkRead second(camera.handle, kFrame);
    EXPECT_EQ(libusb_submit_transfer(first.usb), 0);
    EXPECT_EQ(libusb_submit_transfer(second.usb), 0);
    {
        ClockedThread cable(timeLine, [&] {
            const Time later = clock.Now() + 300ms;
            clock.WaitForWake(clock.WakeCount(), later, "somebody at the cable");
            bus.Unplug(number);
        });
        EXPECT_TRUE(WaitFor(first, clock));
        EXPECT_TRUE(WaitFor(second, clock));
    }
    EXPECT_EQ(first.usb->status, LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_EQ(second.usb->status, LIBUSB_TRANSFER_NO_DEVICE);
    for (const int result :
         {camera.Command(0xA9), libusb_submit_transfer(first.usb),
          libusb_clear_halt(camera.handle, kImageEndpoint), libusb_reset_device(camera.handle),
          libusb_claim_interface(camera.handle, 0), libusb_set_configuration(camera.handle, 1)})
        EXPECT_EQ(result, LIBUSB_ERROR_NO_DEVICE);
}

TEST_F(Libusb, LosesACameraThatBootsAtResetUntilItIsBack)
{
    for (const bool comesBack : {true, false}) {
        SCOPED_TRACE(comesBack);
        bus.Reset();
        CameraOptions options;
        if (!comesBack)
            options.faults = {{.fault = Fault::LostAtReset}};
        bus.Plug("VSC340MM", options);
        OpenCamera camera;
        uint8_t program[] = {1, 2, 3};
        for (uint8_t control : {uint8_t{1}, uint8_t{0}}) {
            EXPECT_EQ(libusb_control_transfer(camera.handle, 0x40, 0xA0, 0xE600, 0, &control, 1, 0),
                      1);
            EXPECT_EQ(libusb_control_transfer(camera.handle, 0x40, 0xA0, 0, 0, program, 3, 0), 3);
        }
        EXPECT_EQ(libusb_reset_device(camera.handle), LIBUSB_ERROR_NOT_FOUND);
        EXPECT_EQ(camera.Command(0xAA), LIBUSB_ERROR_NO_DEVICE);
        EXPECT_EQ(OpenDevice(), nullptr);
        clock.WaitForWake(clock.WakeCount(), clock.Now() + 1s, "the camera to boot");
        libusb_device_handle *const again = OpenDevice();
        EXPECT_EQ(again != nullptr, comesBack);
        libusb_close(again);
    }
}

TEST_F(Libusb, FindsAReplacedCameraAtTheSamePortLastInTheList)
{
    const int number = bus.Plug("VSC470MM");
    bus.PlugForeign(0x1D6B, 3);
    bus.Plug("VSC470MC", {.link = LinkSpeed::High});
    bus.With(number, [](Camera &camera) { camera.Flash()[0x70000] = 0x5A; });
    OpenCamera before;
    const uint8_t address = libusb_get_device_address(libusb_get_device(before.handle));
    bus.Replug(number);
    EXPECT_EQ(before.Command(0xA9), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(bus.With(number, [](Camera &camera) { return camera.Flash()[0x70000]; }), 0x5A);

    libusb_device **list = nullptr;
    ASSERT_EQ(libusb_get_device_list(nullptr, &list), 3);
    libusb_device_descriptor descriptor{};
    EXPECT_EQ(libusb_get_device_descriptor(list[2], &descriptor), 0);
    EXPECT_EQ(descriptor.idVendor, VendorId());
    EXPECT_EQ(descriptor.idProduct, FindModel("VSC470MM")->productId);
    EXPECT_NE(libusb_get_device_address(list[2]), address);
    uint8_t port = 0;
    EXPECT_EQ(libusb_get_port_numbers(list[2], &port, 1), 1);
    EXPECT_EQ(port, number + 1);
    EXPECT_EQ(libusb_get_device_speed(list[1]), LIBUSB_SPEED_HIGH);
    EXPECT_NE(libusb_get_bus_number(list[1]), libusb_get_bus_number(list[2]));
    libusb_free_device_list(list, 1);
}

TEST_F(Libusb, LimitsTheMemoryOfTransfersAsTheKernelDoes)
{
    bus.Plug("VSC470MM");
    OpenCamera camera;
    bus.LimitUsbfsMemory(16 << 20);
    std::vector<std::unique_ptr<BulkRead>> reads;
    for (int i = 0; i < 16; ++i) {
        reads.push_back(std::make_unique<BulkRead>(camera.handle, 1 << 20));
        EXPECT_EQ(libusb_submit_transfer(reads.back()->usb), i < 15 ? 0 : LIBUSB_ERROR_NO_MEM);
    }
    EXPECT_EQ(libusb_cancel_transfer(reads.front()->usb), 0);
    EXPECT_EQ(libusb_submit_transfer(reads.back()->usb), LIBUSB_ERROR_NO_MEM); // not reaped yet
    EXPECT_TRUE(WaitFor(*reads.front(), clock));
    EXPECT_EQ(libusb_submit_transfer(reads.back()->usb), 0);
    camera.Close();
}

TEST_F(Libusb, SharesTheDeviceBetweenHandlesButNotTheInterface)
{
    const int number = bus.Plug("VSC470MM");
    OpenCamera first;
    libusb_device_handle *second = OpenDevice();
    EXPECT_EQ(libusb_claim_interface(second, 0), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_set_configuration(second, 1), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_claim_interface(first.handle, 0), 0);
    EXPECT_EQ(libusb_claim_interface(first.handle, 1), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_release_interface(first.handle, 0), 0);
    EXPECT_EQ(libusb_release_interface(first.handle, 0), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_claim_interface(second, 0), 0);
    libusb_close(second);
    EXPECT_EQ(bus.TakeTraffic(number), (Lines{"open", "configuration 1", "claim 0", "open",
                                              "release 0", "claim 0", "close"}));
}

TEST_F(Libusb, GivesUpTransfersOfAClosedHandle)
{
    bus.Plug("VSC470MM");
    bus.DelayCancel(kNever);
    OpenCamera camera;
    BulkRead queued(camera.handle, kFrame);
    BulkRead cancelled(camera.handle, kFrame);
    EXPECT_EQ(libusb_submit_transfer(queued.usb), 0);
    EXPECT_EQ(libusb_submit_transfer(cancelled.usb), 0);
    EXPECT_EQ(libusb_cancel_transfer(cancelled.usb), 0);
    EXPECT_FALSE(WaitFor(cancelled, clock, 10s));
    EXPECT_EQ(bus.LiveObjects().transfersInFlight, 2);
    camera.Close();
    EXPECT_EQ(bus.LiveObjects().transfersInFlight, 0);
    EXPECT_FALSE(WaitFor(queued, clock, 10s));
    EXPECT_EQ(queued.usb->dev_handle, nullptr);
}

TEST_F(Libusb, FailsTheCallThatATestNames)
{
    const int number = bus.Plug("VSC470MM");
    OpenCamera camera;
    (void)bus.TakeTraffic(number);
    const auto command = [&] { return camera.Command(0xA9); };
    const auto clear = [&] { return libusb_clear_halt(camera.handle, kImageEndpoint); };

    bus.FailCalls(bus.Calls() + 1, 2, LIBUSB_ERROR_IO);
    EXPECT_EQ((std::array{command(), command(), clear(), command()}),
              (std::array{0, int{LIBUSB_ERROR_IO}, int{LIBUSB_ERROR_IO}, 0}));
    EXPECT_EQ(bus.TakeTraffic(number), (Lines{"cmd A9", "cmd A9"}));

    bus.FailCalls(bus.Calls("libusb_clear_halt") + 1, UINT64_MAX, LIBUSB_ERROR_BUSY,
                  "libusb_clear_halt");
    EXPECT_EQ((std::array{clear(), command(), clear(), clear(), command()}),
              (std::array{0, 0, int{LIBUSB_ERROR_BUSY}, int{LIBUSB_ERROR_BUSY}, 0}));

    const Time start = clock.Now();
    bus.FailCalls(bus.Calls(), 1, LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(camera.Command(0xA9, 200), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(clock.Now() - start, 200ms);

    bus.FailCalls(bus.Calls(), 1, LIBUSB_ERROR_NO_MEM);
    EXPECT_EQ(libusb_alloc_transfer(0), nullptr);

    bus.UnplugAtCall(number, bus.Calls() + 1);
    EXPECT_EQ((std::array{command(), command()}), (std::array{0, int{LIBUSB_ERROR_NO_DEVICE}}));
}

TEST_F(Libusb, ReturnsFromEventHandlingWhenInterrupted)
{
    ClockedThread handler(timeLine, [this] {
        timeval time{.tv_sec = 3600, .tv_usec = 0};
        EXPECT_EQ(libusb_handle_events_timeout(nullptr, &time), 0);
        EXPECT_LT(clock.Now(), VirtualClock::kStart + 10s);
    });
    clock.WaitForWake(clock.WakeCount(), clock.Now() + 1s, "the handler to start");
    libusb_interrupt_event_handler(nullptr);
}

TEST_F(Libusb, CountsReferencesOfTheDefaultContext)
{
    EXPECT_EQ(libusb_init(nullptr), 0);
    EXPECT_EQ(bus.LiveObjects().contextReferences, 2);
    libusb_exit(nullptr);
    libusb_exit(nullptr);
    libusb_device **list = nullptr;
    EXPECT_LT(libusb_get_device_list(nullptr, &list), 0);
    libusb_exit(nullptr);
    EXPECT_EQ(bus.TakeMisuse(), (Lines{"libusb_get_device_list: libusb is not initialised",
                                       "libusb_exit: libusb is not initialised"}));
    EXPECT_EQ(libusb_init(nullptr), 0);
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
        {[](OpenCamera &camera, BulkRead &) { EXPECT_EQ(libusb_reset_device(camera.handle), 0); },
         {"libusb_reset_device: transfers are queued"}},
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
        bus.Plug("VSC470MM");
        OpenCamera camera;
        BulkRead read(camera.handle, kFrame);
        EXPECT_EQ(libusb_submit_transfer(read.usb), 0);
        c.misuse(camera, read);
        camera.Close();
        EXPECT_EQ(bus.TakeMisuse(), c.lines);
    }
}

// The same on the system's clock.
TEST(LibusbInRealTime, CarriesASession)
{
    Bus &bus = Bus::Instance();
    bus.Reset();
    bus.Plug("VSC470MM");
    SteadyClock clock;
    EXPECT_EQ(libusb_init(nullptr), 0);
    {
        OpenCamera camera;
        camera.Stream();
        for (int i = 0; i < 5; ++i) {
            BulkRead read(camera.handle, kFrame);
            EXPECT_EQ(libusb_submit_transfer(read.usb), 0);
            EXPECT_EQ(camera.Command(0xA6), 0);
            EXPECT_TRUE(WaitFor(read, clock));
            EXPECT_EQ(read.usb->actual_length, kFrame);
        }
    }
    libusb_exit(nullptr);
    EXPECT_EQ(bus.TakeMisuse(), Lines());
    bus.Reset();
}

} // namespace
} // namespace vscsim
