#pragma once

#include "models/python/python_sequences.h"
#include "models/sensor_register.h"
#include "models/usb3_driver.h"

namespace vsccam {

/// The cameras with a PYTHON sensor, USB 3.0. The sensor counts exposures by itself. Its sequencer
/// has one of two programs for the read-out: one with the usual overhead of each row, and one
/// without it for high speed. The FPGA makes the frame timing as for the other USB 3.0 cameras.
class CCameraPython : public Usb3Driver<CCameraBase> {
  public:
    explicit CCameraPython(const CameraModel &ofModel);

    bool SetStartPos(int x, int y) override;
    bool SetGain(int gain, bool bAuto) override;
    bool SetBrightness(int brightness) override;
    /// Needs the bandwidth of a USB 3.0 host; on another the flag is stored, without effect.
    bool SetHighSpeedMode(bool on) override;

    void SoftReset() { Send(python::kSoftReset); }
    void EnableClockMngmnt1() { Send(python::kClockManagement1); }
    void EnableClockMngmnt2() { Send(python::kClockManagement2); }
    void RequiredUploads() { Send(python::kRequiredUploads); }
    void SoftPowerUp() { Send(python::kPowerUp); }
    void SoftPowerDown() { Send(python::kPowerDown); } // stops the sequencer first
    void InitializeCDSwithNROT() VSC_REQUIRES(programming);
    void InitializeCDSwithZROT() VSC_REQUIRES(programming);
    void StartPYTHONStreaming();
    void StopPYTHONStreaming();

  private:
    void PowerUp() override VSC_REQUIRES(programming);
    void LoadReadoutMode() override VSC_REQUIRES(programming);
    void Cam_SetResolution() override VSC_REQUIRES(programming);
    void SetOutput16Bits(bool on) override VSC_REQUIRES(programming);
    void ProgramExposure(const FrameExposure &exposure) override VSC_REQUIRES(programming);
    void StartSensorStreaming() override;
    void StopSensorStreaming() override;

    void WriteWindow();
    void Write(uint16_t address, int value) { WriteSensor(*this, address, value); }
    void WriteBits(uint16_t address, int lowest, int highest, uint16_t value);
    void Send(python::Sequence sequence);
};

/// Code of the sensor's digital gain: the range of a model spans four doublings, each of them in
/// equal steps.
uint16_t PythonGainCode(int gain, ControlRange range);

} // namespace vsccam
