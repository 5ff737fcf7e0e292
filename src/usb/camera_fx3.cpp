#include "usb/camera_fx3.h"

#include "base/debug_print.h"
#include "usb/requests.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <utility>

namespace vsccam {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

constexpr uint8_t kVendorOut = 0x40;
constexpr uint8_t kVendorIn = 0xC0;
constexpr auto kCommandTimeout = 200ms;
constexpr auto kRequestTimeout = 500ms;
constexpr int kConfiguration = 1;
constexpr int kInterface = 0;

constexpr milliseconds kLeaveSafeTimeout = 150ms;
constexpr milliseconds kTimeoutAfterLoss = 200ms;
constexpr milliseconds kProbeTimeout = 200ms;
constexpr milliseconds kVersionTimeout = 300ms; // three of them fit into one call

constexpr uint32_t kFlashPage = 256;
constexpr auto kFlashEraseBound = 60s;
constexpr auto kFlashPollInterval = 1ms;

constexpr uint16_t kFpgaVersionMajor = 29; // two registers of nibbles follow

constexpr bool FailedAtOnce(int result)
{
    return result < 0 && result != LIBUSB_ERROR_TIMEOUT && result != LIBUSB_ERROR_BUSY &&
           result != LIBUSB_ERROR_NO_DEVICE;
}

constexpr uint16_t Word(const uint8_t bytes[2])
{
    return static_cast<uint16_t>(bytes[0] * 256 + bytes[1]);
}

constexpr uint16_t Low(uint32_t value)
{
    return static_cast<uint16_t>(value);
}
constexpr uint16_t High(uint32_t value)
{
    return static_cast<uint16_t>(value >> 16);
}

} // namespace

CCameraFX3::CCameraFX3()
{
    if (!m_context)
        OutputAlways(Output::kStandardOutput, "failed to initialise libusb\n");
}

CCameraFX3::~CCameraFX3()
{
    OutputDbgPrint("~CCameraFX3\n");
    CloseDevice();
}

bool CCameraFX3::OpenDevice(uint16_t productId, int ordinal)
{
    const SectionLock opening(m_openSection); // the kernel may take seconds: requests fail
    if (m_opened || !m_context)
        return false;
    DeviceHandle handle = m_search.Open(productId, ordinal);
    if (!handle || libusb_set_configuration(handle.get(), kConfiguration) != 0 ||
        libusb_claim_interface(handle.get(), kInterface) != 0) // another program has it
        return false;
    m_search.Found(libusb_get_device(handle.get()), productId);
    (void)m_search.LookAround(); // it is there
    const SectionLock lock(m_controlSection);
    m_handle = std::move(handle);
    m_answers = {};
    m_opened = true;
    return true;
}

void CCameraFX3::CloseDevice()
{
    SectionLock lock(m_controlSection);
    m_search.Closing();
    m_opened = false;
    m_kernelIsDone.Wait(lock, [this]() VSC_REQUIRES(m_controlSection) { return !m_inKernel; });
    m_handle.reset();
    m_stream.DeviceClosed();
}

bool CCameraFX3::HasHandle()
{
    const SectionLock lock(m_controlSection);
    return m_handle != nullptr;
}

bool CCameraFX3::IsAttached()
{
    const SectionLock lock(m_controlSection);
    return m_opened && !m_answers.IsGone() && m_search.LookAround();
}

void CCameraFX3::LoseDevice()
{
    (void)
        m_search.LookAround(); // the system may not have told yet that it is gone: then it is exact
    CloseDevice();
}

int CCameraFX3::Control(const Request &request)
{
    const Purpose purpose = LeavingSafe::PurposeNow();
    int result = Transfer(request, purpose);
    // A mute camera would only hold up the end.
    if (purpose == Purpose::LeaveSafe && FailedAtOnce(result))
        result = Transfer(request, purpose);
    const bool widensBus = request.code == request::kGpif32; // at the end of work with the flash
    if (request::Programs(request.code, request.type == kVendorIn, request.value))
        CountIfLost(result, widensBus ? Purpose::Work : purpose);
    return result;
}

/// Requests that leave the camera safe do not count, because the next start programs it anyway.
void CCameraFX3::CountIfLost(int result, Purpose purpose)
{
    if (m_opened && purpose == Purpose::Work && GotNoAnswer(result))
        ++m_lostSetUps;
}

