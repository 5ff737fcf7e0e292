#pragma once

#include "models/usb2/usb2_driver.h"

#include <optional>
#include <span>

namespace vsccam {

/// A camera of the family with a USB 2.0 controller. Vendor commands set its bit depth and stop its
/// sensor's clock; some models get the controller's firmware from the host.
class Fx2Camera : public Usb2Driver {
  public:
    using Usb2Driver::Usb2Driver;

    bool OpenCamera(int n) override;
    bool StartCapture(bool bSingleExposure) override;

  private:
    void PowerUpBoard() override VSC_REQUIRES(programming);
    bool SelectInputClock(int clockMHz) override VSC_REQUIRES(programming);
    void SelectBitDepth(bool is16) override VSC_REQUIRES(programming);
    void EndHostTiming() override VSC_REQUIRES(programming);
    bool WorkerFollowsExposure() const override { return true; }
    LongExposurePlan PlanLongExposure(uint32_t exposureUs) const override;
    void OpenExposureGate() override;
    void CloseExposureGate() override;

    void Command(uint8_t command);
    bool BringFirmwareUpToDate(int n);
    std::optional<uint8_t> FirmwareVersion();
    bool RefreshFirmware(int n, std::span<const uint8_t> image, const EepromProgrammer &programmer);
    bool GiveUp();
};

} // namespace vsccam
