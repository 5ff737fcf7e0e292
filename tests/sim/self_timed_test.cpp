#include "sim/host.h"

namespace vscsim {
namespace {

using Bytes = std::vector<uint8_t>;

/// A host of cameras whose sensor makes its own frame pulses.
class SelfTimedHost : public Host {
  public:
    using Host::Host;

    /// Lines of 1390 clocks of 48 MHz, 29 us each.
    void Program(const Format &format, int integrationLines = 100)
    {
        Word(0x302E, 24);
        Word(0x3030, 48);
        Word(0x300A, format.height + 26);
        Word(0x300C, 1390);
        Word(0x3002, format.y + 2);
        Word(0x3004, format.x);
        Word(0x3006, format.y + 1 + format.height);
        Word(0x3008, format.x - 1 + format.width);
        Word(0x3012, integrationLines);
        (void)Out(format.sixteenBit ? 0xAC : 0xAB);
    }
    void Start()
    {
        (void)Out(0xAF);
        (void)Out(0xA9);
        Word(0x301A, 0x10DC);
        camera.ClearHalt(Endpoint(), now);
    }
};

TEST(SelfTimedSensor, TakesItsRhythmFromItsRegisters)
{
    const struct {
        const char *what;
        int address, value;
        double periodMs; // 0: no frames
        uint8_t command = 0;
    } cases[] = {
        {"as programmed", 0x3012, 100, 506 * 1390 / 48e3},
        {"faster clock of the board", 0x3030, 24, 506 * 1390 / 48e3, 0xA4},
        {"slower clock of the board", 0x3030, 48, 506 * 1390 / 48e3, 0xA3},
        {"larger divider", 0x302E, 48, 506 * 1390 / 24e3},
        {"no clock", 0x302E, 0, 0},
        {"longer lines", 0x300C, 2780, 506 * 2780 / 48e3},
        {"more lines", 0x300A, 1012, 1012 * 1390 / 48e3},
        {"long integration", 0x3012, 5000, 5001 * 1390 / 48e3},
        {"streams not", 0x301A, 0x10D8, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SelfTimedHost host({}, "VSC340MM");
        host.Program({});
        host.Start();
        host.Word(c.address, c.value);
        if (c.command != 0)
            (void)host.Out(c.command);
        host.now += 2s;
        (void)host.In(0xAD, 0, 0, 2);
        const uint64_t before = host.camera.FramesProduced();
        host.now += 60s;
        (void)host.In(0xAD, 0, 0, 2);
        const auto frames = static_cast<double>(host.camera.FramesProduced() - before);
        EXPECT_NEAR(frames, c.periodMs == 0 ? 0 : 60e3 / c.periodMs, 1);
    }
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
