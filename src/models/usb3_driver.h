#pragma once

#include "capture/capture_sensor.h"
#include "cooling/camera_cool.h"
#include "core/camera_base.h"
#include "models/fpga.h"
#include "models/fpga_registers.h"
#include "models/frame_timing.h"

#include <functional>
#include <type_traits>

namespace vsccam {

/// What the driver of a USB 3.0 camera has to know of a model, whatever the sensor's family.
struct Usb3Traits {
    struct {
        int usb2Host;
        int usb3Host;
    } budget;           // bandwidth of one per cent, in 10 bytes per second
    int lowestClockKHz; // below it there is no frame timing
    SensorLine initialLine;
    FrameOffsets offsets{};
    int startXStep = 4; // unbinned pixels
    int startXStepAtBin3 = 4;
    bool thermistor = false; // on the board, in place of the sensor's own thermometer
};

/// What the drivers of all USB 3.0 cameras do alike: the FPGA makes the frame timing (line and
/// frame length), the sensor holds the shutter; every change of format, binning, read-out speed or
/// bandwidth goes through clock, line length and exposure again, so that they always match. A
/// sensor family fills in how its registers are written.
///
/// Base is CCameraBase, or a class between it and the family such as CCameraCool. Families override
/// privately; what they override is called within a sequence of Programming, but for the exposure's
/// plan and gate and the streaming, which are the worker's.
template <class Base> class Usb3Driver : public Base, protected CaptureSensor {
  public:
    Usb3Driver(const CameraModel &model, const Usb3Traits &traits);

    bool InitCamera() override;
    bool SetResolution(int width, int height, int bin, IMAGE_TYPE type) override;
    bool SetHardwareBin(bool on) override;
    bool SetFPSPerc(int percent, bool bAuto) override;
    bool SetExp(unsigned long long microseconds, bool bAuto) override;
    float GetSensorTemp() override;
    bool StartCapture(bool bSingleExposure) override;

  protected:
    using Base::model, Base::programming, Base::settings;
    using Base::ReadoutNow, Base::SendCMD;
    using typename Base::FormatChange;

    /// Sensor and FPGA after power-on: what does not depend on what the host has set.
    virtual void PowerUp() VSC_REQUIRES(programming) = 0;
    /// Region and size of the read-out as they are set.
    virtual void Cam_SetResolution() VSC_REQUIRES(programming) = 0;
    /// Frame length and shutter.
    virtual void ProgramExposure(const FrameExposure &exposure) VSC_REQUIRES(programming) = 0;

    /// Of the read-out as it is set.
    virtual int ReadoutClockKHz() { return m_traits.initialLine.clockKHz; }
    virtual void SelectClock() VSC_REQUIRES(programming) {}
    /// Stores the flag; families add what the registers want.
    virtual void SetOutput16Bits(bool on) VSC_REQUIRES(programming);
    /// Loads the sensor's read-out mode, for sensors that have several: at the start and when the
    /// hardware-bin flag has changed.
    virtual void LoadReadoutMode() VSC_REQUIRES(programming) {}
    /// Before a binning and a format are stored, and after everything was programmed for them.
    virtual void PrepareFormat(int /*bin*/, IMAGE_TYPE /*type*/) VSC_REQUIRES(programming) {}
    virtual void FinishSettings() VSC_REQUIRES(programming) {}
    /// Code of the FPGA's mode register that lets it run; long exposures add theirs.
    virtual uint16_t FpgaRunCode() { return fpga::kRun; }

    LongExposurePlan PlanLongExposure(uint32_t exposureUs) const override;
    void OpenExposureGate() override;
    void CloseExposureGate() override;
    bool RestoreSettings() override;

    void SetCMOSClk() VSC_REQUIRES(programming);
    /// With the alignment of the model.
    bool MoveRegion(int x, int y, const std::function<void()> &program);
    void WriteFpga(uint16_t reg, int value) { vsccam::WriteFpga(*this, reg, value); }
    void WriteFpga16(uint16_t reg, int value) { vsccam::WriteFpga16(*this, reg, value); }
    void SetUpFpga() { vsccam::SetUpFpga(*this); }
    void RunFpga() VSC_REQUIRES(programming);
    void StopFpga() VSC_REQUIRES(programming);
    void WriteFrameLength(const FrameExposure &exposure);

    // The state that the families share. Plain values: the object is destroyed as a CCameraBase.
    struct Timing {
        SensorLine line;
        int shortestLine = 0;
    };
    static_assert(std::is_trivially_destructible_v<Timing>);

    Timing m_timing VSC_GUARDED_BY(programming);

    /// Region and size of the read-out go to the sensor.
    void WriteSize() VSC_REQUIRES(programming);

  private:
    int AutoBandwidth() const { return settings.Now().usb3Host ? 100 : 80; }
    int Budget() const;
    bool SetUp();
    void ReapplyTiming() VSC_REQUIRES(programming);
    void SelectLongExposure(bool on) VSC_REQUIRES(programming);
    void CalcMaxFPS() VSC_REQUIRES(programming);

    const Usb3Traits &m_traits;
    bool m_startWasLast VSC_GUARDED_BY(programming) = false; // to be written, not the size
};

extern template class Usb3Driver<CCameraBase>;
extern template class Usb3Driver<CCameraCool>;

} // namespace vsccam
