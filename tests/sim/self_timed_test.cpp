#include "sim/host.h"

#include <cmath>

namespace vscsim {
namespace {

using Bytes = std::vector<uint8_t>;

FaultPlan Plan(std::string_view text)
{
    return ParseFaultPlan(text, nullptr).value_or(FaultPlan{});
}

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

TEST(SelfTimedSensor, SendsTheRegionMarkedAtItsHead)
{
    const struct {
        const char *model;
        Host::Format format;
        bool highByteFirst;
    } cases[] = {
        {"VSC340MM", {.width = 1280, .height = 960}, false},
        {"VSC340MC", {.x = 64, .y = 30, .width = 320, .height = 240, .sixteenBit = true}, true},
        {"VSC350MM", {.width = 1280, .height = 1024, .sixteenBit = true}, true},
        {"VSC056MM", {.x = 2, .y = 4, .width = 750, .height = 476, .sixteenBit = true}, false},
        {"VSC052MC", {.width = 728, .height = 512}, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.model);
        SelfTimedHost host({.speed = 0}, c.model);
        EXPECT_EQ(host.Endpoint(), 0x82);
        EXPECT_EQ(host.camera.BulkPacketSize(), 512U);
        host.Program(c.format);
        host.Start();
        for (uint32_t number = 0; number < 2; ++number) {
            const Bytes frame = host.Read(c.format.Bytes());
            ASSERT_EQ(frame.size(), c.format.Bytes());
            EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 4), (Bytes{0x11, 0xAA, 0x00, 0xBB}));
            const size_t sampleBytes = c.format.sixteenBit ? 2 : 1;
            for (size_t at = 4; at < frame.size(); at += sampleBytes) {
                const int place = static_cast<int>(at / sampleBytes);
                const int sample = PatternSample(number, c.format.x + place % c.format.width,
                                                 c.format.y + place / c.format.width);
                const int high = frame[c.highByteFirst || sampleBytes == 1 ? at : at + 1];
                ASSERT_EQ(high, sample >> 8) << place;
                if (sampleBytes == 2) {
                    ASSERT_EQ(frame[c.highByteFirst ? at + 1 : at], sample & 0xFF) << place;
                }
            }
        }
    }
}

TEST(SelfTimedSensor, IsFramedByTheFpgaWhereThereIsOne)
{
    const Host::Format format{.x = 16, .y = 8, .width = 640, .height = 480};
    SelfTimedHost host({.speed = 0}, "VSC340MM-S");
    host.Program(format);
    host.Start();
    EXPECT_TRUE(host.Read(format.Bytes(), 100ms).empty()); // the FPGA does not run yet
    host.Fpga(4, format.width, 2);
    host.Fpga(8, format.height, 2);
    host.Fpga(10, 0x01);
    host.Fpga(0, 0x21);
    EXPECT_TRUE(ShowsPattern(host.Read(format.Bytes()), format, 0));
    host.Fpga(0, 0xE1);
    host.Fpga(11, 1);
    EXPECT_TRUE(host.Read(format.Bytes(), 2s).empty()); // the gate is open
    host.Fpga(11, 0);
    EXPECT_TRUE(ShowsPattern(host.Read(format.Bytes()), format, 1));
}

TEST(SelfTimedSensor, TakesItsRhythmFromItsRegisters)
{
    const struct {
        const char *what;
        int address, value;
        double periodMs; // 0: no frames
    } cases[] = {
        {"as programmed", 0x3012, 100, 506 * 1390 / 48e3},
        {"slower clock", 0x3030, 24, 506 * 1390 / 24e3},
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
        host.now += 2s;
        (void)host.In(0xAD, 0, 0, 2);
        const uint64_t before = host.camera.FramesProduced();
        host.now += 60s;
        (void)host.In(0xAD, 0, 0, 2);
        const auto frames = static_cast<double>(host.camera.FramesProduced() - before);
        EXPECT_NEAR(frames, c.periodMs == 0 ? 0 : 60e3 / c.periodMs, 1);
    }
}

