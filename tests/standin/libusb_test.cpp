#include "standin/bus_rig.h"

namespace vscsim {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

class Libusb : public BusTest {};

TEST_F(Libusb, CarriesASessionFromListToClose)
{
    const int number = bus.Plug("VSC470MM");
    OpenCamera camera;
    camera.Stream();
    BulkRead first(camera.handle, 204'800);
    BulkRead second(camera.handle, OpenCamera::kFrameBytes - 204'800);
    for (BulkRead *read : {&first, &second}) {
        EXPECT_EQ(libusb_submit_transfer(read->usb), 0);
        EXPECT_FALSE(read->Done());
    }
    EXPECT_TRUE(WaitFor(second, clock));
    EXPECT_EQ(first.usb->actual_length, 204'800);
    EXPECT_EQ(second.usb->actual_length, OpenCamera::kFrameBytes - 204'800);
    (void)bus.TakeTraffic(number);
    EXPECT_EQ(camera.Command(0xAA), 0);
    camera.Close();
    EXPECT_EQ(bus.TakeTraffic(number), (Lines{"cmd AA", "close"}));
}

} // namespace
} // namespace vscsim
