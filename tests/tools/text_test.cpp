#include "camera/camera.h"
#include "exposure_plan.h"
#include "failure.h"
#include "fits_writer.h"
#include "name_pattern.h"
#include "product_list.h"
#include "units.h"
#include "usb_devices.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>

using namespace vsctool;
using namespace std::chrono_literals;

namespace {

/// Exit code of what an action throws; 0 when it throws nothing.
int CodeOf(const std::function<void()> &action)
{
    try {
        action();
    } catch (const Failure &failure) {
        return failure.Code();
    }
    return 0;
}

constexpr int kUsage = static_cast<int>(Exit::kUsage);

TEST(Products, AreNamedAsTheCamerasThemselvesAre)
{
    EXPECT_EQ(vsccam::Products().size(), vscsim::AllModels().size());
    for (const vscsim::ModelFacts &model : vscsim::AllModels())
        EXPECT_EQ(ModelOf(model.productId), fmt::format("{} {}", model.maker, model.name));
    EXPECT_EQ(ModelOf(0x470E), "");
}

} // namespace

TEST(Units, TimesAreReadWithTheirUnitAndComeBackTheSame)
{
    const struct {
        const char *text;
        Microseconds time;
    } cases[] = {{"250us", 250us}, {"20ms", 20ms}, {"1.5s", 1500ms}, {"2", 2s},
                 {"2min", 2min},   {"1h", 1h},     {"0", 0s},        {".5s", 500ms},
                 {"1e3us", 1ms},   {"0.4us", 0us}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(ParseTime(c.text), c.time);
        EXPECT_EQ(ParseTime(FormatTime(c.time)), c.time);
    }
    for (const char *wrong : {"", "s", "-1s", "1 s", "1sec", "1s2", "nan", "inf", "1e300h"})
        EXPECT_EQ(CodeOf([&] { ParseTime(wrong); }), kUsage) << wrong;
}

TEST(Units, RegionsNeedAllFourNumbers)
{
    EXPECT_EQ(ParseRegion("640x480+100+50"), (Region{640, 480, 100, 50}));
    for (const char *wrong : {"", "640x480", "640x480+1", "640x480+1+2+3", "0x480+1+2",
                              "640x-2+0+0", "640x480+-1+0", "640*480+0+0", "99999999999x2+0+0"})
        EXPECT_EQ(CodeOf([&] { ParseRegion(wrong); }), kUsage) << wrong;
}

