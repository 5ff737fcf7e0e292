#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Firmware belongs to the maker of the camera and is not part of the library: it comes from files,
/// as with other drivers. The files of the FX2 lie in the directory that the environment variable
/// VSCCAM_FIRMWARE_DIR names, or else in the one that the library was configured with.
namespace vsccam {

/// The contents of a regular file of `limit` bytes at most; nothing when it cannot be read. Pipes
/// and devices are refused, because reading them could last for ever.
std::optional<std::vector<uint8_t>> ReadRegularFile(const std::string &path, size_t limit);

/// A file of firmware, and its right length, which shows whether a file is damaged.
struct FirmwareFile {
    const char *name = nullptr;
    size_t bytes = 0;
};

/// The firmware that programs the FX2's EEPROM, in two pieces of its RAM.
struct EepromProgrammer {
    std::vector<uint8_t> low;
    std::vector<uint8_t> high;
};

/// Reads vendor1.bin and vendor2.bin. Returns nothing when one of them is missing or damaged, and
/// names it in a debug line. ReadFx2Image does the same with the boot image of a model, whose form
/// it checks as well.
std::optional<EepromProgrammer> ReadEepromProgrammer();
std::optional<std::vector<uint8_t>> ReadFx2Image(const FirmwareFile &file);

} // namespace vsccam