TEST(SelfTimedSensor, GoesOnExposingWhileItsClockStandsStill)
{
    const Host::Format format{.width = 320, .height = 240, .sixteenBit = true};
    for (const double speed : {1.0, 0.0}) {
        SCOPED_TRACE(speed);
        const auto level = [&format, speed](Time stopped) {
            SelfTimedHost host({.scene = Scene::Sky, .speed = speed}, "VSC340MM");
            host.Program(format, 0x2FFF);
            host.Start();
            (void)host.Out(0xAE);
            EXPECT_TRUE(host.Read(format.Bytes(), stopped).empty());
            (void)host.Out(0xAF);
            const Bytes frame = host.Read(format.Bytes(), 500ms); // 0x2FFF lines take 356 ms
            EXPECT_EQ(frame.size(), format.Bytes());
            std::vector<int> samples;
            for (size_t at = 4; at + 1 < frame.size(); at += 2)
                samples.push_back(frame[at] << 8 | frame[at + 1]);
            std::ranges::nth_element(samples, samples.begin() + std::ssize(samples) / 2);
            return samples[samples.size() / 2] - 40 * 16; // black
        };
        const double perSecond = level(4s) / 4.356;
        EXPECT_GT(perSecond, 100);
        EXPECT_NEAR(level(8s) / 8.356, perSecond, perSecond / 50);
    }
}

TEST(SelfTimedSensor, TellsItsTemperatureAndBlackLevels)
{
    SelfTimedHost host({.speed = 0}, "VSC350MM");
    const auto word = [&host](int address) {
        const Bytes bytes = host.In(0xA7, address, 0, 2).data;
        return bytes[0] << 8 | bytes[1];
    };
    host.Word(0x30B2, 1);                                      // read-only
    const double slope = 15.0 / (word(0x30C6) - word(0x30C8)); // degrees a step
    EXPECT_NEAR(55 + (word(0x30B2) - word(0x30C8)) * slope, 20.0, 0.5);
    EXPECT_GE(slope, 0.5);
    EXPECT_LE(slope, 1.0);
    for (const int address : {0x60, 0x61, 0x63, 0x64})
        EXPECT_NE(word(address), 0);
}

TEST(SelfTimedSensor, FailsAsPlannedAtItsOnlyMark)
{
    SelfTimedHost host({.speed = 0, .faults = Plan("bad-head@1,bad-tail@2,short-frame@3")},
                       "VSC340MM");
    host.Program({});
    host.Start();
    const int heads[] = {0xAA11, 0x55EE, 0xAA11, 0xAA11};
    for (const int head : heads)
        EXPECT_EQ(Word(host.Read(640 * 480), 0), head);
    EXPECT_EQ(host.Read(640 * 480).size(), 640U * 480);
}

/// An FX2 whose processor can be held and loaded.
class Fx2 : public testing::Test {
  protected:
    Outcome Hold(bool on) { return host.Out(0xA0, 0xE600, 0, {static_cast<uint8_t>(on ? 1 : 0)}); }
    void Load(const std::vector<std::pair<int, size_t>> &pieces)
    {
        EXPECT_EQ(Hold(true), Outcome::Ok);
        EXPECT_EQ(host.Out(0xA9), Outcome::Stall); // nobody is there to answer
        for (const auto &[address, bytes] : pieces)
            EXPECT_EQ(host.Out(0xA0, address, 0, Bytes(bytes, 0x5A)), Outcome::Ok);
        EXPECT_EQ(Hold(false), Outcome::Ok);
    }
    void LoadEepromWriter() { Load({{0x0000, 2048}, {0x0800, 1427}}); }
    /// 0: no firmware answers.
    int Version()
    {
        const ControlReply reply = host.In(0xAD, 0, 0, 2);
        return reply.outcome == Outcome::Ok ? reply.data.at(1) : 0;
    }

    const Bytes image = {0xC2, 0, 0,    0,    0, 0, 0, 0, // header
                         0,    3, 0x12, 0x34, 1, 2, 3,    // record
                         0x80, 1, 0xE6, 0x00};
    Host host{{.speed = 0, .firmwareVersion = 1}, "VSC340MM"};
};

