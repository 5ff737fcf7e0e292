#pragma once

#include "base/sync.h"
#include "base/turns.h"
#include "core/camera_model.h"
#include "core/controls.h"
#include "core/delivery.h"
#include "core/frame_geometry.h"
#include "core/raw_frame.h"
#include "core/settings.h"
#include "image/cir_buf.h"
#include "image/exposure_setting.h"
#include "image/raw_frames.h"
#include "usb/camera_fx3.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <span>

namespace vsccam {

/// Eight bytes of user identity, opaque to the library.
using CameraId = std::array<uint8_t, 8>;

/// State of a single exposure, as hosts see it.
enum ExposureStatus { kExpIdle = 0, kExpWorking = 1, kExpSuccess = 2, kExpFailed = 3 };

/// A camera: its settings, its frames, its threads. Sensor families derive from it and program
/// their sensors in the virtual operations, whose order is fixed.
///
/// Threads. Threads of the host call the public operations, any of them at the same time, but for
/// those that open, close, initialise or change the format, and those that start or stop captures:
/// these come one after the other. The capture worker reads the bulk endpoint and inserts frames;
/// the auto-control thread and the worker set gain, exposure, balance and bandwidth through the
/// same operations as the host. Single values are Shared; sequences that belong together (store,
/// compute, write registers) hold m_settingsSection, which getters do without: it is held over
/// USB requests. A Delivery::Pause keeps readers of frames out while a capture is stopped or the
/// geometry changes. StopCapture, CloseCamera and destruction leave no thread behind.
///
/// Destruction runs as CCameraBase, without a virtual destructor: whatever owns something is a
/// member here, and derived classes have plain values only.
class CCameraBase : public CCameraFX3 {
  public:
    Delivery delivery;

    explicit CCameraBase(const CameraModel &model);
    ~CCameraBase();

    static void *operator new(size_t size);
    static void operator delete(void *memory); // of an object whose constructor failed
    /// Makes `delete` through the base well defined: closes the camera, destroys the base, then
    /// frees the whole object.
    void operator delete(CCameraBase *camera, std::destroying_delete_t);

    virtual bool OpenCamera(int n);
    virtual bool InitCamera() = 0;
    virtual bool CloseCamera();
    virtual bool SetResolution(int width, int height, int bin, IMAGE_TYPE type) = 0;
    virtual bool SetStartPos(int x, int y) = 0; // unbinned sensor pixels
    virtual bool SetGain(int gain, bool bAuto) = 0;
    virtual int GetGain(bool *pbAuto);
    virtual bool SetGamma(int gamma);
    virtual int GetGamma();
    virtual bool SetBrightness(int brightness);
    virtual bool SetHighSpeedMode(bool on);
    virtual bool SetHardwareBin(bool on);
    virtual bool SetFPSPerc(int percent, bool bAuto);
    virtual bool GetFPSPerc(int *percent, bool *pbAuto);
    virtual bool SetOverCLKPerc(int percent);
    virtual bool SetRGBBalance(int red, int blue, bool bAuto); // of colour models
    virtual bool SetExp(unsigned long long microseconds, bool bAuto) = 0;
    virtual bool GetImage(unsigned char *buffer, int size, int waitMs);
    virtual float GetSensorTemp();
    virtual bool StartCapture(bool bSingleExposure) = 0;
    virtual bool StopCapture();
    virtual bool IsHardBinRun();

    void StartExposure() { (void)StartCapture(true); } // the status tells how it went
    void StopExposure() { (void)StopCapture(); }

    /// Ends for good what threads of the host wait for: frames, and the ends of guide pulses, whose
    /// lines are then switched off.
    void EndWaits();
    /// One part of the balance, and whether both set themselves.
    void SetRed(int red, bool bAuto);
    void SetBlue(int blue, bool bAuto);
    bool GetImageAfterExp(unsigned char *buffer, int size);
    /// Draws the local date and time into an image of the current height, if it has room for it.
    void AddTimeMark(unsigned char *image, int width, IMAGE_TYPE type);
    /// For the capture worker: gives up when it is to end.
    bool ReConnectCamera();
    /// Whether a request that should have set the camera up got lost, and not everything was
    /// programmed since: no frame of it may be used.
    bool HalfProgrammed() const { return LostSetUps() != m_lostSetUpsMended; }
    /// Runs `program`, which sets the camera up as a whole, until no request of it got lost; false
    /// when it fails or the requests may lose no more time.
    bool ProgramWhole(const std::function<bool()> &program);
    bool StartSensorCLK();
    bool StopSensorCLK();
    bool SetTransferCount(int bytes);
    void SetAutoPara(int maxGain, int maxExpSeconds, int targetBrightness);
    void GetAutoPara(int *maxGain, int *maxExpSeconds, int *targetBrightness) const;
    /// Temperature that the cooler thread read last while it runs, else a fresh reading.
    float GetTemp();

