#pragma once

#include "capture/capture_sensor.h"
#include "core/camera_base.h"
#include "models/register_list.h"
#include "models/sensor_register.h"
#include "models/usb2/usb2_timing.h"
#include "usb/firmware_files.h"

#include <cstdint>
#include <type_traits>

namespace vsccam {

/// What sets one sensor of the family, and the board it sits on, apart from the others.
struct Usb2Traits {
    RegisterList powerUp;
    int frameBlock = 1; // pixels: frames fill whole blocks of so many
    struct Bandwidth {
        int usb2Host = 42;
        int usb3Host = 42;
    } megabytesPerS = {}; // of 100 per cent

    /// What the values of the bandwidth control stand for.
    struct BandwidthScale {
        int percentAtZero = 0;
        int percentPerStep = 1;
        int automatic = 80; // steps
    } bandwidth = {};

    bool tellsBlackLevel = false;

    // What the camera's controller gets at open when its firmware is no newer than this.
    FirmwareFile firmware = {};
    uint8_t lastOldFirmware = 0;
};

/// Of models whose bandwidth has three steps; they are taken to be 40, 70 and 100 per cent.
inline constexpr Usb2Traits::BandwidthScale kThreeSteps = {
    .percentAtZero = 40, .percentPerStep = 30, .automatic = 1};

/// The one driver of the sensors of the USB 2.0 cameras, whose registers are 16 bits wide. The
/// sensor makes the frame timing itself: clock, line length, and integration in lines. From 100 ms
/// on it runs at its slowest clock; what is still too long for it the host times.
///
/// The sensors sit behind a USB 2.0 controller or, in some editions, behind the FPGA of the USB 3.0
/// cameras. What that changes is left to the classes below this one.
class Usb2Driver : public CCameraBase, protected Usb2Sensor {
  public:
    Usb2Driver(const CameraModel &ofModel, const Usb2Traits &traits);

    bool InitCamera() override;
    bool SetResolution(int width, int height, int bin, IMAGE_TYPE type) override;
    bool SetStartPos(int x, int y) override;
    bool SetGain(int gain, bool bAuto) override;
    bool SetGain(int gain) { return SetGain(gain, settings.Now().gainAuto); }
    bool SetGain() { return SetGain(settings.Now().gain); }
    bool SetHighSpeedMode(bool on) override;
    bool SetFPSPerc(int percent, bool bAuto) override;
    bool SetExp(unsigned long long microseconds, bool bAuto) override;
    bool SetExp(unsigned long long microseconds)
    {
        return SetExp(microseconds, settings.Now().exposureAuto);
    }
    bool SetExp() { return SetExp(settings.Now().exposureUs); }
    float GetSensorTemp() override;

    /// Black-level offsets by parity of row and column; the last ones where a reading fails.
    /// @return whether the sensor has them and all were read; `flag`: whether that ever was so
    bool GetBLOffset(bool *flag, signed char *ee, signed char *oo, signed char *eo,
                     signed char *oe);

  protected:
    // What the board does.
    virtual void PowerUpBoard() VSC_REQUIRES(programming) = 0;
    /// Sends the sensor kUsb2SlowClockMHz or kUsb2FastInputMHz. @return false on boards whose clock
    /// is always the slow one, and when the camera does not answer
    virtual bool SelectInputClock(int /*clockMHz*/) VSC_REQUIRES(programming) { return false; }
    virtual void SelectBitDepth(bool is16) VSC_REQUIRES(programming) = 0;
    virtual void SetOutputSize(Size) VSC_REQUIRES(programming) {} // of the frames
    virtual void BeginHostTiming() VSC_REQUIRES(programming) {}
    virtual void EndHostTiming() VSC_REQUIRES(programming) {}
    /// Whether a worker calls FollowExposure.
    virtual bool WorkerFollowsExposure() const = 0;

    void StartSensorStreaming() override;
    void StopSensorStreaming() override;
    bool RestoreSettings() override;
    void FollowExposure() override;
    void SlowDown() override;
    void PrintBlackLevel() override;

    /// How long the sensor integrates by itself in exposures that the host times.
    uint32_t OwnIntegrationUs() const { return m_ownIntegrationUs; }
    const Usb2Traits &Traits() const { return m_traits; }

  private:
    bool SetUp();
    void PowerUp() VSC_REQUIRES(programming);
    void Cam_SetResolution() VSC_REQUIRES(programming);
    void SetOutput16Bits(bool on) VSC_REQUIRES(programming);
    void SetCMOSClk(int clockMHz) VSC_REQUIRES(programming);
    void SetCMOSClk() VSC_REQUIRES(programming);
    void WriteFrameLength() VSC_REQUIRES(programming);
    void WriteWindow();
    void WriteWindowEnd();
    int LineOfBandwidth(int clockMHz); // of the region, the bit depth and the link
    int ChosenBandwidth() const;
    void StoreLineLength(int clocks) VSC_REQUIRES(programming);
    void PublishTiming() VSC_REQUIRES(programming);
    void WriteLines(int64_t lines) VSC_REQUIRES(programming);
    void EnterLongExposure() VSC_REQUIRES(programming);
    void Write(uint16_t address, int value) { WriteSensor(*this, address, value); }

    // The driver's own state. Plain values: the object is destroyed as a CCameraBase.
    struct State {
        Usb2Timing timing{};
        int inputMHz = kUsb2SlowClockMHz; // that the board sends the sensor
        int8_t blackLevel[4] = {};        // as GetBLOffset has them
        bool blackLevelKnown = false;
    };
    static_assert(std::is_trivially_destructible_v<State>);

    const Usb2Traits &m_traits;
    State m_state VSC_GUARDED_BY(programming);
    Shared<uint32_t> m_ownIntegrationUs;
};

} // namespace vsccam