TEST_F(Fx2, KeepsTheFirmwareThatIsWrittenToItsEeprom)
{
    EXPECT_EQ(Version(), 1);
    EXPECT_EQ(host.camera.Reset(host.now), AfterReset::SameDevice);
    LoadEepromWriter();
    EXPECT_EQ(Version(), 0);
    EXPECT_EQ(host.camera.Ram(0x0800 + 1426, 2), (Bytes{0x5A, 0}));
    EXPECT_EQ(host.Out(0xA9, 0, 0, image), Outcome::Ok);
    EXPECT_EQ(host.Out(0xA9, 0xFFFF, 0, {1, 2}), Outcome::Stall);
    EXPECT_EQ(host.In(0xA9, 0x0001, 0, 4096).data.size(), 4096U);
    EXPECT_EQ(host.In(0xA9, 0x000A, 0, 2).data, (Bytes{0x12, 0x34}));
    EXPECT_EQ(host.camera.Eeprom()[0x0B], 0x34);

    Load({{0x0000, 1023}, {0x0400, 1023}});
    EXPECT_EQ(Version(), 3);
    EXPECT_EQ(host.camera.Reset(host.now), AfterReset::NewDevice);
    host.camera.PowerCycle();
    EXPECT_EQ(Version(), 3);
    EXPECT_EQ(host.camera.Reset(host.now), AfterReset::SameDevice);
    EXPECT_EQ(Hold(true), Outcome::Ok);
    EXPECT_EQ(host.camera.Reset(host.now), AfterReset::NewDevice);
}

TEST_F(Fx2, BootsNothingFromADamagedImage)
{
    for (size_t at : {0U, 9U, 15U, 18U}) {
        Bytes damaged = image;
        damaged[at] ^= 0xFF;
        LoadEepromWriter();
        EXPECT_EQ(host.Out(0xA9, 0, 0, Bytes(4096, 0)), Outcome::Ok);
        EXPECT_EQ(host.Out(0xA9, 0, 0, damaged), Outcome::Ok);
        host.camera.PowerCycle();
        EXPECT_EQ(Version(), 0) << at;
        EXPECT_EQ(host.camera.Reset(host.now), AfterReset::SameDevice);
    }
}

TEST(Fx3, TakesProgramsIntoRamAndEeprom)
{
    Host host;
    EXPECT_EQ(host.Out(0xA0, 0x3FFE, 0x4001, {1, 2, 3}), Outcome::Ok);
    EXPECT_EQ(host.In(0xA0, 0x3FFF, 0x4001, 3).data, (Bytes{2, 3, 0}));
    EXPECT_EQ(host.camera.Ram(0x40013FFE, 1), Bytes{1});
    EXPECT_EQ(host.camera.ProgramEntry(), std::nullopt);
    EXPECT_EQ(host.Out(0xA0, 0x0100, 0x4001), Outcome::Ok);
    EXPECT_EQ(host.camera.ProgramEntry(), 0x40010100U);

    EXPECT_EQ(host.Out(0xBA, 5, 0xFFC0, Bytes(64, 7)), Outcome::Ok);
    EXPECT_EQ(host.In(0xBB, 5, 0xFFBF, 2).data, (Bytes{0xFF, 7}));
    EXPECT_EQ(host.camera.Eeprom()[0x5FFFF], 7);
    EXPECT_EQ(host.Out(0xBA, 7, 0xFFC1, Bytes(64, 7)), Outcome::Stall);
    EXPECT_EQ(host.In(0xBB, 8, 0, 1).outcome, Outcome::Stall);
}

TEST(Fx3, FailsAsPlannedAtAnswersAndResets)
{
    Host host({.speed = 0, .faults = Plan("corrupt-answer:a0@1x2=1,lost-at-reset@1")});
    EXPECT_EQ(host.Out(0xA0, 0, 0, {0x0F, 0x0F}), Outcome::Ok);
    for (const int second : {0xF0, 0xF0, 0x0F})
        EXPECT_EQ(host.In(0xA0, 0, 0, 2).data, (Bytes{0x0F, static_cast<uint8_t>(second)}));
    EXPECT_EQ(host.camera.Reset(host.now), AfterReset::SameDevice);
    EXPECT_EQ(host.camera.Reset(host.now), AfterReset::Gone);
    EXPECT_EQ(host.Out(0xA9), Outcome::NoDevice);
}

} // namespace
} // namespace vscsim