TEST(NamePattern, ExpandsFieldsKeepsSlashesOutAndNumbersEverySeries)
{
    const NameFields fields = {.sequence = 7,
                               .object = "M 42/core",
                               .type = "light",
                               .model = "KYR VSC470MC",
                               .format = "raw16",
                               .exposure = 1500ms,
                               .gain = 200,
                               .offset = 10,
                               .bin = 2,
                               .start = UtcTime(1s)};
    const struct {
        const char *pattern;
        bool isSeries;
        const char *name;
    } cases[] = {
        {"m42_{seq:05}.fit", true, "m42_00007.fit"},
        {"m42.fit", false, "m42.fit"},
        {"m42.fit", true, "m42_00007.fit"},
        {"night.1/{object}.fits", true, "night.1/M_42_core_00007.fits"},
        {"{type}_{exposure}_g{gain}o{offset}b{bin}.fit", false, "light_1.5s_g200o10b2.fit"},
        {"{model}_{format}_{date}_{time}.fit", false, "KYR_VSC470MC_raw16_1970-01-01_000001.fit"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(NamePattern(c.pattern, c.isSeries).Expand(fields), c.name);
    for (const char *wrong : {"", "m42", "m42.png", "{nothing}.fit", "{seq.fit", "{object:05}.fit"})
        EXPECT_EQ(CodeOf([&] { NamePattern(wrong, false); }), kUsage) << wrong;
}

TEST(FitsKey, TakesItsTypeFromTheValueAndRefusesWhatAHeaderCannotHold)
{
    EXPECT_EQ(std::get<std::string>(ParseFitsKey("filter=Ha=7nm").value), "Ha=7nm");
    EXPECT_EQ(ParseFitsKey("filter=Ha").name, "FILTER");
    EXPECT_EQ(std::get<int>(ParseFitsKey("FOCUSPOS=-1200").value), -1200);
    EXPECT_EQ(std::get<double>(ParseFitsKey("BIG=3000000000").value), 3e9);
    EXPECT_EQ(std::get<bool>(ParseFitsKey("GUIDED=T").value), true);
    EXPECT_EQ(std::get<std::string>(ParseFitsKey("NOTE=nan").value), "nan");
    for (const std::string wrong : {"", "=1", "FILTER", "FILTERNAME=1", "FIL TER=1", "NAXIS1=5",
                                    "BZERO=0", "END=1", "NOTE=\xC3\xA9", "F\xC3\xA9=1"})
        EXPECT_EQ(CodeOf([&] { ParseFitsKey(wrong); }), kUsage) << wrong;
    EXPECT_EQ(CodeOf([] { ParseFitsKey(fmt::format("NOTE={:x>69}", "")); }), kUsage);
}

TEST(ExposurePlan, FollowsTheStepsOfEachFamilyToTheirLimits)
{
    const struct {
        const char *model;
        bool usb3Port;
        Microseconds set, planned;
    } cases[] = {
        {"KYR VSC470MC-Cool", true, 999'999us, 999'999us}, // by the sensor
        {"KYR VSC065MC-Cool", false, 1'001ms, 1s},
        {"KYR VSC083MC-Cool", true, 59'999ms, 59'800ms},
        {"KYR VSC2800MM", true, 1'999'999us, 1'999ms},
        {"KYR VSC2800MM", true, 2'050ms, 2'100ms},
        {"KYR VSC340MC-S", true, 3'795'627us, 3'795'627us},
        {"KYR VSC340MC-S", true, 3'795'628us, 3'600ms},
        {"KYR VSC340MC-S", false, 4s, 4s},
        {"HALDRON VSC056MM-A", false, 12'345'678us, 12'345ms},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(fmt::format("{} {}", c.model, c.set.count()));
        EXPECT_EQ(PlannedExposure(c.model, c.usb3Port, c.set), c.planned);
    }
}

TEST(SelectCamera, FindsByIndexAndModelAndPrefersAUsableOne)
{
    const auto onBus = [](bool permitted, bool busy, const char *port = "1-1") {
        UsbDevice device;
        device.port = port;
        device.permitted = permitted;
        device.driver = busy ? "usbfs" : "";
        return device;
    };
    const std::vector<CameraEntry> cameras = {
        {0, "KYR VSC052MC-A", onBus(true, false)},
        {1, "KYR VSC470MM", onBus(false, false)},
        {2, "KYR VSC470MC", onBus(true, true)},
        {3, "KYR VSC430MC-Cool", onBus(true, false, "2-1.4")},
    };
    const struct {
        const char *selector;
        int index;
    } found[] = {
        {"", 3},         {"2", 2}, {"VSC470MM", 1}, {"kyr vsc470mc", 2}, {"vsc430mc-cool", 3},
        {"USB:2-1.4", 3}};
    for (const auto &c : found)
        EXPECT_EQ(SelectCamera(cameras, c.selector).index, c.index) << c.selector;

    const auto codeFor = [&](const char *selector) {
        return CodeOf([&] { SelectCamera(cameras, selector); });
    };
    EXPECT_EQ(codeFor("4"), static_cast<int>(Exit::kNoCamera));
    EXPECT_EQ(codeFor("VSC470"), static_cast<int>(Exit::kNoCamera));
    EXPECT_EQ(codeFor("usb:2-1"), static_cast<int>(Exit::kNoCamera));
    EXPECT_EQ(codeFor("usb:"), static_cast<int>(Exit::kUsage));
    EXPECT_EQ(CodeOf([] { SelectCamera({}, ""); }), static_cast<int>(Exit::kNoCamera));
    EXPECT_EQ(SelectCamera({cameras[1]}, "").index, 1); // opening it tells what is wrong
}
