#include "sim/host.h"

namespace vscsim {
namespace {

TEST(Stream, NothingComesUnlessEverySwitchIsOn)
{
    const struct {
        const char *what;
        void (*spoil)(Host &);
    } cases[] = {
        {"data path", [](Host &host) { host.Out(0xAA); }},
        {"sensor standby", [](Host &host) { host.Sony(0x3000, 1); }},
        {"sensor clock", [](Host &host) { host.Out(0xAE); }},
        {"FPGA reset", [](Host &host) { host.Fpga(0, 0), host.Fpga(0, 0x21); }},
        {"FPGA stopped", [](Host &host) { host.Fpga(0, 0x31); }},
        {"FPGA waits", [](Host &host) { host.Fpga(0, 0x30); }},
        {"no width", [](Host &host) { host.Fpga(4, 0, 2); }},
        {"no line length", [](Host &host) { host.Fpga(19, 0, 2); }},
        {"unknown rate", [](Host &host) { host.Sony(0x3009, 0x0F); }},
        {"shut gate", [](Host &host) { host.Fpga(0, 0xE1); }},
        {"reset", [](Host &host) { host.camera.Reset(host.now); }},
    };
    for (const double speed : {0.0, 1.0})
        for (const auto &c : cases) {
            SCOPED_TRACE(c.what);
            Host host({.speed = speed});
            host.Program({});
            host.Start();
            EXPECT_EQ(host.Read(640 * 480).size(), 640U * 480U);
            c.spoil(host);
            host.now += 1s; // a frame that was under way when the registers changed
            host.camera.ClearHalt(host.Endpoint(), host.now);
            (void)host.Read(640 * 480);
            EXPECT_TRUE(host.Read(640 * 480).empty());
        }
}

TEST(Stream, NoRegisterAndNoSpeedMakesFramesWithoutEnd)
{
    Host flying({.speed = 1e12});
    flying.Program({});
    flying.Start();
    flying.camera.Advance(flying.now + 1s);
    EXPECT_NEAR(static_cast<double>(flying.camera.Frames().produced), 1e5, 1);

    Host hurried({.speed = 1.0}, "VSC340MM");
    constexpr std::pair<int, int> kRegisters[] = {{0x302E, 1}, {0x3030, 0xFFFF}, {0x3006, 2},
                                                  {0x300A, 0}, {0x3012, 0},      {0x300C, 0x58},
                                                  {0x301A, 4}};
    for (const auto &[address, value] : kRegisters)
        hurried.Word(address, value);
    (void)hurried.Out(0xA9);
    hurried.camera.Advance(hurried.now + 1ms);
    EXPECT_EQ(hurried.camera.Frames().produced, 0U);
}

TEST(Stream, AStoppedStreamLeavesNothingToTheNext)
{
    const Host::Format format;
    const struct {
        const char *what;
        void (*between)(Host &);
        int number; // of the frame that comes next
    } cases[] = {
        {"halt cleared", [](Host &host) { host.camera.ClearHalt(host.Endpoint(), host.now); }, 1},
        {"data path off and on", [](Host &host) { host.Out(0xAA), host.Out(0xA9); }, 0},
        {"reset", [](Host &host) { host.camera.Reset(host.now), host.Start(); }, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Host host;
        host.Program(format);
        host.Start();
        EXPECT_EQ(host.Read(4096).size(), 4096U); // the rest is left behind
        c.between(host);
        const std::vector<uint8_t> frame = host.Read(format.Bytes());
        ASSERT_EQ(frame.size(), format.Bytes());
        EXPECT_EQ(Word(frame, 0), 0x5A7E);
        EXPECT_EQ(Word(frame, 2), c.number);
        EXPECT_EQ(Word(frame, frame.size() - 4), c.number);
    }
}

TEST(Stream, PacketsDecideHowTransfersEnd)
{
    std::vector<uint8_t> room(1 << 20);
    Host host;
    host.Program({.width = 648, .height = 10}); // 6 packets and 336 bytes
    host.Start();
    const auto transfer = [&](size_t bytes) {
        return host.Transfer(std::span(room).first(bytes), 1s);
    };
    EXPECT_EQ(transfer(room.size()).bytes, 6480U); // a short packet ends it

    const BulkReply odd = transfer(1500); // one packet fits, the next does not
    EXPECT_EQ(odd.outcome, Outcome::Overflow);
    EXPECT_EQ(odd.bytes, 1024U);
    EXPECT_EQ(transfer(room.size()).bytes, 6480U - 2048U); // that packet is lost

    const BulkReply whole = transfer(6480);
    EXPECT_EQ(whole.outcome, Outcome::Ok);
    EXPECT_EQ(whole.bytes, 6480U);

    host.Program({.width = 1280, .height = 4}); // 5 packets: frames flow into one another
    EXPECT_EQ(transfer(7168).bytes, 7168U);
    EXPECT_EQ(Word(room, 0), 0x5A7E);
    EXPECT_EQ(Word(room, 5120), 0x5A7E);
    EXPECT_EQ(transfer(3072).bytes, 3072U);
    EXPECT_EQ(Word(room, 3070), 0x3CF0);

    EXPECT_EQ(host.camera.Bulk(0x82, room, 0, host.now).outcome, Outcome::Stall);
}

} // namespace
} // namespace vscsim
