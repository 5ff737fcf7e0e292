#include "base/clock.h"
#include "base/debug_print.h"
#include "usb/camera_fx3.h"
#include "usb/requests.h"

#include <algorithm>
#include <array>
#include <vector>

// Firmware of the camera's USB controller, into its RAM and the memories that it boots from.
namespace vsccam {

using namespace std::chrono_literals;

namespace {

// Control and status register of the FX2's processor.
constexpr uint16_t kCpucs = 0xE600;
constexpr uint8_t kCpucsRun[] = {0};
constexpr uint8_t kCpucsReset[] = {1}; // bit 0 holds the processor

// Of the firmware that programs the EEPROM.
constexpr uint16_t kProgrammerLow = 0x0000;
constexpr uint16_t kProgrammerHigh = 0x0800;

constexpr size_t kEepromBytes = 0x10000;
constexpr size_t kEepromPage = 4096;
constexpr int kEepromAttempts = 3;

constexpr size_t kFlashSector = 0x10000;
constexpr size_t kFlashPage = 256;
constexpr size_t kFlashReach = 0x10000 * kFlashPage; // by page numbers of 16 bits

// Size of the I2C memory that a FX3 image is meant for, by bits 1 to 3 of its third byte.
constexpr size_t kI2cDeviceBytes[] = {0, 0, 4'096, 8'192, 16'384, 32'768, 65'536, 65'536};
constexpr uint8_t kI2cLargeDevices = 7; // 128 KiB each, in two halves with selects of their own
constexpr size_t kI2cLargeDevice = 0x20000;
constexpr size_t kI2cPadding = 64;

constexpr size_t RoundedUp(size_t value, size_t multiple)
{
    return (value + multiple - 1) / multiple * multiple;
}

/// What is sent at once from `at` on; the last chunk is what is left.
std::span<const uint8_t> ChunkAt(std::span<const uint8_t> bytes, size_t at)
{
    return bytes.subspan(at, std::min(kFirmwareChunk, bytes.size() - at));
}

/// A chunk in a buffer that is filled up.
std::array<uint8_t, kFirmwareChunk> Padded(std::span<const uint8_t> chunk, uint8_t padding)
{
    std::array<uint8_t, kFirmwareChunk> buffer;
    buffer.fill(padding);
    std::ranges::copy(chunk, buffer.begin());
    return buffer;
}

/// The device select that follows when `written` bytes have filled the device.
uint16_t NextI2cDevice(uint8_t sizeClass, uint16_t device, size_t written)
{
    if (sizeClass != kI2cLargeDevices)
        return static_cast<uint16_t>((device + 1) % 8);
    if (written < kI2cLargeDevice)
        return 4;
    // Quirk, kept: from the third large device on, the second one is written again.
    return device == 1 ? 5 : 1;
}

} // namespace

/// Brings a controller back. It does not matter that the firmware has fallen silent, because the
/// controller itself takes these requests.
bool CCameraFX3::RestoreFx2Ram(uint16_t address, std::span<const uint8_t> bytes)
{
    const LeavingSafe leaving;
    const auto load = [=, this] {
        return DownloadBufferToDevice(address, static_cast<uint16_t>(bytes.size()), bytes.data(),
                                      request::kRam);
    };
    if (load())
        return true;
    return load(); // also after a time-out: nothing else brings it back
}

bool CCameraFX3::ReleaseFx2()
{
    return RestoreFx2Ram(kCpucs, kCpucsRun);
}

bool CCameraFX3::UpdateFW2RAM(std::span<const uint8_t> image)
{
    const auto records = ParseFx2Image(image);
    if (!records)
        return false;
    const auto load = [this](const FirmwareRecord &record) {
        return RestoreFx2Ram(static_cast<uint16_t>(record.address), record.data);
    };
    (void)(RestoreFx2Ram(kCpucs, kCpucsReset) && std::ranges::all_of(*records, load));
    (void)ReleaseFx2(); // whatever failed: a processor that was held must be let go
    return true;
}

bool CCameraFX3::UpdateFW(std::span<const uint8_t> image)
{
    if (!IsOpened())
        return false;
    const auto programmer = ReadEepromProgrammer();
    return programmer && UpdateFW(image, *programmer);
}

bool CCameraFX3::UpdateFW(std::span<const uint8_t> image, const EepromProgrammer &programmer)
{
    if (!IsOpened() || image.size() > kEepromBytes || !ParseFx2Image(image))
        return false;
    const bool programmed = LoadEepromProgrammer(programmer) && ProgramEeprom(image);
    (void)UpdateFW2RAM(image); // also after a failure: the camera's firmware is no longer in RAM
    return programmed;
}

bool CCameraFX3::EraseFlash()
{
    constexpr std::array<uint8_t, kEepromPage> kEmpty = {kFx2BootMark};
    const auto programmer = IsOpened() ? ReadEepromProgrammer() : std::nullopt;
    const bool loaded = programmer && LoadEepromProgrammer(*programmer);
    if (programmer && !loaded)
        (void)ReleaseFx2();
    const bool erased = loaded && ProgramEeprom(kEmpty);
    OutputDbgPrint(erased ? "erase flash success\n" : "erase flash false\n");
    return erased;
}

/// Without this firmware, the requests for the EEPROM would mean something else to the camera. When
/// loading it fails, the only thing that may follow is bringing the processor back.
bool CCameraFX3::LoadEepromProgrammer(const EepromProgrammer &programmer)
{
    const auto load = [this](uint16_t address, std::span<const uint8_t> bytes) {
        return DownloadBufferToDevice(address, static_cast<uint16_t>(bytes.size()), bytes.data(),
                                      request::kRam);
    };
    return load(kCpucs, kCpucsReset) && load(kProgrammerLow, programmer.low) &&
           load(kProgrammerHigh, programmer.high) && ReleaseFx2();
}

bool CCameraFX3::ProgramEeprom(std::span<const uint8_t> content)
{
    std::vector<uint8_t> bytes(content.begin(), content.end());
    for (int attempt = 1; attempt <= kEepromAttempts; ++attempt) {
        std::vector<uint8_t> readBack(bytes.size());
        if (TransferEeprom(false, bytes.data(), bytes.size()) &&
            TransferEeprom(true, readBack.data(), readBack.size()) && readBack == bytes)
            return attempt < kEepromAttempts; // Quirk, kept: a match at the last is a failure.
    }
    return false;
}

bool CCameraFX3::TransferEeprom(bool read, uint8_t *bytes, size_t size)
{
    for (size_t at = 0; at < size; at += kEepromPage) {
        const bool last = size - at <= kEepromPage;
        // Quirk, kept: when the last of several pages is a full one, nothing of it is transferred,
        // so that such an image fails the comparison.
        const size_t length = size <= kEepromPage ? size : last ? size % kEepromPage : kEepromPage;
        if (!SendCMD(request::kEeprom, static_cast<uint16_t>(at), 0, read, bytes + at,
                     static_cast<long>(length)))
            return false;
    }
    return true;
}

DownloadResult CCameraFX3::DownloadFw(const std::string &path, FX3_FWDWNLOAD_MEDIA_TYPE mediaType)
{
    constexpr struct {
        FX3_FWDWNLOAD_MEDIA_TYPE type;
        DownloadResult (CCameraFX3::*download)(std::span<const uint8_t>, uint8_t);
        uint8_t request;
    } kMedia[] = {
        {FX3_FWDWNLOAD_MEDIA_TYPE::Ram, &CCameraFX3::DownloadFwToRam, request::kRam},
        {FX3_FWDWNLOAD_MEDIA_TYPE::I2cEeprom, &CCameraFX3::DownloadBuftoI2CE2PROM,
         request::kWriteI2cEeprom},
        {FX3_FWDWNLOAD_MEDIA_TYPE::SpiFlash, &CCameraFX3::DownloadBuftoSPIFLASH,
         request::kEraseFlash},
    };
    const auto image = ReadRegularFile(path, kFlashReach);
    if (!image || image->empty())
        return DownloadResult::FileError;
    for (const auto &media : kMedia) {
        if (media.type == mediaType)
            return (this->*media.download)(*image, media.request);
    }
    return DownloadResult::UnknownMedia;
}

DownloadResult CCameraFX3::DownloadFwToRam(std::span<const uint8_t> image, uint8_t req)
{
    if (m_quiet)
        m_quiet(*this);
    Fx3Image parsed;
    if (const DownloadResult found = ParseFx3Image(image, &parsed);
        found != DownloadResult::Success)
        return found;
    for (const auto &[address, data] : parsed.records) {
        for (size_t at = 0; at < data.size(); at += kFirmwareChunk) {
            if (!WriteRam(address + static_cast<uint32_t>(at), ChunkAt(data, at), req))
                return DownloadResult::RequestFailed;
        }
    }
    // This writes nothing: it makes the boot loader jump, which may be gone before it answers.
    // Quirk, kept: neither the answer nor the checksum of the image is looked at.
    (void)DownloadBufferToDevice(parsed.entry, 0, nullptr, req);
    return DownloadResult::Success;
}

bool CCameraFX3::WriteRam(uint32_t address, std::span<const uint8_t> chunk, uint8_t req)
{
    const auto length = static_cast<uint16_t>(chunk.size());
    std::array<uint8_t, kFirmwareChunk> readBack;
    bool transferred = false;
    // Quirk, kept: three rounds in any case, of which only the last counts.
    for (int round = 0; round < 3; ++round) {
        const bool written = DownloadBufferToDevice(address, length, chunk.data(), req);
        transferred = UploadBufferFromDevice(address, length, readBack.data(), req) && written;
    }
    return transferred && std::ranges::equal(chunk, std::span(readBack).first(length));
}

DownloadResult CCameraFX3::DownloadBuftoSPIFLASH(std::span<const uint8_t> image, uint8_t req)
{
    if (image.size() > kFlashReach)
        return DownloadResult::ImageOverrun;
    for (size_t sector = 0; sector * kFlashSector < image.size(); ++sector) {
        if (EraseSectorOfSPIFlash(static_cast<uint16_t>(sector), req) != 0)
            return DownloadResult::EraseFailed;
    }
    for (size_t at = 0; at < image.size(); at += kFirmwareChunk) {
        const auto chunk = ChunkAt(image, at);
        const int length = static_cast<int>(RoundedUp(chunk.size(), kFlashPage));
        if (!WriteToSPIFlash(Padded(chunk, 0xFF).data(), length, static_cast<uint32_t>(at),
                             request::kWriteFlash))
            return DownloadResult::RequestFailed;
    }
    return DownloadResult::Success;
}

DownloadResult CCameraFX3::DownloadBuftoI2CE2PROM(std::span<const uint8_t> image, uint8_t req)
{
    const uint8_t sizeClass = image.size() > 2 ? image[2] >> 1 & 7 : 0;
    const size_t deviceBytes = kI2cDeviceBytes[sizeClass];
    if (deviceBytes == 0)
        return DownloadResult::UnsupportedSizeClass;
    uint16_t device = 0;
    for (size_t at = 0; at < image.size(); at += kFirmwareChunk) {
        if (at > 0 && at % deviceBytes == 0)
            device = NextI2cDevice(sizeClass, device, at);
        const auto address = static_cast<uint16_t>(at % deviceBytes);
        const auto chunk = ChunkAt(image, at);
        auto buffer = Padded(chunk, 0x00);
        const auto length = static_cast<long>(RoundedUp(chunk.size(), kI2cPadding));
        if (!SendCMD(req, device, address, false, buffer.data(), length))
            return DownloadResult::RequestFailed;
        // Quirk, kept: only a last chunk that is no full one is read back, and it is not compared.
        if (chunk.size() < kFirmwareChunk &&
            !SendCMD(request::kReadI2cEeprom, device, address, true, buffer.data(), length))
            return DownloadResult::RequestFailed;
    }
    return DownloadResult::Success;
}

} // namespace vsccam
