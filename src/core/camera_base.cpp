#include "core/camera_base.h"

#include "base/debug_print.h"
#include "core/flash_access.h"
#include "core/hot_pixel_store.h"
#include "core/thermistor.h"
#include "image/time_mark.h"
#include "usb/requests.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>

namespace vsccam {

using namespace std::chrono_literals;

namespace {

constexpr int kTransferBlock = 48 * 1024; // unit of SetTransferCount

// A flash that does not answer must leave enough time for programming the camera.
constexpr LossLimit kFlashShare{.work = 600ms};

// So must another thread that uses the flash.
constexpr auto kFlashPatience = 600ms;
constexpr char kNoMemoryForHotPixels[] = "no memory for the hot pixels\n";

} // namespace

CCameraBase::CCameraBase(const CameraModel &ofModel)
    : model(ofModel), settings(Settings(ofModel)), programming(*this, settings),
      capture(*this, m_forCapture, ofModel.productId, LargestFrameBytes(ofModel)),
      delivery(ofModel, capture, settings),
      automatics(ofModel, settings, programming, capture,
                 {.gain = [this](int gain) { (void)SetGain(gain, settings.Now().gainAuto); },
                  .exposure = [this](unsigned long long us) { (void)SetExp(us, true); },
                  .balance = [this](WhiteBalance b) { (void)SetRGBBalance(b.red, b.blue, true); }}),
      guide(*this)
{
    refreshControlList();
}

CCameraBase::~CCameraBase()
{
    OutputDbgPrint("~CCameraBase\n");
    (void)capture.Stop(); // before the threads that it may have started
    automatics.stopAutoControlThr();
    cooler.running.Clear();
    cooler.thread.Join();
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
    const auto open = [this, n] { return OpenDevice(model.productId, n); };
    if (open() || (NewcomerSettles() && capture.SleepFor(LostCamera::kSettleTime) && open())) {
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
    (void)capture.Change(CaptureChange::HostCloses);
    if (!IsOpened())
        return false;
    guide.LeaveSafe(); // of threads that did not come to it any more
    CloseDevice();
    OutputDbgPrint("camera closed\n");
    return true;
}

bool CCameraBase::ReConnectCamera()
{
    OutputDbgPrint("reconnect camera\n");
    if (!HasHandle())
        return false;
    LoseDevice();
    (void)capture.SleepFor(100ms); // a stop ends the waits, and the search
    if (!LibusbContext())
        OutputAlways(Output::kStandardOutput, "init libusb fail\n");
    OutputDbgPrint("camera closed\n");
    if (capture.SleepFor(50ms) && OpenCamera(m_ordinal))
        return true;
    return capture.SleepFor(1s) && OpenCamera(m_ordinal);
}

bool CCameraBase::StopCapture()
{
    const Delivery::Pause pause(delivery); // who waits for a frame is gone before it ends
    const bool open = IsOpened();
    const RequestBudget budget;
    const EndOfThreads end(*this);
    return !capture.Stop() || open;
}

CCameraBase::FormatChange::FormatChange(CCameraBase &camera)
    : m_delivery(camera.delivery), m_camera(camera), m_ran(camera.capture.Running())
{
    (void)m_camera.StopCapture(); // also joins an exposure that is just ending
    m_camera.capture.Reformat();
    m_programming.emplace(m_camera.programming);
}

CCameraBase::FormatChange::~FormatChange()
{
    m_programming.reset();
    if (m_ran)
        (void)m_camera.StartCapture(m_camera.capture.Single());
}

bool CCameraBase::IsHardBinRun()
{
    const Settings now = settings.Now();
    return now.hardwareBin && now.bin > 1;
}

int CCameraBase::GetGain(bool *pbAuto)
{
    const Settings now = settings.Now();
    *pbAuto = now.gainAuto;
    return now.gain;
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
    DrawCurrentTime(image, width, settings.Now().height, type);
}

int CCameraBase::GettingDark(bool on, unsigned long long)
{
    const int frames = DarkFramesFor(settings.Now().exposureUs);
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
    else if (!capture.Lost() && !capture.Running()) // else its table of before is good
        hotPixels.Disable();
    OutputDbgPrint(loaded ? "Load HPC table success\n" : "Load HPC table error\n");
}

bool CCameraBase::LoadHPCTable()
try {
    using State = StoredHotPixels::State;
    FlashAccess flash(*this, kFlashPatience); // somebody may be programming meanwhile
    const StoredHotPixels stored = ReadHotPixels(flash);
    if (stored.state == State::Unread)
        return false;
    // What could be read of a record is used, though it counts as a failure.
    if (stored.state == State::Part && (capture.Lost() || capture.Running()))
        return false;
    auto pixels = PixelsOf(stored, MaxSizeOf(model));
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
    const Programming::Scope scope(programming);
    settings.With([=, this](Settings &s) {
        s.startX = RegionStart(x, stepX, s.width * s.bin, model.sensorWidth);
        s.startY = RegionStart(y, 2, s.height * s.bin, model.sensorHeight);
    });
    programming.CountFrameChange();
    program();
    delivery.corrections.FollowRegion();
    return true;
}

uint32_t CCameraBase::StoreExposure(unsigned long long microseconds, bool bAuto)
{
    const ControlRange &range = model.exposureUs;
    const auto us =
        static_cast<uint32_t>(std::clamp(microseconds, static_cast<unsigned long long>(range.min),
                                         static_cast<unsigned long long>(range.max)));
    settings.With([=](Settings &s) {
        if (us != s.exposureUs)
            ++s.frameChanges;
        s.exposureUs = us;
        s.exposureAuto = bAuto;
    });
    return us;
}

bool CCameraBase::SetRGBBalance(int red, int blue, bool bAuto)
{
    if (!model.colour)
        return true;
    const Programming::Scope scope(programming); // no automatic decides in between
    const WhiteBalanceRange &range = model.whiteBalance;
    settings.With([&](Settings &s) {
        s.red = std::clamp(red, range.min, range.max);
        s.blue = std::clamp(blue, range.min, range.max);
        s.whiteBalanceAuto = bAuto;
    });
    return true;
}

bool CCameraBase::GetFPSPerc(int *percent, bool *pbAuto)
{
    const Settings now = settings.Now();
    *percent = now.bandwidth;
    *pbAuto = now.bandwidthAuto;
    return true;
}

void CCameraBase::IdentifyUsb3Camera()
{
    const int lost = LostSetUps();
    const bool usb3Host = IsUSB3Host();
    if (LostSetUps() == lost) // else nothing is known but what was
        settings.With([usb3Host](Settings &s) { s.usb3Host = usb3Host; });
    OutputDbgPrint(settings.Now().usb3Host ? "***********USB3.0 Host***********\n"
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
    settings.With([=](Settings &s) {
        if (chosenBefore != chosenNow && (s.bandwidthAuto || s.bandwidth == chosenBefore))
            s.bandwidth = chosenNow;
    });
}

float CCameraBase::GetSensorTemp()
{
    return 0.0F;
}

float CCameraBase::GetTemp()
{
    return cooler.running ? temperature.Celsius() : GetSensorTemp();
}

float CCameraBase::GetADTemp()
{
    constexpr int kSeriesKOhm = 10;
    uint8_t bytes[2] = {};
    const bool ok = SendCMD(request::kThermistor, 0, 0, true, bytes, sizeof bytes);
    const auto ad = static_cast<uint8_t>(bytes[0] >> 4 | bytes[1] << 4); // eight of twelve bits
    const std::optional<float> celsius = ThermistorTemperature(ad, kSeriesKOhm);
    if (ok && celsius)
        temperature.Store(*celsius);
    return temperature.Celsius();
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
    settings.With([=](Settings &s) { s.autoLimits = {maxGain, maxExpSeconds, targetBrightness}; });
}

void CCameraBase::GetAutoPara(int *maxGain, int *maxExpSeconds, int *targetBrightness) const
{
    const AutoLimits limits = settings.Now().autoLimits;
    *maxGain = limits.maxGain;
    *maxExpSeconds = limits.maxExposureS;
    *targetBrightness = limits.targetBrightness;
}

// A direction that is no guide line does nothing, which always succeeds.
bool CCameraBase::pulseGuide(int direction, int ms)
{
    guide.Pulse(direction, ms);
    return true;
}

bool CCameraBase::pulseGuideOn(int direction)
{
    guide.SwitchOn(direction);
    return true;
}

bool CCameraBase::pulseGuideOff(int direction)
{
    guide.SwitchOff(direction);
    return true;
}

} // namespace vsccam