int CCameraFX3::Transfer(const Request &request, Purpose purpose)
{
    const auto asked = Clock::now();
    SectionLock lock(m_controlSection);
    RequestBudget::ChargeWait(asked);
    const milliseconds patience = TimeFor(request.timeout, purpose);
    if (patience < RequestBudget::kShortest)
        return LIBUSB_ERROR_NO_DEVICE; // nothing to wait for
    const auto start = Clock::now();
    if (!m_kernelIsDone.WaitUntil(lock, start + patience, [this]() VSC_REQUIRES(m_controlSection) {
            return !m_inKernel;
        })) {
        ChargeLoss(purpose, start);
        return LIBUSB_ERROR_BUSY;
    }
    const milliseconds timeout = TimeFor(request.timeout, purpose);
    if (!m_opened || timeout < RequestBudget::kShortest)
        return LIBUSB_ERROR_NO_DEVICE;
    const int result = libusb_control_transfer(
        m_handle.get(), request.type, request.code, request.value, request.index, request.data,
        request.length, static_cast<unsigned int>(timeout.count()));
    m_answers.Note(result);
    if (GotNoAnswer(result))
        ChargeLoss(purpose, start);
    return result;
}

/// How long an answer may take now: 0 when nothing is to be sent.
milliseconds CCameraFX3::TimeFor(milliseconds timeout, Purpose purpose) const
{
    if (purpose == Purpose::Work && m_answers.IsMute())
        return milliseconds(0);
    // No request may use up the time of those that follow it.
    if (purpose == Purpose::LeaveSafe)
        timeout = std::min(timeout, kLeaveSafeTimeout);
    else if (RequestBudget::HasLost())
        timeout = std::min(timeout, kTimeoutAfterLoss);
    return RequestBudget::Left(purpose, m_ending.Left(purpose, timeout));
}

void CCameraFX3::ChargeLoss(Purpose purpose, Clock::time_point since)
{
    const auto lost = std::chrono::ceil<milliseconds>(Clock::now() - since);
    RequestBudget::Charge(purpose, lost);
    m_ending.Charge(purpose, lost);
}

bool CCameraFX3::SendCMD(uint8_t cmd)
{
    return Control({kVendorOut, cmd, 0, 0, nullptr, 0, kCommandTimeout}) >= 0;
}

bool CCameraFX3::SendCMD(uint8_t req, uint16_t value, uint16_t index, bool read, uint8_t *buf,
                         long len)
{
    if (len < 0 || (len > 0 && !buf))
        return false;
    const auto wireLength = static_cast<uint16_t>(len);
    if (read)
        std::fill_n(buf, wireLength, uint8_t{0});
    const uint8_t type = read ? kVendorIn : kVendorOut;
    return Control({type, req, value, index, buf, wireLength, kRequestTimeout}) >= 0;
}

bool CCameraFX3::SendOff(uint8_t req, uint16_t value)
{
    const LeavingSafe leaving;
    return SendCMD(req, value, 0, false, nullptr, 0);
}

bool CCameraFX3::WriteCameraRegister(uint16_t address, uint16_t value)
{
    return SendCMD(request::kWriteSensor, address, value, false, nullptr, 0);
}

bool CCameraFX3::ReadCameraRegister(uint16_t address, uint16_t *value)
{
    uint8_t bytes[2] = {};
    const bool ok = SendCMD(request::kReadSensor, address, 0, true, bytes, sizeof bytes);
    *value = Word(bytes);
    return ok;
}

bool CCameraFX3::WriteCameraRegisterByte(uint16_t address, uint8_t value)
{
    return SendCMD(request::kWriteSensorByte, address, value, false, nullptr, 0);
}

bool CCameraFX3::ReadCameraRegisterByte(uint16_t address, uint8_t *value)
{
    return SendCMD(request::kReadSensorByte, address, 0, true, value, 1);
}

bool CCameraFX3::WriteSONYREG(uint16_t address, uint8_t value)
{
    return WriteCameraRegisterByte(address, value);
}

bool CCameraFX3::ReadSONYREG(uint16_t address, uint8_t *value)
{
    return ReadCameraRegisterByte(address, value);
}

bool CCameraFX3::WriteCameraRegister_B(uint16_t address, int startBit, int endBit, uint16_t value)
{
    uint8_t old[2] = {}; // a failed read counts as 0; the write decides
    const int result =
        Control({kVendorIn, request::kReadSensor, address, 0, old, sizeof old, kRequestTimeout});
    CountIfLost(result, Purpose::Work);
    return WriteCameraRegister(address, MergeBits(Word(old), startBit, endBit + 1, value));
}

