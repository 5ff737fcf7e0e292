#include "sim/host.h"
#include "support/temporary_file.h"

#include <cmath>
#include <cstdio>
#include <fstream>

namespace vscsim {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(Models, AreFoundByNameAndOnlyByName)
{
    for (const ModelFacts &model : AllModels()) {
        EXPECT_EQ(FindModel(model.name), &model);
        EXPECT_EQ(FindModel(model.maker + (' ' + std::string(model.name))), &model);
    }
    EXPECT_EQ(AllModels().size(), 46U);
    EXPECT_EQ(FindModel("haldron vsc056mm-a")->productId, 0x056C);
    EXPECT_EQ(FindModel("vsc470mm-COOL")->productId, 0x470D);
    for (const char *name :
         {"", "KYR", "KYR ", "VSC470", "VSC470MM ", "KYR KYR VSC470MM", "KYR VSC056MM-A"})
        EXPECT_EQ(FindModel(name), nullptr) << name;
    EXPECT_TRUE(std::ranges::is_sorted(
        AllModels(), {}, [](const ModelFacts &model) { return std::string_view(model.name); }));
}

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

/// Degrees as a host makes them of the two bytes.
double Celsius(Host &host)
{
    const Bytes bytes = host.In(0xB3, 0, 0, 2).data;
    const int raw = bytes[1] * 16 + (bytes[0] >> 4);
    return (raw < 2048 ? raw : raw - 4096) / 16.0;
}

TEST(Climate, FollowsDriveAndFanInCooledModelsOnly)
{
    const struct {
        const char *model;
        int driveCode;
        int fan; // register 25
        double celsius;
    } cases[] = {
        {"VSC470MM", 40, 0x00, 20.0},         {"VSC470MM-Cool", 255, 0x00, 20.0},
        {"VSC470MM-Cool", 40, 0x00, -18.0},   {"VSC470MM-Cool", 40, 0x80, 1.0},
        {"VSC470MC-Cool", 0, 0x00, -18.0},    {"VSC470MC-Cool", 0xFFFF, 0x00, 20.0},
        {"VSC470MM-Cool", 148, 0x00, 1.0885},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.model << ", code " << c.driveCode);
        Host host({.speed = 0}, c.model);
        host.Fpga(25, c.fan);
        host.Out(0xB2, c.driveCode);
        double before = Celsius(host);
        for (int second = 0; second < 600; ++second) {
            host.now += 1s;
            const double now = Celsius(host);
            EXPECT_LT(std::abs(now - before), 1.5); // faster changes look like faults of the chip
            before = now;
        }
        EXPECT_NEAR(before, c.celsius, 0.07);
    }
}

class Flash : public testing::Test {
  protected:
    Flash() { host.Out(0xBE, 0); }

    Outcome Erase(int sector)
    {
        const Outcome outcome = host.Out(0xC4, 1, sector);
        while (outcome == Outcome::Ok && host.In(0xC4, 0, sector, 1).data == Bytes{1})
            ++polls;
        return outcome;
    }

    Host host;
    int polls = 0;
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
    EXPECT_EQ(Erase(16), Outcome::Stall);

    EXPECT_EQ(host.Out(0xC4, 1, 3), Outcome::Ok);
    EXPECT_TRUE(refused(0, 1));
    EXPECT_EQ(host.Out(0xC4, 1, 4), Outcome::Stall);
    while (host.In(0xC4, 0, 3, 1).data == Bytes{1}) {
    }
    EXPECT_FALSE(refused(0, 1));

    host.Out(0xBE, 1);
    EXPECT_TRUE(refused(0, 1));
    EXPECT_EQ(host.Out(0xC4, 1, 3), Outcome::Stall);
}

TEST_F(Flash, KeepsItsContentsInAFile)
{
    const std::string file = vsccam::TemporaryFile("vscsim_flash.bin");
    std::remove(file.c_str());
    const CameraOptions options{.speed = 0, .flashFile = file};
    {
        Host first(options);
        first.Out(0xBE, 0);
        first.Out(0xC2, 0, 0x700, {1, 2, 3});
    }
    {
        Host second(options);
        EXPECT_EQ(second.camera.Flash()[0x70001], 2);
        second.Out(0xBE, 0);
        second.Out(0xC2, 0, 0x701, {7});
        second.Out(0xC4, 1, 0);
    }
    EXPECT_EQ(Host(options).camera.Flash()[0x70100], 7);
    std::ifstream kept(file, std::ios::binary | std::ios::ate);
    EXPECT_EQ(kept.tellg(), 1 << 20);
    std::remove(file.c_str());
}

} // namespace
} // namespace vscsim