    /// The newer control interface. The list holds what the model offers. No pointer may be null:
    /// the exported functions see to that.
    void refreshControlList();
    int ControlCount() const { return m_controlCount; }
    /// @param index  of the list; false beyond it
    bool GetControlCaps(int index, _VSC_CONTROL_CAPS *caps) const;
    /// @return kControlSet, kControlNotSettable or kControlRefused
    int SetControlValue(VSC_CONTROL_TYPE type, int32_t value, bool bAuto);
    /// Sets an exposure unless it is the one that was asked for last.
    bool SetExposureControl(int32_t us, bool bAuto);
    /// False, with *pValue untouched, for unknown controls and those of a cooler that is not there.
    bool GetControlValue(VSC_CONTROL_TYPE type, int32_t *pValue, int32_t *pbAuto);
    void GetCameraProperty(_VSC_CAMERA_INFO *info) const;

    bool pulseGuide(int direction, int ms);
    bool pulseGuideOn(int direction);
    bool pulseGuideOff(int direction);

    /// User identity in the camera's flash. Reading leaves *id alone when there is none.
    bool ReadIDFromSPI(CameraId *id);
    bool WriteIDToSPI(const CameraId &id);

    /// Requests a dark frame, made of the next whole frames of 8 bits that are delivered, or
    /// cancels the request. @return the number of frames, which depends on the exposure
    int GettingDark(bool on, unsigned long long = 0);
    /// Subtraction of the dark frame; ending it frees the frame.
    void UsingDark(bool on);
    /// The dark frame as a bitmap file. Both return 1 on success; 0 and, of loading, further codes
    /// say what failed.
    int SaveBMPToFile(const char *path);
    int LoadBMPFromFile(const char *path);
    /// Hot-pixel correction by the table in the camera's flash.
    void SetHPCStates(bool on);
    bool LoadHPCTable();
    /// Makes a table of the pixels that are bright in the dark frame, and stores it.
    bool SaveHPCTable();
    /// Fit dark frame and hot pixels to the frames that follow. Without memory for it the
    /// correction ends; of the dark frame, the result says so.
    bool AdjustDarkBuff();
    void AdjustHPCTable();

    /// One step of automatic exposure and gain, and of automatic white balance, on a raw frame that
    /// nobody writes: of RawFrames, or the worker's own. What a frame says of an exposure that is
    /// no longer set is no reason for a step.
    void AutoExpGain(std::span<const uint8_t> frame, const ExposureSetting &exposure);
    void AutoWhiBal(std::span<const uint8_t> frame);
    /// The auto-control thread looks at the latest frame once in every pass, as far as there is
    /// something to do: exposure and gain of short frames, and in every fourth pass white balance.
    void startAutoControlThr(std::chrono::milliseconds pass);
    void stopAutoControlThr();
    /// Whether the auto-control thread has a use for a frame.
    bool AutoThreadLooks(const ExposureSetting &exposure) const
    {
        return m_whiteBalanceAuto || (ExposureOrGainAuto() && exposure.IsShort());
    }

