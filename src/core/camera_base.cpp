#include "core/camera_base.h"

#include "base/debug_print.h"
#include "core/flash_access.h"
#include "core/hot_pixel_store.h"
#include "core/thermistor.h"
#include "image/time_mark.h"
#include "usb/requests.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <optional>
#include <utility>

namespace vsccam {

using namespace std::chrono_literals;

namespace {

constexpr int kTransferBlock = 48 * 1024; // unit of SetTransferCount

// A flash that does not answer must not use up what the camera has to be programmed in.
constexpr LossLimit kFlashShare{.work = 600ms};

// Neither may the wait for another thread that uses it.
constexpr auto kFlashPatience = 600ms;
constexpr char kNoMemoryForHotPixels[] = "no memory for the hot pixels\n";

constexpr bool IsGuideLine(int direction)
{
    return direction >= 0 && direction <= 3;
}

} // namespace

CCameraBase::CCameraBase(const CameraModel &model)
    : delivery(model, m_frames,
               {.settings = [this] { return SettingsNow(); },
                .singleExposure = [this] { return SingleExposure(); },
                .takeExposure = [this] { return m_expStatus.exchange(kExpIdle) == kExpSuccess; },
                .countDropped = [this] { AddDroppedFrames(1); }}),
      m_model(model), m_maxSize(MaxSizeOf(model)), m_width(model.sensorWidth),
      m_height(model.sensorHeight), m_exposureUs(static_cast<uint32_t>(model.exposureUs.initial)),
      m_gain(model.gain.initial), m_brightness(model.brightness.initial),
      m_red(model.whiteBalance.red), m_blue(model.whiteBalance.blue),
      m_bandwidth(model.bandwidth.initial), m_raw(LargestFrameBytes(model)),
      m_frames(LargestFrameBytes(model))
{
    m_guiding.Set();
    refreshControlList();
    if (!m_frames.StartInstBufThr())
        throw std::bad_alloc();
}

CCameraBase::~CCameraBase()
{
    OutputDbgPrint("~CCameraBase\n");
    m_capturing.Clear();
    m_worker.Join();
    stopAutoControlThr();
    m_coolerRunning.Clear();
    m_coolerThread.Join();
    m_frames.StopInstBufThr();
}

void *CCameraBase::operator new(size_t size)
{
    return ::operator new(size);
}

void CCameraBase::operator delete(void *memory)
{
    ::operator delete(memory);
}

void CCameraBase::operator delete(CCameraBase *camera, std::destroying_delete_t)
{
    void *const whole = dynamic_cast<void *>(camera);
    // The threads call virtual operations: they end while the camera is still what it was built as.
    (void)camera->CloseCamera();
    camera->~CCameraBase();
    ::operator delete(whole);
}

bool CCameraBase::OpenCamera(int n)
{
    if (IsOpened())
        return true;
    m_ordinal = n;
    const auto open = [this, n] { return OpenDevice(m_model.productId, n); };
    if (open() || (NewcomerSettles() && m_capturing.SleepFor(LostCamera::kSettleTime) && open())) {
        OutputDbgPrint("open camera success\n");
        return true;
    }
    OutputDbgPrint("open camera fail\n");
    return false;
}

bool CCameraBase::CloseCamera()
{
    const RequestBudget budget;
    (void)StopCapture(); // also ends the worker of a camera that was lost
    m_lost = false;
    if (!IsOpened())
        return false;
    for (int line = 0; line < kGuideLines; ++line)
        if (m_guideLineOn[line]) // of a thread that did not come to it any more
            SwitchGuideLineOff(line);
    CloseDevice();
    OutputDbgPrint("camera closed\n");
    return true;
}

bool CCameraBase::ProgramWhole(const std::function<bool()> &program)
{
    constexpr int kTries = 3; // requests may also fail at once
    const RequestBudget budget;
    for (int i = 0; i < kTries; ++i) {
        const int lost = LostSetUps();
        if (!program())
            return false;
        if (LostSetUps() == lost) {
            m_lostSetUpsMended = lost;
            return true;
        }
        if (RequestBudget::IsUsedUp())
            break;
    }
    return false;
}

bool CCameraBase::ReConnectCamera()
{
    OutputDbgPrint("reconnect camera\n");
    if (!HasHandle())
        return false;
    LoseDevice();
    (void)m_capturing.SleepFor(100ms); // a stop ends the waits, and the search
    if (!LibusbContext())
        OutputAlways(Output::kStandardOutput, "init libusb fail\n");
    OutputDbgPrint("camera closed\n");
    if (m_capturing.SleepFor(50ms) && OpenCamera(m_ordinal))
        return true;
    return m_capturing.SleepFor(1s) && OpenCamera(m_ordinal);
}

bool CCameraBase::StartWorker(bool single, std::function<void()> body)
{
    if (m_capturing)
        return IsOpened();
    m_worker.Join(); // one that ended by itself may still be cleaning up
    if (!IsOpened() && !m_lost)
        return false;
    m_singleExposure = single;
    m_expStatus = kExpWorking;
    m_droppedFrames = 0;
    m_frames.ResetCirBuff(); // here, not on the worker: the host may ask for a frame at once
    m_frames.SetProducing(true);
    OutputDbgPrint("start capture create thread\n");
    m_capturing.Set();
    if (!m_worker.Start(std::move(body))) {
        m_capturing.Clear();
        m_frames.SetProducing(false);
        m_expStatus = single ? kExpFailed : kExpIdle;
    }
    return IsOpened();
}

bool CCameraBase::StopCapture()
{
    const Delivery::Pause pause(delivery); // who waits for a frame is gone before it ends
    if (!m_capturing) {
        const EndOfThreads end(*this);
        m_worker.Join(); // one that ended by itself
        return true;
    }
    const bool open = IsOpened();
    const RequestBudget budget;
    const EndOfThreads end(*this);
    m_stopping = true;
    OutputDbgPrint("stop capture\n");
    m_capturing.Clear();
    OutputDbgPrint(">> wait Working thread exit\n");
    m_worker.Join();
    m_stopping = false;
    OutputDbgPrint("<< wait Working thread exit\n");
    if (m_singleExposure)
        m_expStatus = kExpIdle; // whatever it came to in the meantime
    return open;
}

CCameraBase::CapturePause::CapturePause(CCameraBase &camera)
    : m_delivery(camera.delivery), m_camera(camera), m_ran(camera.m_capturing)
{
    (void)m_camera.StopCapture(); // also joins an exposure that is just ending
    m_camera.m_frames.ResetCirBuff();
    if (m_camera.m_expStatus == kExpSuccess)
        m_camera.m_expStatus = kExpIdle; // its frame is gone
}

CCameraBase::CapturePause::~CapturePause()
{
    if (m_ran)
        (void)m_camera.StartCapture(m_camera.m_singleExposure);
}

Settings CCameraBase::SettingsNow()
{
    Settings now;
    now.width = m_width;
    now.height = m_height;
    now.bin = m_bin;
    now.imageType = ImageType();
    now.rawOutput = m_rawOutput;
    now.output16Bits = m_output16Bits;
    now.hardwareBin = m_hardwareBin;
    now.highSpeed = m_highSpeed;
    now.startX = m_startX;
    now.startY = m_startY;
    now.exposureUs = m_exposureUs;
    now.exposureAuto = m_exposureAuto;
    now.gain = m_gain;
    now.gainAuto = m_gainAuto;
    now.brightness = m_brightness;
    now.red = m_red;
    now.blue = m_blue;
    now.whiteBalanceAuto = m_whiteBalanceAuto;
    now.bandwidth = m_bandwidth;
    now.bandwidthAuto = m_bandwidthAuto;
    now.autoLimits = {m_autoMaxGain, m_autoMaxExpS, m_autoTarget};
    now.flipH = FlipH();
    now.flipV = FlipV();
    now.monoBin = m_monoBin;
    now.timeMark = m_timeMark;
    now.usb3Host = m_usb3Host;
    now.exposureLines = m_exposureLines;
    now.frameTimeUs = m_frameTimeUs;
    now.longExposure = m_longExposure;
    return now;
}

Size CCameraBase::ReadoutSize()
{
    return ReadoutOf(m_model, SettingsNow()).size;
}

int CCameraBase::ReadoutBytes()
{
    return ReadoutOf(m_model, SettingsNow()).Bytes();
}

int CCameraBase::SoftwareBin()
{
    return ReadoutOf(m_model, SettingsNow()).softwareBin;
}

bool CCameraBase::IsHardBinRun()
{
    return m_hardwareBin && m_bin > 1;
}

int CCameraBase::GetGain(bool *pbAuto)
{
    *pbAuto = m_gainAuto;
    return m_gain;
}

bool CCameraBase::SetGamma(int gamma)
{
    return delivery.gamma.Set(gamma);
}

int CCameraBase::GetGamma()
{
    return delivery.gamma.Gamma();
}

// What only some families can do.
bool CCameraBase::SetBrightness(int)
{
    return false;
}
bool CCameraBase::SetHighSpeedMode(bool)
{
    return false;
}
bool CCameraBase::SetHardwareBin(bool)
{
    return false;
}
bool CCameraBase::SetFPSPerc(int, bool)
{
    return false;
}
bool CCameraBase::SetOverCLKPerc(int)
{
    return false;
}

bool CCameraBase::GetImage(unsigned char *buffer, int size, int waitMs)
{
    return delivery.GetImage(buffer, size, waitMs);
}

bool CCameraBase::GetImageAfterExp(unsigned char *buffer, int size)
{
    return delivery.GetImageAfterExp(buffer, size);
}

void CCameraBase::AddTimeMark(unsigned char *image, int width, IMAGE_TYPE type)
{
    DrawCurrentTime(image, width, m_height, type);
}

int CCameraBase::GettingDark(bool on, unsigned long long)
{
    const int frames = DarkFramesFor(m_exposureUs);
    delivery.corrections.dark.Request(on ? frames : 0);
    return frames;
}

void CCameraBase::UsingDark(bool on)
{
    if (on)
        delivery.corrections.dark.Enable();
    else
        delivery.corrections.dark.Disable();
}

int CCameraBase::SaveBMPToFile(const char *path)
{
    return delivery.corrections.SaveDark(path);
}

int CCameraBase::LoadBMPFromFile(const char *path)
{
    return delivery.corrections.LoadDark(path);
}

bool CCameraBase::AdjustDarkBuff()
{
    return delivery.corrections.FitDark();
}

void CCameraBase::AdjustHPCTable()
{
    delivery.corrections.FitHotPixels();
}

void CCameraBase::SetHPCStates(bool on)
{
    HotPixels &hotPixels = delivery.corrections.hotPixels;
    if (!on) {
        hotPixels.Disable();
        return;
    }
    const bool loaded = LoadHPCTable();
    if (loaded)
        hotPixels.Enable();
    else if (!Lost() && !m_capturing) // a camera that is programmed again has the table of before
        hotPixels.Disable();
    OutputDbgPrint(loaded ? "Load HPC table success\n" : "Load HPC table error\n");
}

bool CCameraBase::LoadHPCTable()
try {
    using State = StoredHotPixels::State;
    FlashAccess flash(*this, kFlashPatience); // settings may be held meanwhile
    const StoredHotPixels stored = ReadHotPixels(flash);
    if (stored.state == State::Unread)
        return false;
    // What could be read of a record is used, though it counts as a failure.
    if (stored.state == State::Part && (Lost() || m_capturing))
        return false;
    auto pixels = PixelsOf(stored, m_maxSize);
    if (pixels)
        delivery.corrections.SetHotPixels(std::move(*pixels));
    else
        delivery.corrections.hotPixels.Disable();
    return pixels && stored.state == State::Whole;
} catch (const std::bad_alloc &) {
    OutputDbgPrint(kNoMemoryForHotPixels);
    return false;
}

bool CCameraBase::SaveHPCTable()
try {
    FlashAccess flash(*this);
    return WriteHotPixels(flash, delivery.corrections.dark.BrightBitmap());
} catch (const std::bad_alloc &) {
    OutputDbgPrint(kNoMemoryForHotPixels);
    return false;
}

bool CCameraBase::MoveRegion(int x, int y, int stepX, const std::function<void()> &program)
{
    const std::lock_guard lock(m_settingsSection);
    m_startX = RegionStart(x, stepX, m_width * m_bin, m_model.sensorWidth);
    m_startY = RegionStart(y, 2, m_height * m_bin, m_model.sensorHeight);
    CountFrameChange();
    program();
    delivery.corrections.FollowRegion();
    return true;
}

void CCameraBase::StoreExposure(unsigned long long microseconds)
{
    const ControlRange &range = m_model.exposureUs;
    const auto us =
        static_cast<uint32_t>(std::clamp(microseconds, static_cast<unsigned long long>(range.min),
                                         static_cast<unsigned long long>(range.max)));
    if (us != m_exposureUs)
        CountFrameChange();
    m_exposureUs = us;
}

void CCameraBase::StoreFrameTime(int us)
{
    if (us != m_frameTimeUs && !m_longExposure)
        CountFrameChange();
    m_frameTimeUs = us;
}

bool CCameraBase::SetRGBBalance(int red, int blue, bool bAuto)
{
    if (!m_model.colour)
        return true;
    const std::lock_guard lock(m_settingsSection);
    const WhiteBalanceRange &range = m_model.whiteBalance;
    m_red = std::clamp(red, range.min, range.max);
    m_blue = std::clamp(blue, range.min, range.max);
    m_whiteBalanceAuto = bAuto;
    return true;
}

void CCameraBase::SetRed(int red, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection); // the automatic may be setting both
    (void)SetRGBBalance(red, m_blue, bAuto);       // never refused
}

