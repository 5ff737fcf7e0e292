#pragma once

#include <libusb.h>

#include <cstdint>

namespace vsccam {

/// Opens the index-th device, counted from 1 in the order of the bus, that has this vendor and
/// product ID.
/// @return nullptr when the list or a descriptor before it cannot be read, when there is no such
///         device, or when it cannot be opened
libusb_device_handle *libusb_open_device_with_vid_pid_index(libusb_context *ctx, uint16_t vid,
                                                            uint16_t pid, int index);

/// Where a device hangs: it stays there over unplugging and plugging in.
struct PortPath {
    uint8_t bus = 0;
    int depth = 0; // of the hubs; 0 when the system does not tell
    uint8_t ports[7] = {};

    friend bool operator==(const PortPath &, const PortPath &) = default;
};

PortPath PortPathOf(libusb_device *device);

/// Opens the device with this vendor and product ID that hangs at `path`, nullptr when there is
/// none or it cannot be opened.
libusb_device_handle *OpenDeviceAt(const PortPath &path, uint16_t vid, uint16_t pid);

/// Whether the device was not unplugged yet. Without a list there is no saying: true.
bool IsOnTheBus(libusb_device *device);

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

} // namespace vsccam
