#include "usb/device_list.h"

#include <algorithm>
#include <iterator>

namespace vsccam {

libusb_device_handle *libusb_open_device_with_vid_pid_index(libusb_context *ctx, uint16_t vid,
                                                            uint16_t pid, int index)
{
    int matches = 0;
    for (libusb_device *device : DeviceList(ctx)) {
        libusb_device_descriptor descriptor{};
        if (libusb_get_device_descriptor(device, &descriptor) < 0)
            return nullptr;
        if (descriptor.idVendor != vid || descriptor.idProduct != pid || ++matches != index)
            continue;
        libusb_device_handle *handle = nullptr;
        return libusb_open(device, &handle) == 0 ? handle : nullptr;
    }
    return nullptr;
}

PortPath PortPathOf(libusb_device *device)
{
    PortPath path{.bus = libusb_get_bus_number(device)};
    path.depth = std::max(libusb_get_port_numbers(device, path.ports, std::size(path.ports)), 0);
    return path;
}

libusb_device_handle *OpenDeviceAt(const PortPath &path, uint16_t vid, uint16_t pid)
{
    for (libusb_device *device : DeviceList(nullptr)) {
        libusb_device_descriptor descriptor{};
        if (libusb_get_device_descriptor(device, &descriptor) < 0 || descriptor.idVendor != vid ||
            descriptor.idProduct != pid || PortPathOf(device) != path)
            continue;
        libusb_device_handle *handle = nullptr;
        return libusb_open(device, &handle) == 0 ? handle : nullptr;
    }
    return nullptr;
}

bool IsOnTheBus(libusb_device *device)
{
    const DeviceList devices(nullptr);
    return devices.Failed() || std::ranges::find(devices, device) != devices.end();
}

} // namespace vsccam
