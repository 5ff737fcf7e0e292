#pragma once

#include "models/register_list.h"
#include "models/sony/sony_registers.h"
#include "models/usb3_driver.h"

namespace vsccam {

/// A sensor clock, the rate code that selects it, and the shortest line it allows.
struct SonyClock {
    int kHz;
    uint8_t rateCode;
    int shortestLine; // clocks
};

/// What sets one Sony sensor apart from the others.
struct SonySensor {
    Usb3Traits common;
    SonyClock normal;
    SonyClock highSpeed;   // with 8-bit output
    SonyClock hardwareBin; // 2 x 2 in the sensor
    RegisterList powerUp;
};

/// The one driver of the USB 3.0 cameras with Sony sensors.
///
/// Base is CCameraBase, or CCameraCool for cooled models.
template <class Base> class SonyDriver : public Usb3Driver<Base> {
  public:
    SonyDriver(const CameraModel &ofModel, const SonySensor &sensor);

    bool SetStartPos(int x, int y) override;
    bool SetGain(int gain, bool bAuto) override;
    bool SetBrightness(int brightness) override;
    bool SetHighSpeedMode(bool on) override;

  private:
    using Driver = Usb3Driver<Base>;
    using Driver::model, Driver::m_timing, Driver::programming, Driver::settings;
    using Driver::ReadoutNow, Driver::SetCMOSClk, Driver::WriteFpga;

    void PowerUp() override VSC_REQUIRES(programming);
    void Cam_SetResolution() override VSC_REQUIRES(programming);
    void ProgramExposure(const FrameExposure &exposure) override VSC_REQUIRES(programming);
    int ReadoutClockKHz() override { return ReadoutClock().kHz; }
    void SelectClock() override VSC_REQUIRES(programming);
    void SetOutput16Bits(bool on) override VSC_REQUIRES(programming);
    void StartSensorStreaming() override;
    void StopSensorStreaming() override;

    const SonyClock &ReadoutClock();
    bool HardwareBin2x2();
    bool TenBitReadout();
    void Write(uint16_t address, int value) { sony::Write(*this, address, value); }
    void Write16(uint16_t address, int value);

    const SonySensor &m_sensor;
};

extern template class SonyDriver<CCameraBase>;
extern template class SonyDriver<CCameraCool>;

} // namespace vsccam
