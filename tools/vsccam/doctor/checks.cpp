#include "doctor/checks.h"

#include "host_memory.h"
#include "product_list.h"
#include "usbfs_memory.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace vsctool {
namespace {

constexpr int64_t kMiB = 1 << 20;

Finding Ok(std::string found)
{
    return {Verdict::kOk, std::move(found), ""};
}

Finding Warn(std::string found, std::string remedy)
{
    return {Verdict::kWarn, std::move(found), std::move(remedy)};
}

Finding Fail(std::string found, std::string remedy)
{
    return {Verdict::kFail, std::move(found), std::move(remedy)};
}

// ------------------------------------------------------------------------------ of each camera

const vsccam::Product *ProductOf(const CameraFacts &camera)
{
    return vsccam::FindProduct(camera.device.product);
}

int64_t PixelsOf(const CameraFacts &camera)
{
    const vsccam::Product *product = ProductOf(camera);
    return product ? int64_t{product->sensorWidth} * product->sensorHeight : 0;
}

Finding CheckModel(const CameraFacts &camera, const Facts &)
{
    constexpr const char *kOpened = "vsccam list --models";
    const vsccam::Product *product = ProductOf(camera);
    if (!product)
        return Fail(fmt::format("product {:04x} is unknown to this version", camera.device.product),
                    kOpened);
    if (product->IsVariant())
        return Fail(fmt::format("{} is an edition that cannot be opened", product->name), kOpened);
    return Ok(
        fmt::format("{} ({:04x}:{:04x})", product->name, VSCCAM_VENDOR_ID, product->productId));
}

Finding CheckPermission(const CameraFacts &camera, const Facts &facts)
{
    // Devices of this kind have the number 189.
    constexpr const char *kShareNodes = "docker run -v /dev/bus/usb:/dev/bus/usb "
                                        "--device-cgroup-rule='c 189:* rmw' ...";
    const std::string &node = camera.device.node;
    if (camera.device.permitted)
        return Ok(fmt::format("{} can be read and written", node));
    if (!camera.device.hasNode)
        return Fail(fmt::format("{} is missing: a container needs /dev/bus/usb", node),
                    kShareNodes);
    return Fail(fmt::format("{} may not be read and written", node),
                GainPermission(facts.rule, facts.membership));
}

Finding CheckHolder(const CameraFacts &camera, const Facts &)
{
    const UsbDevice &device = camera.device;
    const std::string names = fmt::format("{}", fmt::join(camera.holders, ", "));
    if (device.Busy())
        return Warn(
            fmt::format("in use by {}", names.empty() ? "a program of another user" : names),
            fmt::format("sudo fuser -v {}", device.node));
    if (!device.driver.empty())
        return Fail(fmt::format("held by the kernel's driver {}", device.driver),
                    fmt::format("echo {}:1.0 | sudo tee /sys/bus/usb/drivers/{}/unbind",
                                device.port, device.driver));
    return Ok("no program uses it");
}

Finding CheckSpeed(const CameraFacts &camera, const Facts &)
{
    constexpr int kHigh = 480;
    constexpr int kSuper = 5000;
    constexpr const char *kShowPorts = "lsusb -t"; // and another cable or port
    const std::string &text = camera.device.speedMbit;
    int speed = 0;
    std::from_chars(text.data(), text.data() + text.size(), speed);
    const vsccam::Product *product = ProductOf(camera);
    if (speed < kHigh)
        return Fail(fmt::format("'{}' Mbit/s is less than any camera can work with", text),
                    kShowPorts);
    if (product && product->usb3Camera && speed < kSuper)
        return Warn(fmt::format("{} Mbit/s, although the camera can do {}: a tenth of the frames",
                                speed, kSuper),
                    kShowPorts);
    return Ok(fmt::format("{} Mbit/s", speed));
}

Finding CheckHub(const CameraFacts &camera, const Facts &)
{
    constexpr const char *kShowHubs = "lsusb -t"; // and a port of the machine itself
    if (!camera.hubHasSupply)
        return Warn(fmt::format("hub {} has no supply of its own", camera.hub), kShowHubs);
    if (camera.others > 0)
        return Warn(fmt::format("shares hub {} with {} other devices", camera.hub, camera.others),
                    kShowHubs);
    return Ok(camera.hub.empty() ? "at a port of the machine" : "alone at hub " + camera.hub);
}

Finding CheckSuspend(const CameraFacts &camera, const Facts &)
{
    if (!camera.mayBeSuspended)
        return Ok("the system never suspends it");
    return Warn("the system suspends it when nobody uses it",
                fmt::format("echo on | sudo tee {}power/control", camera.device.folder));
}

// ------------------------------------------------------------------------------ of the machine

Finding CheckCameras(const Facts &facts)
{
    if (facts.cameras.empty())
        return Fail(fmt::format("no camera (vendor {:04x}) is on the bus", VSCCAM_VENDOR_ID),
                    "vsccam list --watch");
    return Ok(fmt::format("{} on the bus", facts.cameras.size()));
}

bool AllPermitted(const Facts &facts)
{
    return std::ranges::all_of(facts.cameras,
                               [](const CameraFacts &camera) { return camera.device.permitted; });
}

Finding CheckRule(const Facts &facts)
{
    if (!facts.rule.file.empty())
        return Ok(facts.rule.file);
    return {AllPermitted(facts) ? Verdict::kWarn : Verdict::kFail,
            "the rule that lets users work the cameras is not installed", InstallRule(facts.rule)};
}

Finding CheckGroup(const Facts &facts)
{
    if (facts.membership == Membership::kMember)
        return Ok("this user is root or a member of plugdev");
    if (!facts.cameras.empty() && AllPermitted(facts))
        return Ok("this user need not be a member of plugdev");
    if (facts.membership == Membership::kAfterLogin)
        return Warn("this user will be a member of plugdev after the next login", kNewLogin);
    return Warn("this user is no member of plugdev", kJoinGroup);
}

int64_t FrameMiB(const CameraFacts &camera)
{
    return UsbfsMiB(PixelsOf(camera));
}

Finding CheckUsbfsMemory(const Facts &facts)
{
    if (facts.cameras.empty())
        return Ok("no camera needs any");
    int64_t all = 0;
    for (const CameraFacts &camera : facts.cameras)
        all += FrameMiB(camera);
    if (!facts.usbfsLimitMiB)
        return Warn("the kernel does not tell its limit", "sudo modprobe usbcore");
    const int64_t limit = *facts.usbfsLimitMiB;
    const std::string need =
        fmt::format("the largest frames need {} MiB{}, the limit is ", all,
                    facts.cameras.size() > 1 ? " for all cameras together" : "");
    if (limit == 0)
        return Ok(need + "lifted");
    const std::string found = fmt::format("{}{} MiB", need, limit);
    if (limit >= all)
        return Ok(found);
    return Warn(found, RaiseUsbfsLimit(all)); // what does not fit is queued in turn
}

Finding CheckMemory(const Facts &facts)
{
    constexpr const char *kShowPrograms = "ps --sort=-rss -eo rss,pid,comm | head"; // to end some
    if (facts.cameras.empty())
        return Ok("no camera needs any");
    int64_t pixels = 0;
    for (const CameraFacts &camera : facts.cameras)
        pixels += PixelsOf(camera);
    const std::string found = fmt::format(
        "{} MiB are free; programs need {} to {} for these cameras", facts.availableMemory / kMiB,
        pixels * kHostBytesPerPixel / kMiB + 1, pixels * kToolBytesPerPixel / kMiB + 1);
    if (facts.availableMemory < pixels * kHostBytesPerPixel)
        return Fail(found, kShowPrograms);
    if (facts.availableMemory < pixels * kToolBytesPerPixel)
        return Warn(found, kShowPrograms);
    return Ok(found);
}

/// "1.0.26" as numbers that compare.
std::vector<int> Numbers(const std::string &version)
{
    std::vector<int> numbers;
    const char *next = version.data();
    const char *const end = next + version.size();
    for (int number = 0; next < end; ++next) { // over the dot
        const auto [stop, error] = std::from_chars(next, end, number);
        if (error != std::errc())
            break;
        numbers.push_back(number);
        next = stop;
    }
    return numbers;
}

Finding CheckVersions(const Facts &facts)
{
    const std::string found =
        fmt::format("vsccam {} with libvsccam {}, libusb {} (built for {}); {}", facts.vsccam.built,
                    facts.vsccam.running, facts.libusb.running, facts.libusb.built, facts.system);
    if (facts.vsccam.built != facts.vsccam.running)
        return Warn(found, "ldd \"$(command -v vsccam)\"");
    if (Numbers(facts.libusb.running) < Numbers(facts.libusb.built))
        return Warn(found, "sudo apt-get install --only-upgrade libusb-1.0-0");
    return Ok(found);
}

/// Both hand each other times.
Finding CheckTimeWidth(const Facts &facts)
{
    const int own = facts.vsccam.timeBits;
    const int theirs = facts.libusb.timeBits;
    if (own == theirs)
        return Ok(fmt::format("{} bits in libvsccam and libusb", own));
    return Fail(fmt::format("times have {} bits in libvsccam and {} in libusb: they were built for "
                            "different releases and must not be used together",
                            own, theirs),
                "./dev build");
}

Finding CheckClock(const Facts &facts)
{
    if (facts.clockIsSynchronised)
        return Ok("synchronised");
    return Warn("not synchronised: pictures may get a wrong date", "sudo timedatectl set-ntp true");
}

Finding CheckClockChip(const Facts &facts)
{
    if (facts.hasClockChip)
        return Ok("there is one");
    return Warn("none: after a power cut dates are wrong until the network tells the time",
                "sudo apt-get install fake-hwclock");
}

/// Of 16 bits per pixel; without a camera, of the largest model.
int64_t LargestFrame(const Facts &facts)
{
    int64_t pixels = 0;
    for (const CameraFacts &camera : facts.cameras)
        pixels = std::max(pixels, PixelsOf(camera));
    if (pixels == 0)
        for (const vsccam::Product &product : vsccam::Products())
            pixels = std::max(pixels, int64_t{product.sensorWidth} * product.sensorHeight);
    return 2 * std::max<int64_t>(pixels, 1); // is divided by
}

Finding CheckDisk(const Facts &facts)
{
    constexpr int kFew = 100;
    const FolderFacts &folder = facts.folder;
    const std::string path = folder.path.string();
    if (!folder.error.empty())
        return Fail(fmt::format("cannot write in {}: {}", path, folder.error),
                    "vsccam doctor --output ANOTHER_FOLDER");
    const int64_t frame = LargestFrame(facts);
    const int64_t room = folder.availableBytes / frame;
    const std::string found = fmt::format(
        "room in {} for {} of the largest frames, {:.1f} of them written in a second", path, room,
        static_cast<double>(folder.bytesPerSecond) / static_cast<double>(frame));
    if (room < kFew)
        return {room == 0 ? Verdict::kFail : Verdict::kWarn, found,
                fmt::format("du -ah '{}' | sort -h | tail", path)};
    if (folder.bytesPerSecond < frame)
        return Warn(found, "vsccam doctor --output ANOTHER_FOLDER");
    return Ok(found);
}

struct CameraCheck {
    const char *id;
    Finding (*look)(const CameraFacts &camera, const Facts &facts);
};
constexpr CameraCheck kCameraChecks[] = {
    {"model", CheckModel},   {"permission", CheckPermission},
    {"holder", CheckHolder}, {"speed", CheckSpeed},
    {"hub", CheckHub},       {"suspend", CheckSuspend},
};

struct MachineCheck {
    const char *id;
    Finding (*look)(const Facts &facts);
};
constexpr MachineCheck kMachineChecks[] = {
    {"rule", CheckRule},     {"group", CheckGroup},          {"usbfs-memory", CheckUsbfsMemory},
    {"memory", CheckMemory}, {"versions", CheckVersions},    {"time-width", CheckTimeWidth},
    {"clock", CheckClock},   {"clock-chip", CheckClockChip}, {"disk", CheckDisk},
};

} // namespace

const char *Word(Verdict verdict)
{
    constexpr const char *kWords[] = {"ok", "warn", "fail"};
    return kWords[static_cast<int>(verdict)];
}

std::vector<Finding> Examine(const Facts &facts)
{
    std::vector<Finding> findings;
    const auto add = [&](const char *id, Finding finding, const std::string &port = "") {
        finding.id = id;
        finding.port = port;
        findings.push_back(std::move(finding));
    };
    add("cameras", CheckCameras(facts));
    for (const CameraFacts &camera : facts.cameras)
        for (const CameraCheck &check : kCameraChecks)
            add(check.id, check.look(camera, facts), camera.device.port);
    for (const MachineCheck &check : kMachineChecks)
        add(check.id, check.look(facts));
    return findings;
}

} // namespace vsctool
