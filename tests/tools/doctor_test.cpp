#include "doctor/checks.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace vsctool;

namespace {

constexpr int64_t kMiB = 1 << 20;
constexpr int64_t kPixels = 1936 * 1096; // of the camera

Facts AllWell()
{
    Facts facts;
    CameraFacts camera;
    camera.device.product = 0x470A;
    camera.device.port = "1-2.1";
    camera.device.folder = "/sys/bus/usb/devices/1-2.1/";
    camera.device.node = "/dev/bus/usb/001/007";
    camera.device.speedMbit = "5000";
    camera.device.permitted = true;
    camera.hub = "1-2";
    facts.cameras = {camera};
    facts.rule.file = "/etc/udev/rules.d/60-vsccam.rules";
    facts.rule.source = "/tmp/60-vsccam.rules";
    facts.usbfsLimitMiB = 16;
    facts.availableMemory = 100 * kMiB;
    facts.vsccam = {"1.0.0", "1.0.0", 64};
    facts.libusb = {"1.0.26", "1.0.26", 64};
    facts.folder = {".", "", 1000 * kMiB, 20 * kMiB};
    return facts;
}

TEST(Doctor, FindsWhatIsWrongAndNamesTheRemedy)
{
    for (const Finding &finding : Examine(AllWell()))
        EXPECT_EQ(Word(finding.verdict) + finding.remedy, "ok") << finding.id;
    constexpr Verdict kOk = Verdict::kOk;
    constexpr Verdict kWarn = Verdict::kWarn;
    constexpr Verdict kFail = Verdict::kFail;
    using F = Facts;
    const struct {
        const char *id;
        Verdict verdict;
        const char *remedy;
        void (*change)(Facts &);
    } cases[] = {
        {"cameras", kFail, "list --watch", [](F &f) { f.cameras.clear(); }},
        {"model", kFail, "--models", [](F &f) { f.cameras[0].device.product = 0x1234; }},
        {"model", kFail, "--models", [](F &f) { f.cameras[0].device.product = 0x052A; }},
        {"permission", kFail, "trigger", [](F &f) { f.cameras[0].device.permitted = false; }},
        {"permission", kFail, "-v /dev/bus/usb:",
         [](F &f) { f.cameras[0].device.permitted = f.cameras[0].device.hasNode = false; }},
        {"rule", kWarn, "--reload && sudo udevadm trigger", [](F &f) { f.rule.file.clear(); }},
        {"rule", kWarn, "vsccam-common", [](F &f) { f.rule.file = f.rule.source = ""; }},
        {"group", kOk, "", [](F &f) { f.membership = Membership::kNone; }},
        {"holder", kWarn, "fuser -v /dev/bus/usb/001/007",
         [](F &f) { f.cameras[0].device.driver = "usbfs"; }},
        {"holder", kFail, "echo 1-2.1:1.0 | sudo tee /sys/bus/usb/drivers/uvc/unbind",
         [](F &f) { f.cameras[0].device.driver = "uvc"; }},
        {"speed", kWarn, "lsusb", [](F &f) { f.cameras[0].device.speedMbit = "480"; }},
        {"speed", kFail, "lsusb", [](F &f) { f.cameras[0].device.speedMbit = "12"; }},
        {"speed", kOk, "",
         [](F &f) {
             f.cameras[0].device.speedMbit = "480";
             f.cameras[0].device.product = 0x340A;
         }},
        {"hub", kWarn, "lsusb", [](F &f) { f.cameras[0].others = 1; }},
        {"hub", kWarn, "lsusb", [](F &f) { f.cameras[0].hubHasSupply = false; }},
        {"suspend", kWarn, "tee /sys/bus/usb/devices/1-2.1/power/control",
         [](F &f) { f.cameras[0].mayBeSuspended = true; }},
        {"usbfs-memory", kWarn, "echo 256 |", [](F &f) { f.usbfsLimitMiB = 4; }},
        {"usbfs-memory", kWarn, "echo 256 |", [](F &f) { f.cameras.resize(4, f.cameras[0]); }},
        {"usbfs-memory", kWarn, "echo 300 |", [](F &f) { f.cameras.resize(60, f.cameras[0]); }},
        {"usbfs-memory", kOk, "", [](F &f) { f.usbfsLimitMiB = 0; }},
        {"usbfs-memory", kWarn, "", [](F &f) { f.usbfsLimitMiB.reset(); }},
        {"memory", kFail, "ps ", [](F &f) { f.availableMemory = kPixels * 12 - 1; }},
        {"memory", kWarn, "ps ", [](F &f) { f.availableMemory = kPixels * 16 - 1; }},
        {"versions", kWarn, "libusb-1.0-0", [](F &f) { f.libusb.running = "1.0.9"; }},
        {"versions", kOk, "", [](F &f) { f.libusb.running = "1.0.100"; }},
        {"versions", kWarn, "ldd", [](F &f) { f.vsccam.running = "1.0.1"; }},
        {"time-width", kFail, "build", [](F &f) { f.vsccam.timeBits = 32; }},
        {"clock", kWarn, "timedatectl", [](F &f) { f.clockIsSynchronised = false; }},
        {"clock-chip", kWarn, "fake-hwclock", [](F &f) { f.hasClockChip = false; }},
        {"disk", kFail, "--output", [](F &f) { f.folder.error = "Permission denied"; }},
        {"disk", kFail, "du ", [](F &f) { f.folder.availableBytes = kMiB; }},
        {"disk", kWarn, "du ", [](F &f) { f.folder.availableBytes = 100 * kMiB; }},
        {"disk", kWarn, "--output", [](F &f) { f.folder.bytesPerSecond = kMiB; }},
    };
    for (const auto &c : cases) {
        Facts facts = AllWell();
        c.change(facts);
        const std::vector<Finding> findings = Examine(facts);
        const auto found = std::ranges::find(findings, c.id, &Finding::id);
        ASSERT_NE(found, findings.end()) << c.id;
        EXPECT_EQ(Word(found->verdict), std::string(Word(c.verdict))) << c.id << found->found;
        EXPECT_NE(found->remedy.find(c.remedy), std::string::npos) << c.id << found->remedy;
    }
}

TEST(Doctor, LetsAUserInWhoMayNotOpenTheCameraByWhatIsMissing)
{
    const struct {
        const char *rule;
        Membership membership;
        const char *remedy;
    } cases[] = {{"", Membership::kNone, "cp '/tmp/60-vsccam.rules'"},
                 {"rules", Membership::kNone, "usermod"},
                 {"rules", Membership::kAfterLogin, "newgrp"},
                 {"rules", Membership::kMember, "trigger"}};
    for (const auto &c : cases) {
        Facts facts = AllWell();
        facts.cameras[0].device.permitted = false;
        facts.rule.file = c.rule;
        facts.membership = c.membership;
        const std::vector<Finding> findings = Examine(facts);
        const auto found = std::ranges::find(findings, std::string("permission"), &Finding::id);
        EXPECT_NE(found->remedy.find(c.remedy), std::string::npos) << found->remedy;
    }
}

} // namespace