bool CCameraFX3::WriteCameraRegisterByte_B(uint16_t address, int startBit, int endBit,
                                           uint8_t value)
{
    uint8_t old = 0;
    (void)ReadCameraRegisterByte(address, &old); // as above
    return WriteCameraRegisterByte(address,
                                   static_cast<uint8_t>(MergeBits(old, startBit, endBit, value)));
}

bool CCameraFX3::WriteFPGAREG(uint16_t reg, uint16_t value)
{
    return SendCMD(request::kWriteFpga, reg, value, false, nullptr, 0);
}

bool CCameraFX3::ReadFPGAREG(uint16_t reg, uint8_t *value)
{
    return SendCMD(request::kReadFpga, reg, 0, true, value, 1);
}

bool CCameraFX3::EnableGPIF32DQ(bool on)
{
    return SendCMD(request::kGpif32, on ? 1 : 0, 0, false, nullptr, 0);
}

int CCameraFX3::ReadFirmwareVer(uint8_t *version, milliseconds timeout)
{
    uint8_t answer[2] = {};
    const int result =
        Control({kVendorIn, request::kFirmwareVersion, 0, 0, answer, sizeof answer, timeout});
    *version = answer[0] == 'V' ? answer[1] : uint8_t{1};
    OutputDbgPrint("Ver success %d\n", result >= 0 ? 1 : 0);
    return result;
}

bool CCameraFX3::GetFirmwareVer(uint8_t *version)
{
    return ReadFirmwareVer(version, kRequestTimeout) >= 0;
}

std::optional<uint8_t> CCameraFX3::AskFirmwareVersion()
{
    uint8_t version = 0;
    const int result = ReadFirmwareVer(&version, kVersionTimeout);
    return GotNoAnswer(result) ? std::nullopt : std::optional(version);
}

bool CCameraFX3::GetFPGAVer(uint8_t *major, uint8_t sub[4])
{
    uint8_t nibbles[2] = {};
    (void)ReadFPGAREG(kFpgaVersionMajor, major); // the last read decides
    (void)ReadFPGAREG(kFpgaVersionMajor + 1, &nibbles[0]);
    const bool ok = ReadFPGAREG(kFpgaVersionMajor + 2, &nibbles[1]);
    FpgaVersion version{.major = *major};
    for (int i = 0; i < 4; ++i) {
        const uint8_t both = nibbles[i / 2];
        sub[i] = static_cast<uint8_t>(i % 2 == 0 ? both >> 4 : both & 0x0F);
        version.sub = version.sub << 8 | sub[i];
    }
    m_fpgaVersion.With([&version](FpgaVersion &read) { read = version; });
    return ok;
}

void CCameraFX3::GetFPGAVerVal(uint8_t *major, uint32_t *sub) const
{
    const FpgaVersion version = m_fpgaVersion.Now();
    *major = version.major;
    *sub = version.sub;
}

bool CCameraFX3::IsUSB3Host()
{
    uint8_t answer = 0;
    return SendCMD(request::kUsb3Host, 0, 0, true, &answer, 1) && answer == 1;
}

bool CCameraFX3::IsBootLoaderRunning()
{
    uint8_t answer = 0;
    return SendCMD(request::kRam, 0, 0, true, &answer, 1);
}

bool CCameraFX3::ReadFromSPIFlash(uint8_t *buf, int len, uint32_t address, uint8_t req)
{
    return SendCMD(req, 0, Low(address / kFlashPage), true, buf, len);
}

bool CCameraFX3::WriteToSPIFlash(const uint8_t *buf, int len, uint32_t address, uint8_t req)
{
    // libusb takes a pointer to non-const for both directions and only reads here.
    return SendCMD(req, 0, Low(address / kFlashPage), false, const_cast<uint8_t *>(buf), len);
}

int CCameraFX3::EraseSectorOfSPIFlash(uint16_t sector, uint8_t req)
{
    if (!SendCMD(req, 1, sector, false, nullptr, 0))
        return 1;
    const auto deadline = Clock::now() + kFlashEraseBound;
    while (Clock::now() < deadline) {
        uint8_t status = 0;
        if (!SendCMD(req, 0, sector, true, &status, 1))
            return 1;
        if (status == 0)
            return 0;
        SleepFor(kFlashPollInterval);
    }
    return 1;
}

bool CCameraFX3::DownloadBufferToDevice(uint32_t address, uint16_t len, const uint8_t *buf,
                                        uint8_t req)
{
    return SendCMD(req, Low(address), High(address), false, const_cast<uint8_t *>(buf), len);
}