void CCameraBase::SetBlue(int blue, bool bAuto)
{
    const std::lock_guard lock(m_settingsSection); // as above
    (void)SetRGBBalance(m_red, blue, bAuto);
}

bool CCameraBase::GetFPSPerc(int *percent, bool *pbAuto)
{
    *percent = m_bandwidth;
    *pbAuto = m_bandwidthAuto;
    return true;
}

void CCameraBase::IdentifyUsb3Camera()
{
    const int lost = LostSetUps();
    const bool usb3Host = IsUSB3Host();
    if (LostSetUps() == lost) // else nothing is known but what was
        m_usb3Host = usb3Host;
    OutputDbgPrint(m_usb3Host ? "***********USB3.0 Host***********\n"
                              : "***********USB2.0 Host***********\n");
    {
        const RequestBudget budget(kFlashShare);
        SetHPCStates(true);
    }
    uint8_t version = 0;
    uint8_t sub[4] = {};
    (void)GetFirmwareVer(&version); // for the debug output only
    (void)GetFPGAVer(&version, sub);
}

void CCameraBase::FollowLink(int chosenBefore, int chosenNow)
{
    if (chosenBefore != chosenNow && (m_bandwidthAuto || m_bandwidth == chosenBefore))
        m_bandwidth = chosenNow;
}

