#include "usb/device_list.h"

#include <algorithm>
#include <iterator>

namespace vsccam {

namespace {

DeviceHandle Open(libusb_device *device)
{
    libusb_device_handle *handle = nullptr;
    return DeviceHandle(libusb_open(device, &handle) == 0 ? handle : nullptr);
}

bool HasId(libusb_device *device, uint16_t vid, uint16_t pid)
{
    libusb_device_descriptor descriptor{};
    return libusb_get_device_descriptor(device, &descriptor) == 0 && descriptor.idVendor == vid &&
           descriptor.idProduct == pid;
}

/// Whether a program has claimed the interface of a device. Sends nothing to it.
bool IsClaimed(libusb_device *device)
{
    const DeviceHandle handle = Open(device);
    // One that cannot be opened: opening it in earnest has to tell that.
    return handle && libusb_claim_interface(handle.get(), 0) == LIBUSB_ERROR_BUSY;
}

} // namespace

libusb_device_handle *libusb_open_device_with_vid_pid_index(libusb_context *ctx, uint16_t vid,
                                                            uint16_t pid, int index,
                                                            const CameraChoice &choice)
{
    int matches = 0;
    for (libusb_device *device : DeviceList(ctx)) {
        libusb_device_descriptor descriptor{};
        if (libusb_get_device_descriptor(device, &descriptor) < 0)
            return nullptr;
        if (descriptor.idVendor == vid && descriptor.idProduct == pid &&
            choice.Allows(PortPathOf(device), pid) && ++matches == index)
            return Open(device).release();
    }
    return nullptr;
}

PortPath PortPathOf(libusb_device *device)
{
    PortPath path{.bus = libusb_get_bus_number(device)};
    path.depth = std::max(libusb_get_port_numbers(device, path.ports, std::size(path.ports)), 0);
    // What libusb leaves behind them must not make equal paths differ.
    std::fill(path.ports + path.depth, std::end(path.ports), uint8_t{0});
    return path;
}

DeviceHandle OpenLostCamera(LostCamera &lost, uint16_t vid, uint16_t pid,
                            const CameraChoice &choice)
{
    const DeviceList list(nullptr);
    std::vector<libusb_device *> devices;
    std::vector<PortPath> ports;
    for (libusb_device *device : list) {
        const PortPath port = PortPathOf(device);
        if (!choice.Allows(port, pid) || !HasId(device, vid, pid))
            continue;
        devices.push_back(device);
        ports.push_back(port);
    }
    const auto found = lost.Find(ports, [&](size_t i) { return IsClaimed(devices[i]); });
    return found ? Open(devices[*found]) : nullptr;
}

std::vector<PortPath> PortsOf(const DeviceList &devices, uint16_t vid, uint16_t pid)
{
    std::vector<PortPath> ports;
    for (libusb_device *device : devices) {
        if (HasId(device, vid, pid))
            ports.push_back(PortPathOf(device));
    }
    return ports;
}

} // namespace vsccam
