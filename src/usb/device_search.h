#pragma once

#include "base/sync.h"
#include "usb/camera_choice.h"
#include "usb/device_handle.h"
#include "usb/lost_camera.h"

#include <cstdint>

namespace vsccam {

/// Finds the camera on the bus: at first by its place among its kind, and once it was open by its
/// port, or elsewhere when it was lost. For that, it takes note of who is on the bus while the
/// camera is there.
///
/// Any thread may call it. The section is locked after all others, and only Open holds it for
/// longer than a look at the list of devices takes.
class DeviceSearch {
  public:
    /// Says which cameras may be opened, now and after a loss. To be called before Open.
    void RestrictTo(const CameraChoice &choice);

    /// Opens the ordinal-th device (from 1, modulo 256) with this product ID, or the camera that
    /// was open before. Empty when it is not there or cannot be opened.
    DeviceHandle Open(uint16_t productId, int ordinal);

    /// The camera is ready to be used: this device is it from now on.
    void Found(libusb_device *device, uint16_t productId);
    /// The device is about to be closed.
    void Closing();

    /// Whether the open device is on the bus, as far as the system has told libusb; then, takes
    /// note of who else is. Sends nothing.
    bool LookAround();
    /// The same, unless that was done a moment ago: for each frame that came.
    void LookAroundNowAndThen();

    /// Whether a device has come that may be the lost one: somebody has to look again in a while.
    bool NewcomerSettles();

  private:
    CriticalSection m_section;
    LostCamera m_camera VSC_GUARDED_BY(m_section);               // the one that was opened last
    libusb_device *m_device VSC_GUARDED_BY(m_section) = nullptr; // that is open
    uint16_t m_productId VSC_GUARDED_BY(m_section) = 0;
    CameraChoice m_choice VSC_GUARDED_BY(m_section);
};

} // namespace vsccam