ExposureSetting CCameraBase::Exposure()
{
    const std::lock_guard lock(m_settingsSection);
    return {m_exposureUs, m_frameTimeUs, m_longExposure};
}

uint32_t CCameraBase::FrameChanges()
{
    const std::lock_guard lock(m_settingsSection);
    return m_frameChanges;
}

float CCameraBase::GetSensorTemp()
{
    return 0.0F;
}

float CCameraBase::GetTemp()
{
    if (m_coolerRunning)
        return m_temperatureC;
    return GetSensorTemp();
}

float CCameraBase::GetADTemp()
{
    constexpr int kSeriesKOhm = 10;
    uint8_t bytes[2] = {};
    const bool ok = SendCMD(request::kThermistor, 0, 0, true, bytes, sizeof bytes);
    const auto ad = static_cast<uint8_t>(bytes[0] >> 4 | bytes[1] << 4); // eight of twelve bits
    const std::optional<float> celsius = ThermistorTemperature(ad, kSeriesKOhm);
    if (ok && celsius)
        StoreTemperature(*celsius);
    return m_temperatureC;
}

bool CCameraBase::StartSensorCLK()
{
    return SendCMD(request::kStartSensorClock);
}

bool CCameraBase::StopSensorCLK()
{
    return SendCMD(request::kStopSensorClock);
}

