#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// The image formats of the two USB controllers. Images come from files and are taken apart as a
/// whole before the first byte is sent: a damaged one never ends up half in a controller.
namespace vsccam {

/// What a firmware download ended with. The numbers are known to the programs that ask for it.
enum class DownloadResult {
    Success = 0,
    RequestFailed = 1, // also: what was read back is not what was written
    UnknownMedia = 2,
    NoSignature = 3, // the image does not start with "CY"
    ImageOverrun = 5,
    FileError = 6,
    EraseFailed = 7,
    ChunkTooLong = 8, // a chunk is longer than the whole image
    UnsupportedSizeClass = 9,
};

/// Bytes of the image, and the address in the controller's memory where they belong.
struct FirmwareRecord {
    uint32_t address;
    std::span<const uint8_t> data;
};

/// Longest piece of a FX3 record that is sent at once.
inline constexpr size_t kFirmwareChunk = 2048;

struct Fx3Image {
    std::vector<FirmwareRecord> records;
    uint32_t entry = 0; // where the program starts
};

/// Takes a FX3 boot image apart: "CY", two control bytes, records of a length in words, an address
/// and the data, all little-endian; a record of length 0 holds the entry point, and the checksum
/// follows it.
/// @return Success, NoSignature, ImageOverrun or ChunkTooLong; `parsed` is whole only on Success
DownloadResult ParseFx3Image(std::span<const uint8_t> image, Fx3Image *parsed);

/// Takes a FX2 boot image apart: a header of 8 bytes that starts with 0xC2, and records of a
/// length, an address and the data, all big-endian, up to a record that starts with 80 01 E6 00.
/// @return nothing when the image has another header, ends before its end record, or goes beyond
/// the 64 KiB that the processor addresses
std::optional<std::vector<FirmwareRecord>> ParseFx2Image(std::span<const uint8_t> image);

inline constexpr uint8_t kFx2BootMark = 0xC2; // of a memory that the FX2 takes its program from
inline constexpr size_t kFx2HeaderBytes = 8;
inline constexpr std::array<uint8_t, 4> kFx2EndRecord = {0x80, 0x01, 0xE6, 0x00};

} // namespace vsccam
