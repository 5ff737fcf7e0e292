#pragma once

#include "udev_rule.h"
#include "usb_devices.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace vsctool {

/// What the checks look at. It is read in one place, so that a check is a function of values.

/// A camera on the bus, and what is around it.
struct CameraFacts {
    UsbDevice device;
    std::vector<std::string> holders; // when a program uses it: "phd2 (process 123)"
    std::string hub;                  // the port of the hub in front of it; empty at the root hub
    int others = 0;                   // devices at this hub beside the camera
    bool hubHasSupply = true;         // of its own
    bool mayBeSuspended = false;      // when nobody uses it
};

/// A shared library: what the program was built with and what it runs with.
struct LibraryFacts {
    std::string built;
    std::string running;
    int timeBits = 64; // width of time_t
};

struct FolderFacts {
    std::filesystem::path path;
    std::string error; // why nothing can be written there; empty: it can
    int64_t availableBytes = 0;
    int64_t bytesPerSecond = 0;
};

struct Facts {
    std::vector<CameraFacts> cameras;
    UdevRule rule;
    Membership membership = Membership::kMember;
    std::optional<int64_t> usbfsLimitMiB; // 0: none
    int64_t availableMemory = 0;          // bytes
    std::string system;                   // "Debian GNU/Linux 12 (bookworm), Linux 6.1.0 armv7l"
    LibraryFacts vsccam;
    LibraryFacts libusb;
    bool clockIsSynchronised = true;
    bool hasClockChip = true;
    FolderFacts folder;
};

/// @param folder  in which pictures are to be written
Facts ReadFacts(const std::filesystem::path &folder);

} // namespace vsctool
