#pragma once

#include "models/register_list.h"
#include "models/usb3_driver.h"

#include <array>

namespace vsccam {

/// A way to read the sensor out.
struct SensorMode {
    RegisterList sensor;
    /// In the order of writing. The bit depth is that of 8-bit output.
    std::array<RegisterWrite, 3> fpga;
    int shortestLine; // clocks
    const char *message;
};

/// What sets one of the sensors apart from others.
struct BinningSensor {
    Usb3Traits common;
    RegisterList powerUp;
    SensorMode bits12; // without sensor binning
    SensorMode bits10; // the same, for high speed with 8-bit output
    SensorMode bin2;   // 2 x 2, also for a binning of 4, which software completes
    SensorMode bin3;
};

/// The one driver of the large sensors that bin by themselves. They sleep whenever no capture runs:
/// settings end with it, and the start of a capture wakes them. In another way they also sleep
/// through long exposures.
///
/// Base is CCameraBase, or CCameraCool for cooled models.
template <class Base> class HardwareBinDriver : public Usb3Driver<Base> {
  public:
    HardwareBinDriver(const CameraModel &model, const BinningSensor &sensor);

    bool SetStartPos(int x, int y) override;
    bool SetGain(int gain, bool bAuto) override;
    bool SetBrightness(int brightness) override;
    bool SetHighSpeedMode(bool on) override;

  private:
    using Driver = Usb3Driver<Base>;
    using Driver::m_bandwidth, Driver::m_bandwidthAuto, Driver::m_bin, Driver::m_brightness,
        Driver::m_exposureAuto, Driver::m_exposureUs, Driver::m_frameTimeUs, Driver::m_gain,
        Driver::m_gainAuto, Driver::m_hardwareBin, Driver::m_height, Driver::m_highSpeed,
        Driver::m_model, Driver::m_output16Bits, Driver::m_settingsSection, Driver::m_startX,
        Driver::m_startY, Driver::m_timing, Driver::m_width;
    using Driver::ReadoutSize, Driver::RunFpga, Driver::StopFpga, Driver::WriteCameraRegister,
        Driver::WriteFPGAREG, Driver::WriteFpga16;
    using typename Driver::CapturePause;

    void PowerUp() override;
    void LoadReadoutMode() override { InitSensorBinning(m_bin); }
    void PrepareFormat(int bin, IMAGE_TYPE type) override;
    void Cam_SetResolution() override;
    void ProgramExposure(const FrameExposure &exposure) override;
    void FinishSettings() override { SleepSensor(); }
    uint16_t FpgaRunCode() override;
    void StartSensorStreaming() override;
    void StopSensorStreaming() override;
    LongExposurePlan PlanLongExposure(uint32_t exposureUs) const override;
    void OpenExposureGate() override;
    void CloseExposureGate() override;

    void InitSensorBinning(int bin);
    const SensorMode *ModeFor(int bin) const;
    void WakeUpSensor();
    void SleepSensor();
    void WakeSensorLongExp();
    void SleepSensorLongExp();
    void Send(RegisterList list);
    void WriteStartPos();

    const BinningSensor &m_sensor;
};

extern template class HardwareBinDriver<CCameraBase>;
extern template class HardwareBinDriver<CCameraCool>;

} // namespace vsccam
