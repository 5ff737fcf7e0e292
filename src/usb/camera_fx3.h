#pragma once

#include "base/sync.h"
#include "usb/bulk_stream.h"
#include "usb/device_list.h"
#include "usb/firmware_files.h"
#include "usb/firmware_image.h"
#include "usb/libusb_context.h"
#include "usb/request_budget.h"

#include <libusb.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace vsccam {

/// What the controller of a USB 3.0 camera keeps its firmware in.
enum class FX3_FWDWNLOAD_MEDIA_TYPE { Ram = 1, I2cEeprom = 2, SpiFlash = 3 };

/// The way to the camera: every vendor request of its USB controller, and its bulk endpoint.
///
/// Requests return true on success and false on failure, also when no device is open. Any thread
/// may issue them: one critical section makes each control transfer atomic with respect to the
/// others. Bytes that a short answer leaves out read as 0. A request is not sent, and fails at
/// once, while the camera leaves one after the other unanswered, and when its thread's
/// RequestBudget is used up; only those within LeavingSafe are sent then, too.
class CCameraFX3 {
  public:
    CCameraFX3();
    ~CCameraFX3();
    CCameraFX3(const CCameraFX3 &) = delete;
    CCameraFX3 &operator=(const CCameraFX3 &) = delete;

    /// The cameras that may be opened, now and after a loss. Before the first is opened.
    void RestrictTo(const CameraChoice &choice) { m_choice = choice; }

    bool IsOpened() const { return m_opened; }

    /// Whether the open device is on the bus, as far as the system has told libusb: sends nothing.
    bool IsAttached();

    /// Requests of any thread so far without which the camera is programmed by half: those that
    /// should have set it up, and got no answer or were not sent. A refusal is an answer.
    int LostSetUps() const { return m_lostSetUps; }

    /// Vendor command without data, 200 ms time-out.
    bool SendCMD(uint8_t cmd);
    /// Vendor request, 500 ms time-out. A read clears `buf` first. The length on the wire is the
    /// low 16 bits of `len`.
    bool SendCMD(uint8_t req, uint16_t value, uint16_t index, bool read, uint8_t *buf, long len);
    /// Vendor request without data for what must be switched off, see LeavingSafe.
    bool SendOff(uint8_t req, uint16_t value);

    /// Sensor registers: 16-bit address with 16-bit or 8-bit values.
    bool WriteCameraRegister(uint16_t address, uint16_t value);
    bool ReadCameraRegister(uint16_t address, uint16_t *value);
    bool WriteCameraRegisterByte(uint16_t address, uint8_t value);
    bool ReadCameraRegisterByte(uint16_t address, uint8_t *value);
    bool WriteSONYREG(uint16_t address, uint8_t value);
    bool ReadSONYREG(uint16_t address, uint8_t *value);

    /// Changes bits startBit to endBit, inclusive, of a 16-bit register.
    bool WriteCameraRegister_B(uint16_t address, int startBit, int endBit, uint16_t value);
    /// Changes bits startBit to endBit - 1 of an 8-bit register.
    // Quirk, kept: the end bit is exclusive here and inclusive in the 16-bit form.
    bool WriteCameraRegisterByte_B(uint16_t address, int startBit, int endBit, uint8_t value);

    bool WriteFPGAREG(uint16_t reg, uint16_t value);
    bool ReadFPGAREG(uint16_t reg, uint8_t *value);

    /// The data bus of the controller is either 32 bits wide or shared with the SPI flash.
    bool EnableGPIF32DQ(bool on);

    /// Version number of the controller's firmware; 1 when the answer is no version.
    bool GetFirmwareVer(uint8_t *version);
    /// The same; nothing when the camera gave no answer. A refusal is an answer, and no version.
    std::optional<uint8_t> AskFirmwareVersion();
    /// Version of the FPGA: major number and four nibbles. The result is that of the last read.
    bool GetFPGAVer(uint8_t *major, uint8_t sub[4]);
    /// The version as last read, without USB traffic.
    void GetFPGAVerVal(uint8_t *major, uint32_t *sub) const;

    /// Whether the camera is attached at SuperSpeed.
    bool IsUSB3Host();
    /// Whether the controller's boot loader answers.
    bool IsBootLoaderRunning();