bool CCameraBase::SetTransferCount(int bytes)
{
    const auto blocks =
        static_cast<uint32_t>((int64_t{bytes} + kTransferBlock - 1) / kTransferBlock);
    return SendCMD(request::kTransferCount, static_cast<uint16_t>(blocks >> 16),
                   static_cast<uint16_t>(blocks), false, nullptr, 0);
}

void CCameraBase::SetAutoPara(int maxGain, int maxExpSeconds, int targetBrightness)
{
    m_autoMaxGain = maxGain;
    m_autoMaxExpS = maxExpSeconds;
    m_autoTarget = targetBrightness;
}

void CCameraBase::GetAutoPara(int *maxGain, int *maxExpSeconds, int *targetBrightness) const
{
    *maxGain = m_autoMaxGain;
    *maxExpSeconds = m_autoMaxExpS;
    *targetBrightness = m_autoTarget;
}

void CCameraBase::SetFlip(bool horizontal, bool vertical)
{
    m_flip = static_cast<uint8_t>((horizontal ? kFlipH : 0) | (vertical ? kFlipV : 0));
}

void CCameraBase::EndWaits()
{
    delivery.EndWaits();
    for (Turns &axis : m_guideAxes)
        axis.Close();
    m_guiding.Clear();
}

/// Lines 0 and 1 are opposite, and so are 2 and 3: a pulse waits until both of its axis are off.
bool CCameraBase::pulseGuide(int direction, int ms)
{
    if (!IsGuideLine(direction))
        return true;
    OutputDbgPrint("PulseGuide Direction:%d time:%d\n", direction, ms);
    const Turns::Turn turn(m_guideAxes[direction / 2]);
    if (!turn) // the camera is being closed
        return true;
    if (ms > 0) { // else "off" alone: the line may be on from a program that was killed
        SwitchGuideLineOn(direction);
        (void)m_guiding.SleepFor(std::chrono::milliseconds(ms));
    }
    // Also when "on" seemed to fail: a line that stays on drives the mount away.
    SwitchGuideLineOff(direction);
    return true;
}

