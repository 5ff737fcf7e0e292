#pragma once

#include <libusb.h>

#include <memory>

namespace vsccam {

struct CloseDeviceHandle {
    void operator()(libusb_device_handle *handle) const { libusb_close(handle); }
};

/// An opened device, closed with its owner.
using DeviceHandle = std::unique_ptr<libusb_device_handle, CloseDeviceHandle>;

} // namespace vsccam