    // What the model is and what is set.
    Settings SettingsNow();
    const CameraModel &Model() const { return m_model; }
    Size MaxSize() const { return m_maxSize; }
    int Width() const { return m_width; }
    int Height() const { return m_height; }
    int Bin() const { return m_bin; }
    IMAGE_TYPE ImageType() const { return static_cast<IMAGE_TYPE>(static_cast<int>(m_imageType)); }
    int StartX() const { return m_startX; }
    int StartY() const { return m_startY; }
    uint32_t ExposureUs() const { return m_exposureUs; }
    bool ExposureAuto() const { return m_exposureAuto; }
    bool GainAuto() const { return m_gainAuto; }
    bool ExposureOrGainAuto() const { return m_exposureAuto || m_gainAuto; }
    int Red() const { return m_red; }
    int Blue() const { return m_blue; }
    bool WhiteBalanceAuto() const { return m_whiteBalanceAuto; }
    int Brightness() const { return m_brightness; }
    bool HighSpeed() const { return m_highSpeed; }
    bool HardwareBin() const { return m_hardwareBin; }
    bool MonoBin() const { return m_monoBin; }
    void SetMonoBin(bool on) { m_monoBin = on; }
    void SetTimeMark(bool on) { m_timeMark = on; }
    bool RawOutput() const { return m_rawOutput; }
    void SetRawOutput(bool on) { m_rawOutput = on; }
    bool FlipH() const { return (m_flip & kFlipH) != 0; }
    bool FlipV() const { return (m_flip & kFlipV) != 0; }
    void SetFlip(bool horizontal, bool vertical);
    bool Usb3Host() const { return m_usb3Host; }
    float CoolerPower() const { return m_coolerPower; }
    bool CoolerOn() const { return m_coolerOn; }
    bool FanOn() const { return m_fanOn; }
    int TargetTemp() const { return m_targetTempC; }

    // What the capture worker and the host share.
    RunFlag &Capturing() { return m_capturing; }
    bool SingleExposure() const { return m_singleExposure; }
    bool Stopping() const { return m_stopping; }
    int ExpStatus() const { return m_expStatus; }
    void SetExpStatus(ExposureStatus status) { m_expStatus = status; }
    int DroppedFrames() const { return m_droppedFrames; }
    void AddDroppedFrames(int count) { m_droppedFrames += count; }
    void ClearDroppedFrames() { m_droppedFrames = 0; }
    bool Lost() const { return m_lost; }
    void SetLost(bool lost) { m_lost = lost; }
    /// Takes a step off an automatic bandwidth.
    bool LowerBandwidth(int step);
    int FrameTimeUs() const { return m_frameTimeUs; }
    ExposureSetting Exposure();
    /// Counts the changes after which a frame under way is no longer one of what is set: of
    /// exposure, region and timing. None is half made while it is told.
    uint32_t FrameChanges();
    bool BandwidthAuto() const { return m_bandwidthAuto; }
    int Bandwidth() const { return m_bandwidth; }
    int Ordinal() const { return m_ordinal; }
    CirBuf &Frames() { return m_frames; }
    RawFrames &Raw() { return m_raw; }
    /// Size of the frames that the camera sends, before software binning.
    Size ReadoutSize();
    int SoftwareBin();
    int ReadoutBytes();

  protected:
    /// Starts the capture worker with `body`, unless one runs. @return whether the camera is open
    bool StartWorker(bool single, std::function<void()> body);

    /// For changes of the frames' geometry: stops a running capture, forgets the frames of before,
    /// and at its end starts the capture again the way it ran.
    class CapturePause {
      public:
        explicit CapturePause(CCameraBase &camera);
        ~CapturePause();
        CapturePause(const CapturePause &) = delete;
        CapturePause &operator=(const CapturePause &) = delete;

      private:
        Delivery::Pause m_delivery;
        CCameraBase &m_camera;
        bool m_ran;
    };

    /// Stores the start of a region of the size and binning that are set, aligned to `stepX`
    /// columns and two rows and kept on the sensor, and lets `program` tell the sensor. Corrections
    /// follow the region here: whoever moves it, in whatever family, passes through.
    bool MoveRegion(int x, int y, int stepX, const std::function<void()> &program);

    /// These two are stored before the camera is told, so that no frame of the time before passes
    /// for one of what is set. Gates time long exposures, whatever the frame time is.
    void StoreExposure(unsigned long long microseconds); // within the range of the model
    void StoreFrameTime(int us);
    void CountFrameChange() { ++m_frameChanges; }

    /// Host port, hot-pixel table and versions: the first requests of USB 3.0 cameras whenever they
    /// are initialised.
    void IdentifyUsb3Camera();
    /// When a camera comes back on a link of another speed, a bandwidth that is automatic, or still
    /// what the library chose for the link before, becomes what it chooses for this one.
    void FollowLink(int chosenBefore, int chosenNow);

    /// Temperature by the thermistor of boards that have one; the last good reading when it fails.
    float GetADTemp();
    /// Keeps a reading of the sensor's temperature. What stands for a failure is no reading.
    void StoreTemperature(float celsius)
    {
        m_temperatureC = celsius;
        ++m_temperatureReadings;
    }