/// Not after the last "off" of a camera that is being closed.
void CCameraBase::SwitchGuideLineOn(int line)
{
    const std::lock_guard lock(m_guideSections[line / 2]);
    if (!m_guiding)
        return;
    m_guideLineOn[line] = true;
    (void)SendCMD(request::kGuideOn, static_cast<uint16_t>(line), 0, false, nullptr, 0);
}

void CCameraBase::SwitchGuideLineOff(int line)
{
    const std::lock_guard lock(m_guideSections[line / 2]);
    (void)SendOff(request::kGuideOff, static_cast<uint16_t>(line));
    m_guideLineOn[line] = false;
}

bool CCameraBase::pulseGuideOn(int direction)
{
    if (!IsGuideLine(direction))
        return true;
    OutputDbgPrint("PulseGuide Direction On:%d", direction);
    (void)SendCMD(request::kGuideOn, static_cast<uint16_t>(direction), 0, false, nullptr, 0);
    return true;
}

bool CCameraBase::pulseGuideOff(int direction)
{
    if (!IsGuideLine(direction))
        return true;
    OutputDbgPrint("PulseGuide Direction Off:%d", direction);
    (void)SendOff(request::kGuideOff, static_cast<uint16_t>(direction));
    return true;
}

} // namespace vsccam
