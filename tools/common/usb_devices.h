#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vsctool {

/// What the kernel shows of a camera, also of one that this program may not open.
struct UsbDevice {
    unsigned product = 0;
    std::string model; // see ModelOf
    std::string port;  // "1-2.3"
    std::string speedMbit;
    std::string node; // device file
    bool permitted = false;
    bool busy = false;
};
std::vector<UsbDevice> FindUsbDevices();

/// As the library names the model; empty for products that it does not know.
std::string ModelOf(unsigned product);

/// A camera as the library counts them.
struct CameraEntry {
    int index = 0;
    std::string model;
    std::optional<UsbDevice> usb; // of several cameras of one model, which is which cannot be told

    bool IsColour() const;
    bool IsCooled() const;
    /// Editions that the library lists but cannot open by themselves.
    bool IsVariant() const;
    /// "yes", or why not.
    std::string Usable() const;
    /// A camera of this model at this port, whatever its index is by now.
    bool IsSamePlace(const CameraEntry &other) const;
};
std::vector<CameraEntry> ListCameras();

/// Finds by index, by model ("KYR VSC470MC", "vsc470mc"), or, without a selector, the first usable
/// camera. Throws Failure that tells what is there instead.
CameraEntry SelectCamera(const std::vector<CameraEntry> &cameras, const std::string &selector);

} // namespace vsctool
