#include "sim/host.h"

namespace vscsim {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(Controller, StallsWhatItDoesNotKnow)
{
    Host host;
    for (const int known : {0xA6, 0xA9, 0xAA, 0xAE, 0xAF, 0xB0, 0xB1, 0xB2, 0xB5, 0xB6, 0xBD, 0xBE})
        EXPECT_EQ(host.Out(static_cast<uint8_t>(known)), Outcome::Ok) << known;
    const struct {
        const char *what;
        Outcome outcome;
    } cases[] = {
        {"clock of another controller", host.Out(0xA4)},
        {"a read in the wrong direction", host.Out(0xB7)},
        {"a write in the wrong direction", host.In(0xB6, 0, 0, 1).outcome},
        {"FPGA register that is none", host.Out(0xBD, 256)},
        {"guide line that is none", host.Out(0xB0, 4)},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.outcome, Outcome::Stall) << c.what;
}

class Flash : public testing::Test {
  protected:
    Flash() { host.Out(0xBE, 0); }

    Host host;
};

TEST_F(Flash, IsOutOfReachWhileBusyBeyondItsEndOrBehindTheWideBus)
{
    const auto refused = [this](int page, int length) {
        const bool read = host.In(0xC3, 0, page, length).outcome == Outcome::Stall;
        const bool written =
            host.Out(0xC2, 0, page, Bytes(static_cast<size_t>(length), 0)) == Outcome::Stall;
        EXPECT_EQ(read, written);
        return read;
    };
    EXPECT_FALSE(refused(0xFF8, 2048));
    EXPECT_TRUE(refused(0xFF9, 2048));
    EXPECT_TRUE(refused(0x1000, 1));
    EXPECT_TRUE(refused(0xFFFF, 1));
    EXPECT_TRUE(refused(0, 2049));
    EXPECT_EQ(host.Out(0xC4, 1, 16), Outcome::Stall);

    EXPECT_EQ(host.Out(0xC4, 1, 3), Outcome::Ok);
    EXPECT_TRUE(refused(0, 1));
    EXPECT_EQ(host.Out(0xC4, 1, 4), Outcome::Stall);
    host.now += 1s;
    EXPECT_FALSE(refused(0, 1));

    host.Out(0xBE, 1);
    EXPECT_TRUE(refused(0, 1));
    EXPECT_EQ(host.Out(0xC4, 1, 3), Outcome::Stall);
}

TEST(Fx2, BootsFromASoundImageOnly)
{
    const Bytes image = {0xC2, 0, 0,    0,    0, 0, 0, 0, // header
                         0,    3, 0x12, 0x34, 1, 2, 3,    // record
                         0x80, 1, 0xE6, 0x00};
    Host host({.speed = 0, .firmwareVersion = 1}, "VSC340MM");
    const auto hold = [&host](uint8_t on) { return host.Out(0xA0, 0xE600, 0, {on}); };
    for (const size_t damagedAt : {size_t{0}, size_t{9}, size_t{15}, size_t{18}, image.size()}) {
        SCOPED_TRACE(damagedAt);
        EXPECT_EQ(hold(1), Outcome::Ok);
        EXPECT_EQ(host.Out(0xA9), Outcome::Stall); // nobody is there to answer
        const std::pair<int, size_t> eepromWriter[] = {{0x0000, 2048}, {0x0800, 1427}};
        for (const auto &[address, bytes] : eepromWriter)
            EXPECT_EQ(host.Out(0xA0, address, 0, Bytes(bytes, 0x5A)), Outcome::Ok);
        EXPECT_EQ(hold(0), Outcome::Ok);

        Bytes content = image;
        content.resize(4096);
        const bool sound = damagedAt == image.size();
        if (!sound)
            content[damagedAt] ^= 0xFF;
        EXPECT_EQ(host.Out(0xA9, 0, 0, content), Outcome::Ok);
        host.camera.PowerCycle();
        const ControlReply version = host.In(0xAD, 0, 0, 2);
        EXPECT_EQ(version.outcome, sound ? Outcome::Ok : Outcome::Stall);
        EXPECT_EQ(version.data, sound ? (Bytes{'V', 3}) : Bytes());
    }
}

} // namespace
} // namespace vscsim
