#pragma once

#include "models/usb2/usb2_driver.h"

namespace vsccam {

/// A sensor of the family behind the controller and the FPGA of the USB 3.0 cameras. The FPGA takes
/// the frames from the sensor, whose own registers time them, and holds the gate of long exposures.
/// Not verified on hardware.
class Fx3Edition : public Usb2Driver {
  public:
    Fx3Edition(const CameraModel &ofModel, const Usb2Traits &traits);

    bool StartCapture(bool bSingleExposure) override;

  private:
    void PowerUpBoard() override VSC_REQUIRES(programming);
    void SelectBitDepth(bool is16) override VSC_REQUIRES(programming);
    void SetOutputSize(Size size) override VSC_REQUIRES(programming);
    void BeginHostTiming() override VSC_REQUIRES(programming);
    void EndHostTiming() override VSC_REQUIRES(programming);
    bool WorkerFollowsExposure() const override { return false; }
    void StartSensorStreaming() override;
    void StopSensorStreaming() override;
    LongExposurePlan PlanLongExposure(uint32_t exposureUs) const override;
    void OpenExposureGate() override;
    void CloseExposureGate() override;
};

} // namespace vsccam