    /// Called at the end of a successful InitCamera, and after a lost device was programmed again.
    /// Cooled cameras have their own.
    void OnInitialised() {}
    void OnReconnected() {}

    const CameraModel &m_model;

    // Held while settings and registers that belong together change; taken again by operations
    // that apply others.
    RequestSection m_settingsSection;

    Size m_maxSize;
    Shared<int> m_width;
    Shared<int> m_height;
    Shared<int> m_bin{1};
    Shared<int> m_imageType{kByteImage};
    Shared<int> m_startX;
    Shared<int> m_startY;
    Shared<bool> m_output16Bits;
    Shared<bool> m_hardwareBin;
    Shared<bool> m_highSpeed;
    Shared<bool> m_usb3Host;

    Shared<uint32_t> m_exposureUs;
    Shared<bool> m_exposureAuto;
    Shared<bool> m_longExposure;
    Shared<int> m_frameTimeUs;
    Shared<uint32_t> m_exposureLines; // as the sensor has it, in periods of its lines
    Shared<int> m_gain;
    Shared<bool> m_gainAuto;
    Shared<int> m_brightness;
    Shared<int> m_red;
    Shared<int> m_blue;
    Shared<bool> m_whiteBalanceAuto;
    Shared<int> m_bandwidth; // per cent
    Shared<bool> m_bandwidthAuto;

    // Of cooled models; the thread is started and joined by CCameraCool.
    RunFlag m_coolerRunning;
    Thread m_coolerThread;
    // Held while drive, fan and regulation change. Locked after m_settingsSection, if both are.
    RequestSection m_coolerSection;
    Shared<float> m_coolerPower;
    Shared<bool> m_coolerOn;
    Shared<bool> m_fanOn;
    Shared<float> m_temperatureC;           // of the last reading
    Shared<uint32_t> m_temperatureReadings; // so far: who waits for a fresh one sees it here
    Shared<int> m_targetTempC;

  private:
    void SetGainExpFunc(std::chrono::milliseconds pass);
    void RunAutomatics(bool whiteBalanceToo);
    std::optional<RawFrame> AsRawFrame(std::span<const uint8_t> bytes);
    int BinScale(const RawFrame &frame) const;
    bool BinnedBySensor(const RawFrame &frame) const;
    void SwitchGuideLineOn(int line);
    void SwitchGuideLineOff(int line);

    // Host settings that only the image pipeline uses.
    static constexpr uint8_t kFlipH = 1;
    static constexpr uint8_t kFlipV = 2;
    Shared<bool> m_rawOutput;
    Shared<uint8_t> m_flip; // both at once
    Shared<bool> m_monoBin;
    Shared<bool> m_timeMark;
    int m_ordinal = 0;
    Shared<int> m_lostSetUpsMended; // of LostSetUps()

    // Of the newer control interface.
    std::array<VSC_CONTROL_TYPE, 64> m_controlList{};
    int m_controlCount = 0;
    int32_t m_lastExposureAsked = -1;
    bool m_lastExposureAutoAsked = false;

    Shared<int> m_autoMaxGain{50};
    Shared<int> m_autoMaxExpS{30};
    Shared<int> m_autoTarget{100};

    // Guide pulses, on the threads of the host that send them.
    static constexpr int kGuideLines = 4;
    Turns m_guideAxes[kGuideLines / 2]; // of a line and its opposite: one of the two is on
    CriticalSection m_guideSections[kGuideLines / 2]; // held while a line is switched, of an axis
    Shared<bool> m_guideLineOn[kGuideLines];
    RunFlag m_guiding; // cleared to end the pulses

    // Started by StartCapture, ended by m_capturing, joined by StopCapture. Only reader of the bulk
    // endpoint, only producer of m_frames.
    RunFlag m_capturing;
    Thread m_worker;
    Shared<bool> m_stopping;
    Shared<uint32_t> m_frameChanges;
    Shared<bool> m_lost; // the device went away and was not programmed again since
    Shared<bool> m_singleExposure;
    std::atomic<int> m_expStatus{kExpIdle}; // a host that sees an end sees the worker's flag down
    Shared<int> m_droppedFrames;
    RawFrames m_raw;
    CirBuf m_frames;

    // Started by the worker in video mode, joined by it.
    RunFlag m_autoRunning;
    Thread m_autoThread;
};

} // namespace vsccam
