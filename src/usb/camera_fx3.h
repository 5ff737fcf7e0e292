#pragma once

#include "base/guarded.h"
#include "base/sync.h"
#include "usb/answer_record.h"
#include "usb/bulk_stream.h"
#include "usb/device_handle.h"
#include "usb/device_search.h"
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
/// Requests return true on success and false on failure, also when no device is open. A caller that
/// has no use for the result casts it to void and says why. Any thread may issue requests: one
/// critical section makes each control transfer atomic with respect to the others. Bytes that a
/// short answer leaves out read as 0. A request fails at once, without being sent, while the camera
/// leaves one after the other unanswered, and when its thread's RequestBudget is used up; only
/// requests within LeavingSafe are sent then, too.
///
/// The parts guard themselves, as their headers say, but for the record of answers.
class CCameraFX3 {
  public:
    CCameraFX3();
    ~CCameraFX3();
    CCameraFX3(const CCameraFX3 &) = delete;
    CCameraFX3 &operator=(const CCameraFX3 &) = delete;

    /// Says which cameras may be opened, now and after a loss. To be called before the first is
    /// opened.
    void RestrictTo(const CameraChoice &choice) { m_search.RestrictTo(choice); }

    bool IsOpened() const { return m_opened; }

    /// Whether the open device is on the bus, as far as the system has told libusb: sends nothing.
    bool IsAttached();

    /// Counts the requests, of all threads, that should have set the camera up and were not sent or
    /// got no answer: each of them leaves the camera half programmed. A refusal is an answer.
    int LostSetUps() const { return m_lostSetUps; }

    /// Vendor command without data, 200 ms time-out.
    [[nodiscard]] bool SendCMD(uint8_t cmd);
    /// Vendor request, 500 ms time-out. A read clears `buf` first. The length on the wire is the
    /// low 16 bits of `len`.
    [[nodiscard]] bool SendCMD(uint8_t req, uint16_t value, uint16_t index, bool read, uint8_t *buf,
                               long len);
    /// Vendor request without data for what must be switched off, see LeavingSafe.
    [[nodiscard]] bool SendOff(uint8_t req, uint16_t value);

    /// Sensor registers: 16-bit address with 16-bit or 8-bit values.
    [[nodiscard]] bool WriteCameraRegister(uint16_t address, uint16_t value);
    [[nodiscard]] bool ReadCameraRegister(uint16_t address, uint16_t *value);
    [[nodiscard]] bool WriteCameraRegisterByte(uint16_t address, uint8_t value);
    [[nodiscard]] bool ReadCameraRegisterByte(uint16_t address, uint8_t *value);
    [[nodiscard]] bool WriteSONYREG(uint16_t address, uint8_t value);
    [[nodiscard]] bool ReadSONYREG(uint16_t address, uint8_t *value);

    /// Changes bits startBit to endBit, inclusive, of a 16-bit register.
    [[nodiscard]] bool WriteCameraRegister_B(uint16_t address, int startBit, int endBit,
                                             uint16_t value);

    [[nodiscard]] bool WriteFPGAREG(uint16_t reg, uint16_t value);
    [[nodiscard]] bool ReadFPGAREG(uint16_t reg, uint8_t *value);

    /// The data bus of the controller is either 32 bits wide or shared with the SPI flash.
    [[nodiscard]] bool EnableGPIF32DQ(bool on);

    /// Version number of the controller's firmware; 1 when the answer is no version.
    [[nodiscard]] bool GetFirmwareVer(uint8_t *version);
    /// The same; nothing when the camera gave no answer. A refusal is an answer, and no version.
    [[nodiscard]] std::optional<uint8_t> AskFirmwareVersion();
    /// Version of the FPGA: major number and four nibbles. The result is that of the last read.
    [[nodiscard]] bool GetFPGAVer(uint8_t *major, uint8_t sub[4]);

    /// Whether the camera is attached at SuperSpeed.
    [[nodiscard]] bool IsUSB3Host();

    /// Held by whoever has the data bus narrow for the flash: the host, or a capture worker that
    /// programs a camera which came back. Locked after sequences of programming and the
    /// section of the cooler.
    CriticalSection &FlashSection() VSC_RETURN_CAPABILITY(m_flashSection) { return m_flashSection; }

