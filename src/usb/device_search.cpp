#include "usb/device_search.h"

#include "base/config.h"
#include "usb/device_list.h"

#include <algorithm>
#include <new>

namespace vsccam {

void DeviceSearch::RestrictTo(const CameraChoice &choice)
{
    const SectionLock lock(m_section);
    m_choice = choice;
}

DeviceHandle DeviceSearch::Open(uint16_t productId, int ordinal)
try {
    const SectionLock lock(m_section);
    return m_camera.Port().depth > 0
               ? OpenLostCamera(m_camera, CAMERA_VID, productId, m_choice)
               : DeviceHandle(libusb_open_device_with_vid_pid_index(nullptr, CAMERA_VID, productId,
                                                                    ordinal & 0xFF, m_choice));
} catch (const std::bad_alloc &) {
    return nullptr;
}

void DeviceSearch::Found(libusb_device *device, uint16_t productId)
{
    const SectionLock lock(m_section);
    m_device = device;
    m_productId = productId;
    m_camera = LostCamera(PortPathOf(device));
}

void DeviceSearch::Closing()
{
    const SectionLock lock(m_section);
    m_device = nullptr;
}

bool DeviceSearch::LookAround()
try {
    const SectionLock lock(m_section);
    if (!m_device)
        return false;
    const DeviceList devices(nullptr);
    if (devices.Failed())
        return true; // there is no saying
    if (std::ranges::find(devices, m_device) == devices.end())
        return false;
    m_camera.Saw(PortsOf(devices, CAMERA_VID, m_productId));
    return true;
} catch (const std::bad_alloc &) {
    return true; // as above
}

void DeviceSearch::LookAroundNowAndThen()
{
    bool enough = false;
    {
        const SectionLock lock(m_section);
        enough = m_camera.SawOthersLately();
    }
    if (!enough)
        (void)LookAround(); // the device was there just now
}

bool DeviceSearch::NewcomerSettles()
{
    const SectionLock lock(m_section);
    return m_camera.NewcomerSettles();
}

} // namespace vsccam