    /// Held by whoever has the data bus narrow for the flash: the host, or a capture worker that
    /// programs a camera which came back. Locked after the sections of settings and cooler.
    CriticalSection &FlashSection() { return m_flashSection; }

    /// SPI flash: `address` is rounded down to a page of 256 bytes; at most 2048 bytes a request.
    bool ReadFromSPIFlash(uint8_t *buf, int len, uint32_t address, uint8_t req);
    bool WriteToSPIFlash(const uint8_t *buf, int len, uint32_t address, uint8_t req);
    /// Erases a sector of 64 KiB and waits until the flash is idle, 60 s at most.
    /// @return 0 on success, 1 on failure
    // Quirk, kept: the only request with an inverted result.
    int EraseSectorOfSPIFlash(uint16_t sector, uint8_t req);

    /// Memory of the controller, through its boot loader or firmware.
    bool DownloadBufferToDevice(uint32_t address, uint16_t len, const uint8_t *buf, uint8_t req);
    bool UploadBufferFromDevice(uint32_t address, uint16_t len, uint8_t *buf, uint8_t req);
    // Quirk, kept: the high half of the address comes first here, the low half in the two above.
    bool SetProgramEntry(uint8_t req, uint32_t address);

    /// Firmware of the FX2, in the controller of USB 2.0 cameras. Damaged images are refused before
    /// anything is sent; so is what needs the firmware that programs the EEPROM, when its files are
    /// not there.
    ///
    /// Loads an image into the controller's RAM and lets it run, also when the camera has been mute
    /// of late: without it the camera is dead until it is plugged in again.
    // Quirk, kept: true for every sound image, also when requests failed.
    bool UpdateFW2RAM(std::span<const uint8_t> image);
    /// Writes an image into the EEPROM that the controller boots from, and into its RAM. The EEPROM
    /// holds 64 KiB. The camera runs the image until it is reset, which makes it boot.
    bool UpdateFW(std::span<const uint8_t> image);
    bool UpdateFW(std::span<const uint8_t> image, const EepromProgrammer &programmer);
    /// Empties the EEPROM, so that the controller starts without firmware.
    bool EraseFlash();

    /// Firmware of the FX3, in the controller of USB 3.0 cameras.
    ///
    /// Reads an image from a file and writes it where the controller shall keep it.
    DownloadResult DownloadFw(const std::string &path, FX3_FWDWNLOAD_MEDIA_TYPE mediaType);
    /// Quiets the camera, loads the image through the boot loader and starts it.
    DownloadResult DownloadFwToRam(std::span<const uint8_t> image, uint8_t req);
    /// Writes the image from the start of the flash, which the camera's firmware only reaches after
    /// EnableGPIF32DQ(false).
    DownloadResult DownloadBuftoSPIFLASH(std::span<const uint8_t> image, uint8_t req);
    DownloadResult DownloadBuftoI2CE2PROM(std::span<const uint8_t> image, uint8_t req);

    /// Ends a stall of an endpoint. Refused while transfers are in flight that could not be
    /// cancelled, and to a camera that does not even answer a question. For the capture worker.
    bool ResetEndPoint(uint8_t endpoint);
    /// Resets the device on its port. Requests of other threads wait meanwhile as long as for an
    /// answer.
    bool ResetDevice();

    /// Prepares the reading of frames of `totalLen` bytes, see BulkStream::Init.
    bool initAsyncXfer(int totalLen, int count, int chunkSize, uint8_t endpoint);
    /// Reads one frame, with one repetition after a transfer error. Transfers that did not complete
    /// count as nothing.
    BulkStream::Pass startAsyncXfer(uint8_t *buffer, BulkStream::Timeouts timeouts,
                                    const RunFlag &running);
    /// Reads one frame as a single synchronous read does: without repetition, and whatever came
    /// before a failure or the time-out counts.
    BulkStream::Pass ReadFrameOnce(uint8_t *buffer, BulkStream::Timeouts timeouts,
                                   const RunFlag &running);
    void releaseAsyncXfer();

