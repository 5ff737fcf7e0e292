#include "doctor/facts.h"
#include "system_files.h"
#include "usbfs_memory.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/statvfs.h>
#include <sys/timex.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <vsccam.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>
#include <system_error>

namespace vsctool {
namespace {

// ----------------------------------------------------------------------------------- the cameras

/// Programs that have a device open.
std::vector<std::string> HoldersOf(const std::string &node)
{
    std::vector<std::string> holders;
    for (const std::string &process : NamesIn("/proc"))
        if (HasOpen(process, node))
            holders.push_back(
                fmt::format("{} (process {})", ReadLine("/proc/" + process + "/comm"), process));
    return holders;
}

/// "1-2.3" is behind the hub "1-2"; "1-2" is at a port of the machine.
std::string HubOf(const std::string &port)
{
    const size_t dot = port.rfind('.');
    return dot == std::string::npos ? "" : port.substr(0, dot);
}

/// Devices at a hub, or behind others that are.
int CountBehind(const std::string &hub)
{
    const std::vector<std::string> names = NamesIn(kUsbFolder);
    return static_cast<int>(std::ranges::count_if(names, [&](const std::string &name) {
        return name.starts_with(hub + '.') && name.find(':') == std::string::npos;
    }));
}

CameraFacts Around(const UsbDevice &device)
{
    constexpr int64_t kOwnSupply = 0x40; // of a device's attributes
    CameraFacts camera;
    camera.device = device;
    camera.hub = HubOf(device.port);
    if (device.Busy()) // who only looks at it opens its node, too
        camera.holders = HoldersOf(device.node);
    if (!camera.hub.empty()) {
        const auto attributes = ReadNumber(kUsbFolder + camera.hub + "/bmAttributes", 16);
        camera.hubHasSupply = (attributes.value_or(kOwnSupply) & kOwnSupply) != 0;
        camera.others = CountBehind(camera.hub) - 1;
    }
    camera.mayBeSuspended =
        ReadLine(device.folder + "power/control") == "auto" &&
        ReadNumber(device.folder + "power/autosuspend_delay_ms").value_or(0) >= 0;
    return camera;
}

// ------------------------------------------------------------------------------------ the machine

/// The value behind a name in a file with lines like "MemAvailable:   123 kB" or NAME="value".
std::string Entry(const char *file, const std::string &name, char separator)
{
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with(name + separator))
            continue;
        line.erase(0, name.size() + 1);
        std::erase(line, '"');
        return line.substr(std::min(line.find_first_not_of(' '), line.size()));
    }
    return "";
}

std::string System()
{
    utsname kernel{};
    uname(&kernel);
    return fmt::format("{}, {} {} {}", Entry("/etc/os-release", "PRETTY_NAME", '='), kernel.sysname,
                       kernel.release, kernel.machine);
}

int64_t AvailableMemory()
{
    constexpr int64_t kKiB = 1024;
    return std::strtoll(Entry("/proc/meminfo", "MemAvailable", ':').c_str(), nullptr, 10) * kKiB;
}

/// Width of time_t that a library was built with, by the functions that it calls: on machines with
/// 32 bits those for 64-bit times have names of their own.
int TimeBitsOf(const std::string &file)
{
    if (sizeof(long) == sizeof(int64_t))
        return 64;
    std::ifstream in(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    const auto calls = [&](const char *name) { return bytes.find(name) != std::string::npos; };
    return calls("__clock_gettime64") || calls("__nanosleep64") || calls("__time64") ? 64 : 32;
}

/// The file that a function of this process is in.
std::string FileOf(const void *function)
{
    Dl_info info{};
    return dladdr(function, &info) != 0 ? info.dli_fname : "";
}

LibraryFacts Libvsccam()
{
    return {.built = VSCCAM_VERSION,
            .running = getSDKVersion(),
            .timeBits = TimeBitsOf(FileOf(reinterpret_cast<const void *>(getSDKVersion)))};
}

/// Programs know no header of libusb: what the library has loaded is asked by its name.
LibraryFacts Libusb()
{
    struct Version {
        uint16_t major, minor, micro, nano;
        const char *rc, *describe;
    };
    LibraryFacts facts{.built = VSCCAM_LIBUSB_VERSION, .running = "?"};
    void *const function = dlsym(RTLD_DEFAULT, "libusb_get_version");
    if (!function)
        return facts;
    const Version *const version = reinterpret_cast<const Version *(*)()>(function)();
    facts.running = fmt::format("{}.{}.{}", version->major, version->minor, version->micro);
    facts.timeBits = TimeBitsOf(FileOf(function));
    return facts;
}

bool ClockIsSynchronised()
{
    timex clock{};
    return adjtimex(&clock) != TIME_ERROR && (clock.status & STA_UNSYNC) == 0;
}

// ------------------------------------------------------------------------------------- the folder

/// Writes blocks for a while, until they are on the disk, not only in memory.
int64_t BytesPerSecond(int file, std::error_code &error)
{
    using namespace std::chrono;
    constexpr size_t kMost = 32 << 20;
    const std::vector<char> block(1 << 20, 'v');
    const auto begin = steady_clock::now();
    size_t written = 0;
    while (written < kMost && steady_clock::now() - begin < 2s) {
        const ssize_t count = write(file, block.data(), block.size());
        if (count <= 0)
            break;
        written += static_cast<size_t>(count);
    }
    if (written == 0 || fsync(file) != 0)
        error.assign(errno, std::generic_category());
    const duration<double> took = steady_clock::now() - begin;
    return static_cast<int64_t>(static_cast<double>(written) / std::max(took.count(), 1e-6));
}

FolderFacts LookAt(const std::filesystem::path &path)
{
    FolderFacts folder;
    folder.path = path;
    std::string name = path / ".vsccam-doctor-XXXXXX";
    const int file = mkostemp(name.data(), O_CLOEXEC);
    std::error_code error(file < 0 ? errno : 0, std::generic_category());
    if (file >= 0) {
        unlink(name.c_str()); // nothing is left, however this ends
        struct statvfs space {};
        fstatvfs(file, &space);
        folder.availableBytes =
            static_cast<int64_t>(space.f_bavail) * static_cast<int64_t>(space.f_frsize);
        folder.bytesPerSecond = BytesPerSecond(file, error);
        close(file);
    }
    folder.error = error ? error.message() : "";
    return folder;
}

} // namespace

Facts ReadFacts(const std::filesystem::path &folder)
{
    Facts facts;
    for (const UsbDevice &device : FindUsbDevices())
        facts.cameras.push_back(Around(device));
    facts.rule = FindUdevRule();
    facts.membership = MembershipOfUser();
    facts.usbfsLimitMiB = UsbfsLimitMiB();
    facts.availableMemory = AvailableMemory();
    facts.system = System();
    facts.vsccam = Libvsccam();
    facts.libusb = Libusb();
    facts.clockIsSynchronised = ClockIsSynchronised();
    facts.hasClockChip = !NamesIn("/sys/class/rtc").empty();
    facts.folder = LookAt(folder);
    return facts;
}

} // namespace vsctool