bool CCameraFX3::UploadBufferFromDevice(uint32_t address, uint16_t len, uint8_t *buf, uint8_t req)
{
    return SendCMD(req, Low(address), High(address), true, buf, len);
}

bool CCameraFX3::SetProgramEntry(uint8_t req, uint32_t address)
{
    return SendCMD(req, High(address), Low(address), false, nullptr, 0);
}

/// A call that may last in the kernel, up to five seconds with a camera that does not answer. No
/// other thread waits for the control section meanwhile.
template <class Call> bool CCameraFX3::InKernel(Call call)
{
    libusb_device_handle *handle = nullptr;
    {
        SectionLock lock(m_controlSection);
        m_kernelIsDone.Wait(lock, [this]() VSC_REQUIRES(m_controlSection) { return !m_inKernel; });
        if (!m_opened)
            return false;
        handle = m_handle.get();
        m_inKernel = true;
    }
    const bool ok = call(handle) == 0;
    {
        const SectionLock lock(m_controlSection);
        m_inKernel = false;
    }
    m_kernelIsDone.NotifyAll();
    return ok;
}

/// Whether the camera answers at all. It is asked only when it has left a request unanswered.
bool CCameraFX3::AnswersAtAll()
{
    {
        const SectionLock lock(m_controlSection);
        if (!m_answers.IsInDoubt())
            return m_opened;
    }
    uint8_t version[2] = {};
    return !GotNoAnswer(Transfer(
        {kVendorIn, request::kFirmwareVersion, 0, 0, version, sizeof version, kProbeTimeout},
        Purpose::Probe));
}

bool CCameraFX3::ResetEndPoint(uint8_t endpoint)
{
    return !m_stream.InFlight() && AnswersAtAll() &&
           InKernel([endpoint](libusb_device_handle *handle) {
               return libusb_clear_halt(handle, endpoint);
           });
}

bool CCameraFX3::ResetDevice()
{
    OutputDbgPrint("ResetDevice\n");
    if (m_stream.InFlight())
        return false; // only closing the device ends them
    {
        const SectionLock lock(m_controlSection);
        if (m_answers.IsMute())
            return false;
    }
    return InKernel(libusb_reset_device);
}

bool CCameraFX3::initAsyncXfer(int totalLen, int count, int chunkSize, uint8_t endpoint)
{
    libusb_device_handle *handle = nullptr;
    {
        const SectionLock lock(m_controlSection);
        handle = m_opened ? m_handle.get() : nullptr;
    }
    (void)m_search.LookAround(); // for the note that it takes
    return handle && m_stream.Init(handle, totalLen, count, chunkSize, endpoint);
}

BulkStream::Pass CCameraFX3::startAsyncXfer(uint8_t *buffer, BulkStream::Timeouts timeouts,
                                            const RunFlag &running)
{
    constexpr auto kCount = BulkStream::Count::Completed;
    const BulkStream::Pass first = ReadPass(buffer, timeouts, running, kCount);
    if (!first.ioError || first.deviceGone || !running)
        return first;
    OutputDbgPrint("repeat 2#\n");
    BulkStream::Pass second = ReadPass(buffer, timeouts, running, kCount);
    second.Repeats(first);
    return second;
}

BulkStream::Pass CCameraFX3::ReadFrameOnce(uint8_t *buffer, BulkStream::Timeouts timeouts,
                                           const RunFlag &running)
{
    return ReadPass(buffer, timeouts, running, BulkStream::Count::AllThatCame);
}

/// What does not belong between two frames is done while the transfers of one are queued.
BulkStream::Pass CCameraFX3::ReadPass(uint8_t *buffer, BulkStream::Timeouts timeouts,
                                      const RunFlag &running, BulkStream::Count count)
{
    BulkStream::Pass pass = m_stream.Begin(buffer, running);
    if (pass.submitted && !pass.deviceGone)
        m_search.LookAroundNowAndThen();
    m_stream.Finish(pass, timeouts, running, count);
    return pass;
}

void CCameraFX3::releaseAsyncXfer()
{
    m_stream.Release();
}

uint16_t MergeBits(uint16_t old, int startBit, int endBit, uint16_t value)
{
    uint32_t mask = 0;
    for (int bit = std::max(startBit, 0); bit < std::min(endBit, 32); ++bit)
        mask |= uint32_t{1} << bit;
    const uint32_t shifted = startBit >= 0 && startBit < 32 ? uint32_t{value} << startBit : 0;
    return static_cast<uint16_t>((old & ~mask) | (shifted & mask));
}

} // namespace vsccam
