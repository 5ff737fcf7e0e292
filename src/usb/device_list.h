#pragma once

#include "usb/camera_choice.h"
#include "usb/device_handle.h"
#include "usb/lost_camera.h"
#include "usb/port_path.h"

#include <libusb.h>

#include <cstdint>
#include <vector>

namespace vsccam {

/// The bus's devices. Drops its references when it goes.
class DeviceList {
  public:
    explicit DeviceList(libusb_context *ctx) : m_count(libusb_get_device_list(ctx, &m_list)) {}
    ~DeviceList()
    {
        if (m_list)
            libusb_free_device_list(m_list, 1);
    }
    DeviceList(const DeviceList &) = delete;
    DeviceList &operator=(const DeviceList &) = delete;

    bool Failed() const { return m_count < 0; }
    libusb_device **begin() const { return m_list; }
    libusb_device **end() const { return m_list + (m_count > 0 ? m_count : 0); }

    /// Gives the list up without freeing it.
    void Abandon() { m_list = nullptr; }

  private:
    libusb_device **m_list = nullptr;
    ssize_t m_count = 0;
};

PortPath PortPathOf(libusb_device *device);

/// Ports of the devices in the list that have this vendor and product ID.
std::vector<PortPath> PortsOf(const DeviceList &devices, uint16_t vid, uint16_t pid);

/// Opens the index-th device, counted from 1 in the order of the bus, that has this vendor and
/// product ID and may be used.
/// @return nullptr when the list or a descriptor before it cannot be read, when there is no such
///         device, or when it cannot be opened; otherwise the caller closes the handle
libusb_device_handle *libusb_open_device_with_vid_pid_index(libusb_context *ctx, uint16_t vid,
                                                            uint16_t pid, int index,
                                                            const CameraChoice &choice = {});

/// Opens the device with this vendor and product ID that is the lost camera.
/// @return empty when it is not there, may not be used or cannot be opened
DeviceHandle OpenLostCamera(LostCamera &lost, uint16_t vid, uint16_t pid,
                            const CameraChoice &choice);

} // namespace vsccam
