#include "usb_devices.h"

#include "failure.h"
#include "library_lines.h"
#include "product_list.h"
#include "system_files.h"

#include <fmt/format.h>
#include <strings.h>
#include <unistd.h>
#include <vsccam.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace vsctool {
namespace {

unsigned ReadUnsigned(const std::string &path, int base)
{
    return static_cast<unsigned>(ReadNumber(path, base).value_or(0));
}

const std::string kByPort = "usb:";
const std::string kByModel = "model:";
constexpr const char *kChoice = "VSCCAM_CAMERA"; // the library's variable

bool IsSame(const std::string &a, const std::string &b)
{
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

/// "KYR VSC470MC" -> "VSC470MC"
std::string WithoutMaker(const std::string &model)
{
    return model.substr(model.rfind(' ') + 1);
}

bool IsAskedFor(const CameraEntry &camera, const std::string &selector)
{
    if (const auto port = PortOf(selector))
        return camera.usb && camera.usb->port == *port;
    int index = 0;
    const char *end = selector.data() + selector.size();
    if (std::from_chars(selector.data(), end, index).ptr == end)
        return camera.index == index;
    return IsSame(camera.model, selector) || IsSame(WithoutMaker(camera.model), selector);
}

bool IsOnlyOneOfItsModel(const CameraEntry &camera)
{
    return std::ranges::count(FindUsbDevices(), camera.model, &UsbDevice::model) == 1;
}

/// What to set the library's variable to; see NarrowTo.
std::string NarrowChoice(const CameraEntry &camera, bool keepPort)
{
    if (keepPort || !IsOnlyOneOfItsModel(camera))
        return kByPort + camera.usb->port;
    const std::string byUser = CamerasNamedByUser().value_or("");
    return byUser.empty() ? kByModel + WithoutMaker(camera.model) : byUser;
}

std::string Names(const std::vector<CameraEntry> &cameras)
{
    std::string names;
    for (const CameraEntry &camera : cameras)
        names += fmt::format("{}{} ({}{}{})", names.empty() ? "" : ", ", camera.index, camera.model,
                             camera.usb ? ", usb:" : "", camera.usb ? camera.usb->port : "");
    return names;
}

/// Whether the environment lets programs see this camera: the library leaves out all others.
bool IsNamedByEnvironment(const UsbDevice &device)
{
    const char *const names = std::getenv(kChoice); // NOLINT(concurrency-mt-unsafe): see NarrowTo
    if (!names || !*names)
        return true;
    std::istringstream words(names);
    for (std::string word; std::getline(words, word, ',');) {
        const size_t begin = std::min(word.find_first_not_of(" \t"), word.size());
        word = word.substr(begin, word.find_last_not_of(" \t") + 1 - begin);
        if (IsSame(word, kByPort + device.port) || IsSame(word, kByModel + device.model) ||
            IsSame(word, kByModel + WithoutMaker(device.model)))
            return true;
    }
    return false;
}

/// The cameras in the order in which the library counts them: it prints every device of the bus
/// that it looks at.
std::vector<UsbDevice> InLibraryOrder(const std::vector<LibraryLine> &lines)
{
    const std::vector<UsbDevice> devices = FindUsbDevices();
    std::vector<UsbDevice> ordered;
    for (const LibraryLine &line : lines) {
        unsigned vendor = 0;
        unsigned product = 0;
        unsigned bus = 0;
        unsigned address = 0;
        // Numbers of the library's own, which are in range. NOLINTNEXTLINE(cert-err34-c)
        if (std::sscanf(line.text.c_str(), "%4x:%4x (bus %u, device %u)", &vendor, &product, &bus,
                        &address) != 4 ||
            vendor != VSCCAM_VENDOR_ID || ModelOf(product).empty())
            continue;
        const auto found = std::ranges::find_if(devices, [&](const UsbDevice &device) {
            return device.bus == bus && device.address == address;
        });
        // Where the system does not show it, at least the order is kept.
        ordered.push_back(found != devices.end() ? *found : UsbDevice{});
    }
    return ordered;
}

} // namespace

std::string ModelOf(unsigned product)
{
    const vsccam::Product *known = vsccam::FindProduct(product);
    return known ? known->name : "";
}

bool HasOpen(const std::string &process, const std::string &node)
{
    const std::string folder = "/proc/" + process + "/fd";
    return std::ranges::any_of(NamesIn(folder), [&](const std::string &file) {
        return LinkTarget(folder + '/' + file).ends_with(node); // below another root, too
    });
}

std::vector<UsbDevice> FindUsbDevices()
{
    std::vector<UsbDevice> devices;
    for (const std::string &port : NamesIn(kUsbFolder)) {
        const std::string folder = kUsbFolder + port + "/";
        if (ReadUnsigned(folder + "idVendor", 16) != VSCCAM_VENDOR_ID)
            continue;
        UsbDevice device;
        device.product = ReadUnsigned(folder + "idProduct", 16);
        device.model = ModelOf(device.product);
        device.port = port;
        device.folder = folder;
        device.speedMbit = ReadLine(folder + "speed");
        device.bus = ReadUnsigned(folder + "busnum", 10);
        device.address = ReadUnsigned(folder + "devnum", 10);
        device.node = fmt::format("/dev/bus/usb/{:03}/{:03}", device.bus, device.address);
        device.permitted = access(device.node.c_str(), R_OK | W_OK) == 0;
        device.hasNode = device.permitted || errno != ENOENT;
        const std::string driver = LinkTarget(folder + port + ":1.0/driver");
        device.driver = driver.substr(driver.rfind('/') + 1);
        device.openHere = HasOpen("thread-self", device.node); // a thread may have its own files
        devices.push_back(device);
    }
    return devices;
}

const vsccam::Product *CameraEntry::Product() const
{
    const auto products = vsccam::Products();
    const auto found = std::ranges::find_if(
        products, [&](const vsccam::Product &product) { return product.name == model; });
    return found == products.end() ? nullptr : &*found;
}

bool CameraEntry::IsVariant() const
{
    return Product() && Product()->IsVariant();
}

std::string CameraEntry::Usable() const
{
    if (IsVariant())
        return "no: this edition cannot be opened";
    if (usb && !usb->permitted)
        return "no: permission";
    if (usb && usb->Busy() && !usb->openHere)
        return "no: busy";
    return "yes";
}

bool CameraEntry::IsSamePlace(const CameraEntry &other) const
{
    const auto port = [](const CameraEntry &c) { return c.usb ? c.usb->port : std::string(); };
    return model == other.model && port(*this) == port(other);
}

std::vector<CameraEntry> ListCameras()
{
    (void)LibraryLines::Take(); // of before
    const auto count = static_cast<size_t>(std::max(getNumberOfConnectedCameras(), 0));
    std::vector<UsbDevice> devices = InLibraryOrder(LibraryLines::Take());
    if (devices.size() != count) // it printed those as well that it passes over
        std::erase_if(devices,
                      [](const UsbDevice &device) { return !IsNamedByEnvironment(device); });
    std::vector<CameraEntry> cameras;
    for (size_t i = 0; i < count; ++i) {
        const char *name = getCameraModel(static_cast<int>(i));
        CameraEntry camera{static_cast<int>(i), name ? name : "", std::nullopt};
        if (devices.size() == count && devices[i].model == camera.model)
            camera.usb = devices[i];
        cameras.push_back(camera);
    }
    return cameras;
}

std::optional<std::string> PortOf(const std::string &selector)
{
    if (!IsSame(selector.substr(0, kByPort.size()), kByPort))
        return std::nullopt;
    if (selector.size() == kByPort.size())
        throw Failure(Exit::kUsage, fmt::format("'{}' names no port: write usb:1-2.3", selector));
    return selector.substr(kByPort.size());
}

CameraEntry SelectCamera(const std::vector<CameraEntry> &cameras, const std::string &selector)
{
    (void)PortOf(selector); // a mistake in writing is one without a camera, too
    if (cameras.empty())
        throw Failure(
            Exit::kNoCamera,
            fmt::format("no camera found. Is it plugged in? 'lsusb -d {:04x}:' shows what "
                        "the system sees. To try without a camera: vsccam --sim VSC470MC "
                        "...",
                        VSCCAM_VENDOR_ID));
    const auto isWanted = [&](const CameraEntry &camera) {
        return selector.empty() ? camera.Usable() == "yes" : IsAskedFor(camera, selector);
    };
    const auto found = std::find_if(cameras.begin(), cameras.end(), isWanted);
    if (found != cameras.end())
        return *found;
    if (selector.empty())
        return cameras.front(); // opening it tells what is wrong
    throw Failure(Exit::kNoCamera,
                  fmt::format("no camera '{}'; there is {}", selector, Names(cameras)));
}

const std::optional<std::string> &CamerasNamedByUser()
{
    static const std::optional<std::string> kNamed = [] {
        const char *const names = std::getenv(kChoice); // NOLINT(concurrency-mt-unsafe): NarrowTo
        return names ? std::optional<std::string>(names) : std::nullopt;
    }();
    return kNamed;
}

std::optional<CameraEntry> NarrowTo(const CameraEntry &camera, bool keepPort)
{
    (void)CamerasNamedByUser(); // remembers it before it changes
    if (!camera.usb)
        return camera;
    const std::string choice = NarrowChoice(camera, keepPort);
    // No camera is open: nothing else in this process reads it now.
    setenv(kChoice, choice.c_str(), 1); // NOLINT(concurrency-mt-unsafe)
    const std::vector<CameraEntry> cameras = ListCameras();
    const auto found = std::ranges::find_if(
        cameras, [&](const CameraEntry &other) { return other.IsSamePlace(camera); });
    return found == cameras.end() ? std::nullopt : std::optional(*found);
}

} // namespace vsctool
