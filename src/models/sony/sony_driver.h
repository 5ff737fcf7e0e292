#pragma once

#include "cooling/camera_cool.h"
#include "core/camera_base.h"
#include "models/capture_sensor.h"
#include "models/register_list.h"
#include "models/sony/sony_timing.h"

#include <type_traits>

namespace vsccam {

/// A sensor clock, the rate code that selects it, and the shortest line it allows.
struct SonyClock {
    int kHz;
    uint8_t rateCode;
    int shortestLine; // clocks
};

/// What sets one Sony sensor apart from the others.
struct SonySensor {
    struct {
        int usb2Host;
        int usb3Host;
    } budget; // bandwidth of one per cent, in 10 bytes per second
    SonyClock normal;
    SonyClock highSpeed;   // with 8-bit output
    SonyClock hardwareBin; // 2 x 2 in the sensor
    SonyClock other;       // any clock but that of the read-out
    int lowestClockKHz;    // below it there is no frame timing
    SonyLine initialLine;
    SonyFrameOffsets offsets;
    int startXStepAtBin3 = 4;      // unbinned pixels, as at any other binning
    int bandwidthOnUsb3Host = 100; // per cent, set when the camera is initialised
    bool thermistor = false;       // on the board, in place of the sensor's own thermometer
    RegisterList powerUp;
};

/// The one driver of the USB 3.0 cameras with Sony sensors. The FPGA makes the frame timing (line
/// and frame length), the sensor holds the shutter; every change of format, binning, read-out speed
/// or bandwidth goes through clock, line length and exposure again, so that they always match.
///
/// Base is CCameraBase, or CCameraCool for cooled models.
template <class Base> class SonyDriver : public Base, private CaptureSensor {
  public:
    SonyDriver(const CameraModel &model, const SonySensor &sensor);

    bool InitCamera() override;
    bool SetResolution(int width, int height, int bin, IMAGE_TYPE type) override;
    bool SetStartPos(int x, int y) override;
    bool SetGain(int gain, bool bAuto) override;
    bool SetBrightness(int brightness) override;
    bool SetHighSpeedMode(bool on) override;
    bool SetHardwareBin(bool on) override;
    bool SetFPSPerc(int percent, bool bAuto) override;
    bool GetFPSPerc(int *percent, bool *pbAuto) override;
    bool SetRGBBalance(int red, int blue, bool bAuto) override;
    bool SetExp(unsigned long long microseconds, bool bAuto) override;
    float GetSensorTemp() override;
    bool StartCapture(bool bSingleExposure) override;

  private:
    using Base::m_bandwidth, Base::m_bandwidthAuto, Base::m_bin, Base::m_brightness,
        Base::m_exposureAuto, Base::m_exposureUs, Base::m_frameTimeUs, Base::m_gain,
        Base::m_gainAuto, Base::m_gamma, Base::m_hardwareBin, Base::m_height, Base::m_highSpeed,
        Base::m_imageType, Base::m_longExposure, Base::m_model, Base::m_output16Bits, Base::m_red,
        Base::m_blue, Base::m_settingsSection, Base::m_startX, Base::m_startY, Base::m_temperatureC,
        Base::m_usb3Host, Base::m_whiteBalanceAuto, Base::m_width;
    using Base::ReadoutSize, Base::ReadSONYREG, Base::SendCMD, Base::WriteFPGAREG,
        Base::WriteSONYREG;
    using typename Base::CapturePause;

    void StartSensorStreaming() override;
    void StopSensorStreaming() override;
    LongExposurePlan PlanLongExposure(uint32_t exposureUs) const override;
    void OpenExposureGate() override;
    void CloseExposureGate() override;
    bool RestoreSettings() override;

    void PowerUp();
    void DetectHost();
    void SendRegisterList(RegisterList list);
    void SetUpClockAndFpga();
    void Cam_SetResolution();
    void SetOutput16Bits(bool on);
    const SonyClock &ReadoutClock();
    bool SetCMOSClk(int clockKHz);
    bool SetCMOSClk();
    void SelectLongExposure(bool on);
    void CalcMaxFPS();
    bool HardwareBin2x2() { return m_hardwareBin && m_bin == 2; }
    bool TenBitReadout() { return m_highSpeed && !m_output16Bits && !HardwareBin2x2(); }
    int AutoBandwidth() const { return m_usb3Host ? 100 : 80; }
    void WriteSony16(uint16_t address, int value);
    void WriteFpga16(uint16_t reg, int value);

    // The driver's own state. Plain values: the object is destroyed as a CCameraBase. Guarded by
    // m_settingsSection.
    struct State {
        SonyLine line;
        int shortestLine = 0;
        int budget = 0;
        uint32_t exposureLines = 0;
    };
    static_assert(std::is_trivially_destructible_v<State>);

    const SonySensor &m_sensor;
    State m_state;
};

extern template class SonyDriver<CCameraBase>;
extern template class SonyDriver<CCameraCool>;

} // namespace vsccam
