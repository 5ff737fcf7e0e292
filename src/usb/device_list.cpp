#include "usb/device_list.h"

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

} // namespace vsccam