    /// The SPI flash: `address` is rounded down to a page of 256 bytes; a request carries at most
    /// 2048 bytes.
    [[nodiscard]] bool ReadFromSPIFlash(uint8_t *buf, int len, uint32_t address, uint8_t req);
    [[nodiscard]] bool WriteToSPIFlash(const uint8_t *buf, int len, uint32_t address, uint8_t req);
    /// Erases a sector of 64 KiB and waits until the flash is idle, 60 s at most.
    /// @return 0 on success, 1 on failure
    // Quirk, kept: the only request with an inverted result.
    [[nodiscard]] int EraseSectorOfSPIFlash(uint16_t sector, uint8_t req);

    /// Memory of the controller, through its boot loader or firmware.
    [[nodiscard]] bool DownloadBufferToDevice(uint32_t address, uint16_t len, const uint8_t *buf,
                                              uint8_t req);
    [[nodiscard]] bool UploadBufferFromDevice(uint32_t address, uint16_t len, uint8_t *buf,
                                              uint8_t req);
    // Quirk, kept: the high half of the address comes first here, the low half in the two above.
    [[nodiscard]] bool SetProgramEntry(uint8_t req, uint32_t address);

    /// Firmware of the FX2, the controller of USB 2.0 cameras. Nothing is sent when an image is
    /// damaged, nor when the EEPROM is to be programmed and the files of the firmware that does it
    /// are not there.
    ///
    /// Loads an image into the controller's RAM and lets it run, also when the camera has been mute
    /// of late: without it the camera is dead until it is plugged in again.
    // Quirk, kept: true for every sound image, also when requests failed.
    [[nodiscard]] bool UpdateFW2RAM(std::span<const uint8_t> image);
    /// Writes an image into the EEPROM that the controller boots from, and into its RAM. The EEPROM
    /// holds 64 KiB. The camera runs the image until it is reset, which makes it boot.
    [[nodiscard]] bool UpdateFW(std::span<const uint8_t> image);
    [[nodiscard]] bool UpdateFW(std::span<const uint8_t> image, const EepromProgrammer &programmer);
    /// Empties the EEPROM, so that the controller starts without firmware.
    [[nodiscard]] bool EraseFlash();

    /// Firmware of the FX3, the controller of USB 3.0 cameras. No exported function reaches these,
    /// and no program calls them: they are here for maintenance by hand, by these names.
    ///
    /// What brings sensor and FPGA to rest before the controller restarts, which then knows of
    /// nothing that runs: the business of who knows their registers. By default nothing does.
    void UseQuieting(void (*quiet)(CCameraFX3 &)) { m_quiet = quiet; }
    /// Reads an image from a file and writes it where the controller shall keep it.
    [[nodiscard]] DownloadResult DownloadFw(const std::string &path,
                                            FX3_FWDWNLOAD_MEDIA_TYPE mediaType);
    /// Quiets the camera, loads the image through the boot loader and starts it.
    [[nodiscard]] DownloadResult DownloadFwToRam(std::span<const uint8_t> image, uint8_t req);
    /// Writes the image from the start of the flash, which the camera's firmware only reaches after
    /// EnableGPIF32DQ(false).
    [[nodiscard]] DownloadResult DownloadBuftoSPIFLASH(std::span<const uint8_t> image, uint8_t req);
    [[nodiscard]] DownloadResult DownloadBuftoI2CE2PROM(std::span<const uint8_t> image,
                                                        uint8_t req);

    // By name only, like the four above.

    /// Changes bits startBit to endBit - 1 of an 8-bit register.
    // Quirk, kept: the end bit is exclusive here and inclusive in the 16-bit form.
    [[nodiscard]] bool WriteCameraRegisterByte_B(uint16_t address, int startBit, int endBit,
                                                 uint8_t value);
    /// Version of the FPGA as last read, without USB traffic.
    void GetFPGAVerVal(uint8_t *major, uint32_t *sub) const;
    /// Whether the controller's boot loader answers.
    [[nodiscard]] bool IsBootLoaderRunning();

    /// Ends a stall of an endpoint. Refused while transfers are in flight that could not be
    /// cancelled, and to a camera that does not even answer a question. For the capture worker.
    [[nodiscard]] bool ResetEndPoint(uint8_t endpoint);
    /// Resets the device on its port. Requests of other threads wait meanwhile as long as for an
    /// answer. Refused while transfers are in flight that could not be cancelled.
    [[nodiscard]] bool ResetDevice();

