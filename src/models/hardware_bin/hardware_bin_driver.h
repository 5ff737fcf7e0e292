#pragma once

#include "models/register_list.h"
#include "models/sensor_register.h"
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
/// set-up and changes of the format end with it, and the start of a capture wakes them. They also
/// sleep, in another way, through long exposures.
///
/// Base is CCameraBase, or CCameraCool for cooled models.
template <class Base> class HardwareBinDriver : public Usb3Driver<Base> {
  public:
    HardwareBinDriver(const CameraModel &ofModel, const BinningSensor &sensor);

    bool SetStartPos(int x, int y) override;
    bool SetGain(int gain, bool bAuto) override;
    bool SetBrightness(int brightness) override;
    bool SetHighSpeedMode(bool on) override;

  private:
    using Driver = Usb3Driver<Base>;
    using Driver::model, Driver::m_timing, Driver::programming, Driver::settings;
    using Driver::ReadoutNow, Driver::RunFpga, Driver::StopFpga, Driver::WriteFpga;
    using typename Driver::FormatChange;

    void PowerUp() override VSC_REQUIRES(programming);
    void LoadReadoutMode() override VSC_REQUIRES(programming)
    {
        InitSensorBinning(settings.Now().bin);
    }
    void PrepareFormat(int bin, IMAGE_TYPE type) override VSC_REQUIRES(programming);
    void Cam_SetResolution() override VSC_REQUIRES(programming);
    void ProgramExposure(const FrameExposure &exposure) override VSC_REQUIRES(programming);
    void FinishSettings() override VSC_REQUIRES(programming) { SleepSensor(); }
    uint16_t FpgaRunCode() override;
    void StartSensorStreaming() override;
    void StopSensorStreaming() override;
    LongExposurePlan PlanLongExposure(uint32_t exposureUs) const override;
    void OpenExposureGate() override;
    void CloseExposureGate() override;

    void InitSensorBinning(int bin) VSC_REQUIRES(programming);
    const SensorMode *ModeFor(int bin) const;
    void WakeUpSensor();
    void SleepSensor();
    void WakeSensorLongExp();
    void SleepSensorLongExp();
    void Write(uint16_t address, int value) { WriteSensor(*this, address, value); }
    void Send(RegisterList list);
    void WriteStartPos() VSC_REQUIRES(programming);

    const BinningSensor &m_sensor;
};

extern template class HardwareBinDriver<CCameraBase>;
extern template class HardwareBinDriver<CCameraCool>;

} // namespace vsccam