  protected:
    /// Opens the ordinal-th device (from 1, modulo 256) with this product ID, and claims it. A
    /// device that was open before is looked for at its port, and elsewhere once it was lost:
    /// another camera may have its ordinal now.
    bool OpenDevice(uint16_t productId, int ordinal);
    /// Closes the device if it is open, after which no request reaches it.
    void CloseDevice();
    /// Whether there is a device handle, open for requests or not.
    bool HasHandle();
    /// Closes the device, which is gone, and from then on looks for it elsewhere, too.
    void LoseDevice();
    /// Whether the lost device may have been found: somebody has to look again in a while.
    bool NewcomerSettles();

    /// While it lives, somebody waits for threads that use the camera: all of them together lose no
    /// more time than is left to the one who waits, who is charged with it in the end.
    class EndOfThreads {
      public:
        explicit EndOfThreads(CCameraFX3 &camera);
        ~EndOfThreads();
        EndOfThreads(const EndOfThreads &) = delete;
        EndOfThreads &operator=(const EndOfThreads &) = delete;

      private:
        CCameraFX3 &m_camera;
        const LossLimit m_given;
        const bool m_outermost;
    };

    uint8_t m_fpgaMajor = 0;
    uint32_t m_fpgaSub = 0;

  private:
    /// Outlives whatever is of libusb in here.
    const LibusbContext m_context;

    struct Request {
        uint8_t type;
        uint8_t code;
        uint16_t value;
        uint16_t index;
        uint8_t *data;
        uint16_t length;
        std::chrono::milliseconds timeout;
    };
    using Lock = std::unique_lock<CriticalSection>;

    int Control(const Request &request);
    int Transfer(const Request &request, Purpose purpose);
    int ReadFirmwareVer(uint8_t *version, std::chrono::milliseconds timeout);
    std::chrono::milliseconds TimeFor(std::chrono::milliseconds timeout, Purpose purpose) const;
    libusb_device_handle *FindDevice(uint16_t productId, int ordinal);
    bool MuteLately() const;
    /// Whether the open device is on the bus; then, takes note of who else is.
    bool LookAround();
    void NotePresence(); // of the device that just took transfers: looks around now and then
    BulkStream::Pass ReadPass(uint8_t *buffer, BulkStream::Timeouts timeouts,
                              const RunFlag &running, BulkStream::Count count);
    void NoteResult(int result);
    void ChargeLoss(Purpose purpose, Clock::time_point since);
    bool Answers();
    template <class Call> bool InKernel(Call call);
    void CountIfLost(int result, Purpose purpose);

    bool RestoreFx2Ram(uint16_t address, std::span<const uint8_t> bytes);
    bool ReleaseFx2();
    bool LoadEepromProgrammer(const EepromProgrammer &programmer);
    bool ProgramEeprom(std::span<const uint8_t> content);
    bool TransferEeprom(bool read, uint8_t *bytes, size_t size);
    void QuietSensor();
    bool WriteRam(uint32_t address, std::span<const uint8_t> chunk, uint8_t req);

    std::atomic<bool> m_opened{false};
    CriticalSection m_openSection;    // held while a device is opened, before the following one
    CriticalSection m_controlSection; // guards the members below and every control transfer
    Condition m_kernelIsDone;
    bool m_inKernel = false; // a call that may last has the device, without the section
    libusb_device_handle *m_handle = nullptr;
    bool m_gone = false; // a request said so
    int m_timeoutsInRow = 0;
    Clock::time_point m_muteUntil{};
    Shared<int> m_lostSetUps;

    LossAccount m_endingAccount{LossLimit()}; // in force while m_ending
    Shared<bool> m_ending;

    CriticalSection m_searchSection;   // guards the next three; locked last, never for long
    LostCamera m_search;               // for the device that was opened last
    libusb_device *m_device = nullptr; // that is open
    uint16_t m_productId = 0;
    CameraChoice m_choice;

    CriticalSection m_flashSection; // guards the width of the data bus

    BulkStream m_stream; // used by the capture worker
};

/// Merges `value`, shifted to `startBit`, into `old` under a mask of the bits startBit to
/// endBit - 1. An empty range changes nothing.
uint16_t MergeBits(uint16_t old, int startBit, int endBit, uint16_t value);

} // namespace vsccam