    /// Prepares the reading of frames of `totalLen` bytes, see BulkStream::Init.
    [[nodiscard]] bool initAsyncXfer(int totalLen, int count, int chunkSize, uint8_t endpoint);
    /// Reads one frame, with one repetition after a transfer error. Transfers that did not complete
    /// count as nothing.
    [[nodiscard]] BulkStream::Pass startAsyncXfer(uint8_t *buffer, BulkStream::Timeouts timeouts,
                                                  const RunFlag &running);
    /// Reads one frame as a single synchronous read does: without repetition, and whatever came
    /// before a failure or the time-out counts.
    [[nodiscard]] BulkStream::Pass ReadFrameOnce(uint8_t *buffer, BulkStream::Timeouts timeouts,
                                                 const RunFlag &running);
    void releaseAsyncXfer();
    /// Whether transfers were cancelled and did not come back. For the capture worker.
    bool HasTransfersInFlight() const { return m_stream.InFlight(); }

  protected:
    /// Opens the ordinal-th device (from 1, modulo 256) with this product ID, and claims it. A
    /// device that was open before is looked for at its port, and elsewhere once it was lost:
    /// another camera may have its ordinal now.
    [[nodiscard]] bool OpenDevice(uint16_t productId, int ordinal);
    /// Closes the device if it is open, after which no request reaches it.
    void CloseDevice();
    /// Whether there is a device handle, open for requests or not.
    bool HasHandle();
    /// Closes the device, which is gone, and from then on looks for it elsewhere, too.
    void LoseDevice();
    /// Whether a device has come that may be the lost one: somebody has to look again in a while.
    bool NewcomerSettles() { return m_search.NewcomerSettles(); }

    /// While it lives, somebody waits for threads that use the camera.
    class EndOfThreads : public EndingAccount::Wait {
      public:
        explicit EndOfThreads(CCameraFX3 &camera) : Wait(camera.m_ending) {}
    };

  private:
    /// Stands first, so that it outlives everything else of libusb in here.
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

    int Control(const Request &request);
    int Transfer(const Request &request, Purpose purpose);
    int ReadFirmwareVer(uint8_t *version, std::chrono::milliseconds timeout);
    std::chrono::milliseconds TimeFor(std::chrono::milliseconds timeout, Purpose purpose) const
        VSC_REQUIRES(m_controlSection);
    BulkStream::Pass ReadPass(uint8_t *buffer, BulkStream::Timeouts timeouts,
                              const RunFlag &running, BulkStream::Count count);
    void ChargeLoss(Purpose purpose, Clock::time_point since);
    bool AnswersAtAll();
    template <class Call> bool InKernel(Call call);
    void CountIfLost(int result, Purpose purpose);

    bool RestoreFx2Ram(uint16_t address, std::span<const uint8_t> bytes);
    bool ReleaseFx2();
    bool LoadEepromProgrammer(const EepromProgrammer &programmer);
    bool ProgramEeprom(std::span<const uint8_t> content);
    bool TransferEeprom(bool read, uint8_t *bytes, size_t size);
    bool WriteRam(uint32_t address, std::span<const uint8_t> chunk, uint8_t req);

    struct FpgaVersion {
        uint8_t major = 0;
        uint32_t sub = 0; // four nibbles, a byte each
    };
    Guarded<FpgaVersion> m_fpgaVersion; // as last read

    std::atomic<bool> m_opened{false};
    /// Held while a device is opened.
    CriticalSection m_openSection VSC_ACQUIRED_BEFORE(m_controlSection);
    CriticalSection m_controlSection; // held over every control transfer
    Condition m_kernelIsDone;
    /// A call that may last has the device, without the section.
    bool m_inKernel VSC_GUARDED_BY(m_controlSection) = false;
    DeviceHandle m_handle VSC_GUARDED_BY(m_controlSection);
    AnswerRecord m_answers VSC_GUARDED_BY(m_controlSection); // of the open device

    Shared<int> m_lostSetUps;
    EndingAccount m_ending;
    DeviceSearch m_search;

    CriticalSection m_flashSection; // guards the width of the data bus

    BulkStream m_stream; // used by the capture worker
    void (*m_quiet)(CCameraFX3 &) = nullptr;
};

/// Merges `value`, shifted to `startBit`, into `old` under a mask of the bits startBit to
/// endBit - 1. An empty range changes nothing.
uint16_t MergeBits(uint16_t old, int startBit, int endBit, uint16_t value);

} // namespace vsccam
