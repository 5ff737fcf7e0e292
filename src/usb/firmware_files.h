#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Firmware comes from files, as with other drivers: what runs in a camera is its maker's. Those of
/// the FX2 lie in the directory that VSCCAM_FIRMWARE_DIR names in the environment, else in the one
/// that the library was configured with.
namespace vsccam {

/// The contents of a regular file of `limit` bytes at most, nothing when there is none that can be
/// read. A pipe or a device is none: reading it could last for ever.
std::optional<std::vector<uint8_t>> ReadRegularFile(const std::string &path, size_t limit);

/// A file of firmware, and the length by which a damaged one is told.
struct FirmwareFile {
    const char *name = nullptr;
    size_t bytes = 0;
};

/// The firmware that programs the FX2's EEPROM, in two pieces of its RAM.
struct EepromProgrammer {
    std::vector<uint8_t> low;
    std::vector<uint8_t> high;
};

/// Nothing when one of its files, vendor1.bin and vendor2.bin, is missing or damaged; a debug line
/// names it. So it is with the boot image of a model, whose form is checked as well.
std::optional<EepromProgrammer> ReadEepromProgrammer();
std::optional<std::vector<uint8_t>> ReadFx2Image(const FirmwareFile &file);

} // namespace vsccam
