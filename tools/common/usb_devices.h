#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vsccam {
struct Product;
}

namespace vsctool {

/// Where the kernel shows what is on the bus: a folder for each device, named by its port.
inline const std::string kUsbFolder = "/sys/bus/usb/devices/";

/// What the kernel shows of a camera, also of one that this program may not open.
struct UsbDevice {
    unsigned product = 0;
    std::string model; // see ModelOf
    std::string port;  // "1-2.3"
    unsigned bus = 0;
    unsigned address = 0; // on that bus
    std::string speedMbit;
    std::string folder; // see kUsbFolder
    std::string node;   // device file
    std::string driver; // of its interface; empty: none
    bool permitted = false;
    bool hasNode = true;   // a container may lack it
    bool openHere = false; // by this program

    /// A program that uses the camera holds its interface through this driver.
    bool Busy() const { return driver == "usbfs"; }
};
std::vector<UsbDevice> FindUsbDevices();

/// Whether a process has the device file open. Those of other users only root may look at.
bool HasOpen(const std::string &process, const std::string &node);

/// As the library names the model; empty for products that it does not know.
std::string ModelOf(unsigned product);

/// A camera as the library counts them.
struct CameraEntry {
    int index = 0;
    std::string model;
    std::optional<UsbDevice> usb; // nothing when the system does not show it

    /// Nothing when the library does not know the model.
    const vsccam::Product *Product() const;
    /// Editions that the library lists but cannot open by themselves.
    bool IsVariant() const;
    /// "yes", or why not.
    std::string Usable() const;
    /// A camera of this model at this port, whatever its index is by now.
    bool IsSamePlace(const CameraEntry &other) const;
};
std::vector<CameraEntry> ListCameras();

/// The port of a selector "usb:1-2.3". Nothing for other selectors; throws Failure without a port.
std::optional<std::string> PortOf(const std::string &selector);

/// Finds by index, by model ("KYR VSC470MC", "vsc470mc"), by port ("usb:1-2.3"), or, without a
/// selector, the first usable camera. Throws Failure that tells what is there instead.
CameraEntry SelectCamera(const std::vector<CameraEntry> &cameras, const std::string &selector);

/// What the environment named when this program began, which NarrowTo changes.
const std::optional<std::string> &CamerasNamedByUser();

/// Narrows what the library sees of the bus, so that neither opening the camera nor looking for it
/// after a loss takes another one instead: to its model, which may come back at another port or
/// speed, or to its port when there are more of the model or `keepPort` says so.
/// @return the entry under which the library lists it now; nothing when it is gone
std::optional<CameraEntry> NarrowTo(const CameraEntry &camera, bool keepPort = false);

} // namespace vsctool
